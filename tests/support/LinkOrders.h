// Short transactions over one association, with first reads at every place, and
// every way for them to end.
//
// A case is four objects with a link or two, up to three calls that make or dissolve
// a link or remove an object, two reads of references before, between or after these
// calls, and an end: a rollback, a commit that is refused, or a commit, its undo and
// its redo. After the end memory is compared with what another session reads: each
// object and both of its roles, whether they were read before or are read now.
// Numbers stand for cases, far more than can be played.

#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/LinkModel.h"

namespace Kes::testing {

namespace orders {

using Id = unsigned long;

struct Kind {
    const char* association;
    const char* roles[2];
    bool leadsToBox;
    bool isOneToOne;
};
constexpr std::array<Kind, 7> Kinds{{
    {"Leading", {"boss", "team"}, false, false},
    {"Owning", {"whole", "parts"}, false, false},
    {"Mating", {"mate", "mateOf"}, false, true},
    {"Liking", {"likes", "likedBy"}, false, false},
    {"Wrapping", {"box", "wrapped"}, true, true},
    {"Holding", {"shelf", "content"}, true, false},
    {"Labelling", {"labels", "labelled"}, true, false},
}};

/// The reference of a role that an instance reports; both are null without.
class Field final : public EmptyHandler {
public:
    Field(Instance* instance, const char* itsRole) : role(itsRole) { instance->handle(this); }

    void handleOneAssociated(const String&, const String& name, OneAssociatedInstance* ref,
                             Association::ConsistencyRule) override {
        if (name == role)
            one = ref;
    }
    void handleManyAssociated(const String&, const String& name,
                              ManyAssociatedInstances* ref) override {
        if (name == role)
            many = ref;
    }

    OneAssociatedInstance* one = nullptr;
    ManyAssociatedInstances* many = nullptr;

private:
    const String role;
};

class LinkOrders {
public:
    /// `opening` opens a model on one database, which is empty at first.
    explicit LinkOrders(const std::function<void(Model&)>& opening) {
        opening(mine);
        opening(judge);
        mine.startTransaction();
        for (kind = 0; kind < Kinds.size(); ++kind)
            for (std::size_t base = 0; base < Bases; ++base)
                all[kind][base] = makeObjects(mine, base);
        for (Id& id : twins)
            id = make(mine, false)->getObjectID();
        mine.commit();
    }

    /// Throws, with the case, when memory shows something else than is stored.
    void run(std::uint64_t number) {
        program.str("");
        program << "case " << number << ": ";
        try {
            play(number);
        } catch (const Exception& raised) {
            fail(std::string(raised.getCode()) + ": " +
                 static_cast<const char*>(raised.getMessage()));
        } catch (const std::exception& failure) {
            fail(failure.what());
        }
    }

    /// A case that fails is told with its statements.
    void trace() { mine.traceSQLTo(program); }

    /// Numbers that differ in everything.
    static std::uint64_t spread(std::uint64_t i) { return i * 0x9E3779B97F4A7C15U >> 2; }

private:
    enum Ending { RolledBack, Refused, Undone, Endings };

    // Who is linked at first: 1 with 3; 2 with 4 as well; both with 3.
    static constexpr std::size_t Bases = 3;

    std::array<Id, 4> makeObjects(LinkModel& model, std::size_t base) {
        std::array<Instance*, 4> made{};
        std::array<Id, 4> madeIds{};
        for (std::size_t i = 0; i < 4; ++i) {
            made[i] = make(model, Kinds[kind].leadsToBox && i >= 2);
            madeIds[i] = made[i]->getObjectID();
        }
        relate(made[0], 0, made[2], true);
        if (base == 1 || (base == 2 && !Kinds[kind].isOneToOne))
            relate(made[1], 0, made[base == 1 ? 3 : 2], true);
        return madeIds;
    }

    Instance* make(LinkModel& model, bool isBox) {
        Instance* fresh = (isBox ? model.boxClass : model.itemClass)->newInstance();
        (isBox ? static_cast<Box*>(fresh)->plate : static_cast<Item*>(fresh)->plate) = ++plates;
        held.emplace_back(fresh);
        return fresh;
    }

    std::size_t pick(std::uint64_t below) {
        const std::uint64_t picked = rest % below;
        rest /= below;
        return static_cast<std::size_t>(picked);
    }

    void play(std::uint64_t number) {
        rest = number;
        kind = pick(Kinds.size());
        auto ending = static_cast<Ending>(pick(Endings));
        const bool bySelection = pick(2) != 0;
        const std::size_t base = pick(Bases);
        const std::size_t theirs = pick(8);  // when; never from 4 on
        isStale = theirs < 4;
        program << Kinds[kind].association << ", state " << base
                << (bySelection ? ", selected\n" : "\n");
        ids = isStale ? makeTheirs(base) : all[kind][base];
        hold(bySelection);
        std::size_t what[2];
        std::size_t when[2];
        for (std::size_t i = 0; i < 2; ++i) {
            what[i] = pick(Reads);
            when[i] = pick(5);
        }
        mine.startTransaction();
        for (std::size_t at = 0; at < 5; ++at) {
            for (std::size_t i = 0; i < 2; ++i)
                if (when[i] == at)
                    read(what[i]);
            if (at == theirs && isStale)
                changeAsOthers();
            if (at < 3)
                change(mine);
            else if (at == 3)
                end(ending);
        }
        if (isStale)
            refreshAll();
        else if (ending == Undone)
            undoAndRedo();
        compare("in the end");
    }

    std::array<Id, 4> makeTheirs(std::size_t base) {
        judge.startTransaction();
        const std::array<Id, 4> made = makeObjects(judge, base);
        judge.commit();
        return made;
    }

    void changeAsOthers() {
        program << "others: ";
        judge.garbageCollect();
        judge.startTransaction();
        change(judge);
        judge.commit();
    }

    void refreshAll() {
        program << "refresh\n";
        for (const Id id : ids)
            if (Instance* known = mine.get(id); known != nullptr && !known->isRemoved())
                known->refresh();
    }

    void undoAndRedo() {
        compare("after the commit");
        program << "undo\n";
        mine.undo();
        compare("after the undo");
        program << "redo\n";
        mine.redo();
        compare("after the redo");
        program << "undo\n";
        mine.undo();
    }

    // Nothing is in memory but what the case is about, with nothing fetched.
    void hold(bool bySelection) {
        held.clear();
        mine.setMaxUndoSize(0);
        mine.setMaxUndoSize(128);
        mine.garbageCollect();
        if (!bySelection) {
            for (std::size_t i = 0; i < 4; ++i)
                held.emplace_back(find(mine, i));
            return;
        }
        for (Class* cls : {mine.itemClass, mine.boxClass}) {
            Selection some(cls);
            Condition* isOfThese = nullptr;
            for (const Id id : ids) {
                Condition* isThis = new AttributeCondition<unsigned long>(
                    new Attribute(cls, "KesObjectID"), Condition::EQUAL, id);
                isOfThese = isOfThese == nullptr
                                ? isThis
                                : new CombinationCondition(isOfThese, Condition::OR, isThis);
            }
            some.setCondition(isOfThese);
            while (some.next())
                held.emplace_back(some.value());
        }
    }

    // --- steps ---

    // Twice nothing, each removal, and links of any two, from either side.
    void change(LinkModel& model) {
        const std::size_t what = pick(38);
        if (what < 2)
            return;
        if (what < 6) {
            Instance* object = find(model, what - 2);
            if (object == nullptr || object->isRemoved())
                return;
            program << "remove " << what - 1 << '\n';
            object->remove();
            return;
        }
        const bool make = (what & 1) != 0;
        const std::size_t side = (what - 6) >> 1 & 1;
        std::size_t from = (what - 6) >> 2 & 1;
        std::size_t to = 2 + ((what - 6) >> 3 & 1);
        if ((what - 6) >> 4 != 0 && !Kinds[kind].leadsToBox)
            to = from == 0 ? 1 : 0;
        if (side != 0)
            std::swap(from, to);
        Instance* object = find(model, from);
        Instance* partner = find(model, to);
        if (object == nullptr || partner == nullptr || object->isRemoved() || partner->isRemoved())
            return;
        program << Kinds[kind].roles[side] << " of " << from + 1 << (make ? " gets " : " loses ")
                << to + 1 << '\n';
        relate(object, side, partner, make);
    }

    void relate(Instance* object, std::size_t side, Instance* partner, bool make) const {
        const Field field(object, Kinds[kind].roles[side]);
        if (field.one != nullptr)
            object->set(*field.one, make ? partner : nullptr);
        else if (make)
            object->add(*field.many, partner);
        else
            object->remove(*field.many, partner);
    }

    // One of the references, all, or none.
    static constexpr std::size_t Reads = 10;
    void read(std::size_t what) {
        for (std::size_t i = 0; i < 4; ++i)
            for (std::size_t side = 0; side < 2; ++side)
                if (what == 2 * i + side || what == 8) {
                    Instance* object = find(mine, i);
                    if (object == nullptr || object->isRemoved())
                        continue;
                    const std::set<Id> ignored = shown(*object, side);
                    program << "read " << Kinds[kind].roles[side] << " of " << i + 1 << ':'
                            << list(ignored) << '\n';
                }
    }

    void end(Ending ending) {
        if (ending == RolledBack) {
            program << "rollback\n";
            mine.rollback();
            return;
        }
        Item* twin = mine.item(twins[0]);
        twin->change();
        twin->plate = ending == Refused ? mine.item(twins[1])->plate : ++plates;
        program << "commit\n";
        try {
            mine.commit();
        } catch (const Exception&) {
            if (ending != Refused && !isStale)
                throw;
            program << "refused\n";
            return;
        }
        if (ending == Refused)
            throw std::runtime_error("a value that has to be unique was stored twice");
    }

    // --- comparing ---

    void compare(const std::string& when) {
        judge.garbageCollect();
        for (std::size_t i = 0; i < 4; ++i) {
            const Pointer<Instance> stored(find(judge, i));
            const Pointer<Instance> known(find(mine, i));
            const std::string who = std::to_string(i + 1);
            if ((stored == nullptr) != (known == nullptr || known->isRemoved()))
                throw std::runtime_error(when + ": " + who +
                                         (stored == nullptr ? " is not stored" : " is stored"));
            if (stored == nullptr)
                continue;
            compareReferences(when, *stored, *known, who);
            if (stored->getVersion() != known->getVersion())
                throw std::runtime_error(when + ": the version of " + who + " is " +
                                         std::to_string(known->getVersion()) + ", stored is " +
                                         std::to_string(stored->getVersion()));
        }
    }

    void compareReferences(const std::string& when, Instance& stored, Instance& known,
                           const std::string& who) const {
        for (std::size_t side = 0; side < 2; ++side) {
            const std::set<Id> truth = shown(stored, side);
            const std::set<Id> seen = shown(known, side);
            if (truth != seen)
                throw std::runtime_error(when + ": " + Kinds[kind].roles[side] + " of " + who +
                                         " shows" + list(seen) + ", stored is" + list(truth));
        }
    }

    std::string list(const std::set<Id>& these) const {
        std::string text;
        for (const Id id : these)
            text += ' ' + std::to_string(std::find(ids.begin(), ids.end(), id) - ids.begin() + 1);
        return text.empty() ? " nobody" : text;
    }

    std::set<Id> shown(Instance& object, std::size_t side) const {
        std::set<Id> partners;
        const Field field(&object, Kinds[kind].roles[side]);
        if (field.one != nullptr) {
            object.get(*field.one);
            if (const Instance* partner = field.one->getInstance())
                partners.insert(partner->getObjectID());
        } else if (field.many != nullptr) {
            object.get(*field.many);
            for (field.many->reset(); field.many->next();)
                partners.insert(field.many->value()->getObjectID());
        }
        return partners;
    }

    Class* classOf(const LinkModel& model, std::size_t at) const {
        return Kinds[kind].leadsToBox && at >= 2 ? model.boxClass : model.itemClass;
    }
    Instance* find(LinkModel& model, std::size_t at) const {
        return model.getInstance(ids[at], classOf(model, at));
    }

    [[noreturn]] void fail(const std::string& why) const {
        throw std::runtime_error(why + "\nin " + program.str());
    }

    LinkModel mine;
    LinkModel judge;
    std::array<std::array<std::array<Id, 4>, Bases>, Kinds.size()> all{};
    std::array<Id, 4> ids{};  // of the case
    std::array<Id, 2> twins{};
    bool isStale = false;  // others change something meanwhile
    int plates = 0;
    std::size_t kind = 0;
    std::uint64_t rest = 0;
    std::vector<Pointer<Instance>> held;
    std::ostringstream program;
};

}  // namespace orders

using orders::LinkOrders;

}  // namespace Kes::testing
