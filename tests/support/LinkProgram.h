// Random transactions over links of every plurality, compared with a plain world.
//
// A call makes or dissolves the link of its two objects and no other: so the
// world notes the calls of a transaction and plays them at the commit, on what is
// stored by then, for another session may have committed in between. After each
// commit, refusal, rollback, undo and redo both sides of every reference are
// compared, in memory and in the database. Calls come from either side, in any
// order, also on references that memory does not hold or that show a partner whom
// somebody else has taken in the same transaction.

#pragma once

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/LinkModel.h"

namespace Kes::testing {

namespace links {

using Id = unsigned long;

// One-references of items; the world keeps no other side.
enum Reference { Boss, Whole, Mate, Wrap, Shelf };
constexpr int References = 5;
constexpr const char* ReferenceNames[] = {"boss", "whole", "mate", "box", "shelf"};

inline bool isOneToOne(int reference) {
    return reference == Mate || reference == Wrap;
}
inline bool leadsToBox(int reference) {
    return reference == Wrap || reference == Shelf;
}

struct Plain {
    bool isBox = false;
    int plate = 0;
    int rank = 0;
    Id one[References] = {};
    std::set<Id> likes;
    std::set<Id> labels;

    bool operator==(const Plain&) const = default;
};

using World = std::map<Id, Plain>;

inline std::string describe(const World& world) {
    std::ostringstream text;
    for (const auto& [id, o] : world) {
        text << id << (o.isBox ? " box" : " item") << " plate " << o.plate << " rank " << o.rank;
        for (int i = 0; i < References; ++i)
            if (o.one[i] != 0)
                text << ' ' << ReferenceNames[i] << ' ' << o.one[i];
        for (const Id other : o.likes)
            text << " likes " << other;
        for (const Id other : o.labels)
            text << " labelled " << other;
        text << '\n';
    }
    return text.str();
}

/// What a recorded call does to what is stored.
using Effect = std::function<void(World&)>;

inline void link(World& world, int reference, Id id, Id partner) {
    if (!world.contains(id) || !world.contains(partner))
        return;
    if (isOneToOne(reference))
        for (auto& [otherId, o] : world)
            if (o.one[reference] == partner)
                o.one[reference] = 0;
    world[id].one[reference] = partner;
}

inline void unlink(World& world, int reference, Id id, Id partner) {
    if (world.contains(id) && world[id].one[reference] == partner)
        world[id].one[reference] = 0;
}

inline void erase(World& world, Id id) {
    world.erase(id);
    for (auto& [otherId, o] : world) {
        for (Id& partner : o.one)
            if (partner == id)
                partner = 0;
        o.likes.erase(id);
        o.labels.erase(id);
    }
}

inline bool hasTwins(const World& world) {
    std::set<std::pair<bool, int>> plates;
    return std::any_of(world.begin(), world.end(), [&](const auto& each) {
        return !plates.emplace(each.second.isBox, each.second.plate).second;
    });
}

inline Id idOf(Instance* partner) {
    return partner != nullptr ? partner->getObjectID() : 0;
}

template <class T>
std::set<Id> idsOf(const Many<T>& members) {
    std::set<Id> ids;
    for (T* member : members)
        ids.insert(member->getObjectID());
    return ids;
}

/// One model on the database of the program.
class Session {
public:
    explicit Session(const std::function<void(Model&)>& open) { open(model); }

    /// Throws when a side of a link disagrees with the other.
    World read() {
        World world;
        std::vector<Pointer<Item>> items;
        std::vector<Pointer<Box>> boxes;
        SelectionOf<Item> allItems(model.itemClass);
        while (Item* each = allItems.nextValue())
            items.emplace_back(each);
        SelectionOf<Box> allBoxes(model.boxClass);
        while (Box* each = allBoxes.nextValue())
            boxes.emplace_back(each);
        for (const Pointer<Box>& each : boxes) {
            Plain& o = world[each->getObjectID()];
            o.isBox = true;
            o.plate = each->plate;
            o.rank = each->rank;
        }
        for (const Pointer<Item>& each : items)
            readItem(*each, world[each->getObjectID()]);
        for (const Pointer<Item>& each : items)
            checkItem(*each, world);
        for (const Pointer<Box>& each : boxes)
            checkBox(*each, world);
        return world;
    }

    std::map<Id, unsigned long> versions() {
        std::map<Id, unsigned long> all;
        SelectionOf<Item> items(model.itemClass);
        while (Item* each = items.nextValue())
            all[each->getObjectID()] = each->getVersion();
        SelectionOf<Box> boxes(model.boxClass);
        while (Box* each = boxes.nextValue())
            all[each->getObjectID()] = each->getVersion();
        return all;
    }

    /// Forgets what it has of all objects: nothing holds them.
    void drop() {
        model.rollback();
        model.garbageCollect();
    }

    LinkModel model;

private:
    static void demand(bool truth, Instance* of, const char* role) {
        if (!truth)
            throw std::runtime_error(std::string(role) + " of " +
                                     std::to_string(of->getObjectID()) +
                                     " disagrees with the other side");
    }

    static void readItem(Item& item, Plain& o) {
        o.plate = item.plate;
        o.rank = item.rank;
        o.one[Boss] = idOf(item.boss);
        o.one[Whole] = idOf(item.whole);
        o.one[Mate] = idOf(item.mate);
        o.one[Wrap] = idOf(item.box);
        o.one[Shelf] = idOf(item.shelf);
        o.likes = idsOf(item.likes);
        o.labels = idsOf(item.labels);
    }

    static std::set<Id> who(const World& world, int reference, Id leadsTo) {
        std::set<Id> ids;
        for (const auto& [id, o] : world)
            if (o.one[reference] == leadsTo)
                ids.insert(id);
        return ids;
    }

    static void checkItem(Item& item, const World& world) {
        const Id id = item.getObjectID();
        std::set<Id> likedBy;
        for (const auto& [other, o] : world)
            if (o.likes.contains(id))
                likedBy.insert(other);
        const std::set<Id> mateOf = who(world, Mate, id);
        demand(idsOf(item.team) == who(world, Boss, id), &item, "team");
        demand(idsOf(item.parts) == who(world, Whole, id), &item, "parts");
        demand(idsOf(item.likedBy) == likedBy, &item, "likedBy");
        demand(mateOf.size() <= 1 && idOf(item.mateOf) == (mateOf.empty() ? 0 : *mateOf.begin()),
               &item, "mateOf");
    }

    static void checkBox(Box& box, const World& world) {
        const Id id = box.getObjectID();
        std::set<Id> labelled;
        for (const auto& [other, o] : world)
            if (o.labels.contains(id))
                labelled.insert(other);
        const std::set<Id> wrapped = who(world, Wrap, id);
        demand(idsOf(box.content) == who(world, Shelf, id), &box, "content");
        demand(idsOf(box.labelled) == labelled, &box, "labelled");
        demand(wrapped.size() <= 1 && idOf(box.wrapped) == (wrapped.empty() ? 0 : *wrapped.begin()),
               &box, "wrapped");
    }
};

class LinkProgram {
public:
    /// `opening` opens a model on the program's database, which is empty at first.
    LinkProgram(unsigned seed, std::function<void(Model&)> opening)
        : random(seed),
          open(std::move(opening)) {}

    /// Throws, with the program so far, when what is seen is not the world.
    void run(int transactions) {
        try {
            mine.emplace(open);
            theirs.emplace(open);
            judge.emplace(open);
            states.push_back(world);
            for (int i = 0; i < transactions; ++i)
                step();
        } catch (const Exception& raised) {
            fail(std::string(raised.getCode()) + ": " +
                 static_cast<const char*>(raised.getMessage()));
        } catch (const std::exception& failure) {
            fail(failure.what());
        }
    }

private:
    void step() {
        const int kind = pick(12);
        if (kind <= 7)
            runTransaction();
        else if (kind == 8)
            undo();
        else if (kind == 9)
            redo();
        else if (kind == 10)
            dropMemory();
        else
            runTheirs();
    }

    // --- transactions ---

    void runTransaction() {
        Session& session = *mine;
        session.model.startTransaction();
        program << "start\n";
        states.resize(position + 1);
        recordSome(session, 1 + pick(10));

        // What changes nothing is no entry of the history.
        if (present.empty())
            add(session);
        const Id changed = any();
        setFields(session, changed, present[changed].plate, pick(100));
        if (pick(6) == 0)
            runTheirs();
        if (pick(7) == 0) {
            program << "rollback\n";
            session.model.rollback();
            effects.clear();
            if (isStale)
                refreshMine();
            compareMemory();
            return;
        }
        commit(session);
    }

    void commit(Session& session) {
        World after = world;
        for (const Effect& effect : effects)
            effect(after);
        effects.clear();
        program << "commit\n";
        try {
            session.model.commit();
        } catch (const Exception& refusal) {
            program << "refused: " << static_cast<const char*>(refusal.getMessage()) << '\n';
            if (!isStale && !hasTwins(after))
                throw;
            compareStored();
            if (isStale)
                refreshMine();
            compareMemory();
            return;
        }
        if (hasTwins(after))
            throw std::runtime_error("a value that has to be unique was stored twice");
        world = after;
        states.push_back(world);
        ++position;
        compareStored();
        if (isStale)
            refreshMine();
        compareMemory();
    }

    // Another session commits, and this one does not know.
    void runTheirs() {
        program << "they begin\n";
        std::vector<Effect> kept;
        kept.swap(effects);
        theirs->drop();
        theirs->model.startTransaction();
        recordSome(*theirs, 1 + pick(4));
        World after = world;
        for (const Effect& effect : effects)
            effect(after);
        effects.swap(kept);
        program << "they commit\n";
        try {
            theirs->model.commit();
        } catch (const Exception& refusal) {
            program << "refused: " << static_cast<const char*>(refusal.getMessage()) << '\n';
            if (!hasTwins(after))
                throw;
            return;
        }
        world = after;
        isStale = true;

        // What undo makes of others' changes is for other tests to say.
        states.assign(1, world);
        position = 0;
        mine->model.setMaxUndoSize(0);
        mine->model.setMaxUndoSize(128);
        compareStored();
        if (!mine->model.transactionStarted()) {
            refreshMine();
            compareMemory();
        }
    }

    void refreshMine() {
        program << "refresh\n";
        isStale = false;
        mine->drop();
        states.assign(1, world);
        position = 0;
        mine->model.setMaxUndoSize(0);
        mine->model.setMaxUndoSize(128);
    }

    void undo() {
        if (position == 0)
            return;
        program << "undo\n";
        mine->model.undo();
        world = states[--position];
        compareStored();
        compareMemory();
    }

    void redo() {
        if (position + 1 >= states.size() || !mine->model.isRedoable())
            return;
        program << "redo\n";
        mine->model.redo();
        world = states[++position];
        compareStored();
        compareMemory();
    }

    void dropMemory() {
        program << "collect\n";
        mine->model.garbageCollect();
    }

    // --- calls ---

    void recordSome(Session& session, int count) {
        present = world;
        for (; count > 0; --count)
            record(session);
    }

    void record(Session& session) {
        const bool isFew = present.size() < 8 || anyOf(false) == 0 || anyOf(true) == 0;
        const int kind = isFew ? 0 : pick(20);
        if (kind <= 1)
            add(session);
        else if (kind <= 4)
            assign(session, any());
        else if (kind <= 15)
            relate(session);
        else if (kind <= 17)
            gather(session);
        else if (kind == 18)
            remove(session, any());
        else
            addAndRemove(session);
    }

    int freePlate() {
        int plate = 0;
        const auto isTaken = [&](const auto& each) { return each.second.plate == plate; };
        while (std::any_of(present.begin(), present.end(), isTaken))
            ++plate;
        return plate;
    }

    Id add(Session& session) {
        Plain o;
        o.isBox = pick(3) == 0;
        o.plate = freePlate();
        o.rank = pick(100);
        Id id = 0;
        if (o.isBox) {
            auto* made = static_cast<Box*>(session.model.boxClass->newInstance());
            made->plate = o.plate;
            made->rank = o.rank;
            id = made->getObjectID();
        } else {
            auto* made = static_cast<Item*>(session.model.itemClass->newInstance());
            made->plate = o.plate;
            made->rank = o.rank;
            id = made->getObjectID();
        }
        program << "add " << id << (o.isBox ? " box" : " item") << " plate " << o.plate << '\n';
        note([id, o](World& w) { w[id] = o; });
        return id;
    }

    // Values may be taken from whoever has them, and now and then nobody gives
    // one up.
    void assign(Session& session, Id id) {
        const Plain& o = present[id];
        const bool isBox = o.isBox;
        const int plate = o.plate;
        const int rank = pick(100);
        const Id other = anyOf(isBox);
        const int theirPlate = present[other].plate;
        const bool isSwap = other != id && pick(3) == 0;
        const bool isTheft = !isSwap && pick(40) == 0;
        setFields(session, id, isSwap || isTheft ? theirPlate : plate, rank);
        if (isSwap)
            setFields(session, other, plate, present[other].rank);
    }

    void setFields(Session& session, Id id, int plate, int rank) {
        program << "assign " << id << " plate " << plate << " rank " << rank << '\n';
        const bool isBox = present[id].isBox;
        Instance* object =
            isBox ? static_cast<Instance*>(session.model.box(id)) : session.model.item(id);
        const bool isFirst = pick(2) == 0;
        if (isFirst)
            object->change();
        (isBox ? static_cast<Box*>(object)->plate : static_cast<Item*>(object)->plate) = plate;
        (isBox ? static_cast<Box*>(object)->rank : static_cast<Item*>(object)->rank) = rank;
        if (!isFirst)
            object->change();
        note([id, plate, rank](World& w) {
            if (w.contains(id)) {
                w[id].plate = plate;
                w[id].rank = rank;
            }
        });
    }

    // One link of one kind, made or dissolved from one of its sides.
    void relate(Session& session) {
        const int reference = pick(References);
        const Id id = anyOf(false);
        const Id partner = anyOf(leadsToBox(reference));
        const bool make = pick(4) != 0;
        const bool fromPartner = reference != Whole && pick(2) == 0;
        program << (fromPartner ? "from there " : "") << ReferenceNames[reference] << " of " << id
                << (make ? " = " : " no more ") << partner << '\n';
        Item* item = session.model.item(id);
        switch (reference) {
        case Boss:
            if (fromPartner)
                return gatherOne(reference, session.model.item(partner)->team, item, partner, make);
            return setOne(reference, item->boss, session.model.item(partner), id, make);
        case Whole: return setOne(reference, item->whole, session.model.item(partner), id, make);
        case Mate:
            if (fromPartner)
                return setBack(reference, session.model.item(partner)->mateOf, item, partner, make);
            return setOne(reference, item->mate, session.model.item(partner), id, make);
        case Wrap:
            if (fromPartner)
                return setBack(reference, session.model.box(partner)->wrapped, item, partner, make);
            return setOne(reference, item->box, session.model.box(partner), id, make);
        case Shelf:
            if (fromPartner)
                return gatherOne(reference, session.model.box(partner)->content, item, partner,
                                 make);
            return setOne(reference, item->shelf, session.model.box(partner), id, make);
        default: return;
        }
    }

    // To assign null dissolves the link with the partner that memory shows.
    template <class T>
    void setOne(int reference, One<T>& ref, T* partner, Id id, bool make) {
        const Id old = idOf(ref);
        ref = make ? partner : nullptr;
        const Id now = partner->getObjectID();
        if (make)
            note([=](World& w) { link(w, reference, id, now); });
        else if (old != 0)
            note([=](World& w) { unlink(w, reference, id, old); });
    }

    void setBack(int reference, One<Item>& ref, Item* item, Id partner, bool make) {
        const Id old = idOf(ref);
        ref = make ? item : nullptr;
        const Id now = item->getObjectID();
        if (make)
            note([=](World& w) { link(w, reference, now, partner); });
        else if (old != 0)
            note([=](World& w) { unlink(w, reference, old, partner); });
    }

    void gatherOne(int reference, Many<Item>& members, Item* item, Id owner, bool make) {
        const Id id = item->getObjectID();
        if (make) {
            members.add(item);
            note([=](World& w) { link(w, reference, id, owner); });
        } else {
            members.remove(item);
            note([=](World& w) { unlink(w, reference, id, owner); });
        }
    }

    void gather(Session& session) {
        const bool isLabel = pick(2) == 0;
        const Id id = anyOf(false);
        const Id other = anyOf(isLabel);
        const bool fromOther = pick(2) == 0;
        const bool make = pick(3) != 0;
        program << (fromOther ? "from there " : "") << id << (make ? " gets " : " loses ")
                << (isLabel ? "label " : "like ") << other << '\n';
        Item* item = session.model.item(id);
        if (isLabel) {
            Box* box = session.model.box(other);
            fromOther ? change(box->labelled, item, make) : change(item->labels, box, make);
        } else {
            Item* liked = session.model.item(other);
            fromOther ? change(liked->likedBy, item, make) : change(item->likes, liked, make);
        }
        note([=](World& w) {
            if (!w.contains(id) || (make && !w.contains(other)))
                return;
            std::set<Id>& links = isLabel ? w[id].labels : w[id].likes;
            make ? static_cast<void>(links.insert(other)) : static_cast<void>(links.erase(other));
        });
    }

    template <class T>
    static void change(Many<T>& members, T* member, bool make) {
        if (make)
            members.add(member);
        else
            members.remove(member);
    }

    // A cascade goes through what memory shows.
    void remove(Session& session, Id id) {
        program << "remove " << id;
        std::vector<Pointer<Instance>> all;
        for (const auto& [each, o] : present)
            all.emplace_back(o.isBox ? static_cast<Instance*>(session.model.box(each))
                                     : session.model.item(each));
        const auto at = static_cast<std::size_t>(std::distance(present.begin(), present.find(id)));
        all[at]->remove();
        std::vector<Id> gone;
        for (const Pointer<Instance>& each : all)
            if (each->isRemoved())
                gone.push_back(each->getObjectID());
        for (const Id each : gone)
            program << ' ' << each;
        program << '\n';
        note([gone](World& w) {
            for (const Id each : gone)
                erase(w, each);
        });
    }

    // It takes partners from others, and goes without having been stored.
    void addAndRemove(Session& session) {
        const Id id = add(session);
        const bool isBox = present[id].isBox;
        if (isBox) {
            Box* box = session.model.box(id);
            Item* item = session.model.item(anyOf(false));
            program << "it takes " << item->getObjectID() << '\n';
            const Id taken = item->getObjectID();
            if (pick(2) == 0) {
                box->wrapped = item;
                note([=](World& w) { link(w, Wrap, taken, id); });
            } else {
                box->content.add(item);
                note([=](World& w) { link(w, Shelf, taken, id); });
            }
        } else {
            Item* item = session.model.item(id);
            Item* other = session.model.item(anyOf(false));
            program << "it takes " << other->getObjectID() << '\n';
            const Id taken = other->getObjectID();
            if (pick(2) == 0) {
                item->mate = other;
                note([=](World& w) { link(w, Mate, id, taken); });
            } else {
                other->boss = item;
                note([=](World& w) { link(w, Boss, taken, id); });
            }
        }
        remove(session, id);
    }

    void note(const Effect& effect) {
        effects.push_back(effect);
        effect(present);
    }

    // --- comparing ---

    void compareMemory() { compare("in memory", mine->read()); }

    void compareStored() {
        judge->drop();
        compare("stored", judge->read());
        if (isStale || mine->model.transactionStarted())
            return;
        for (const auto& [id, version] : judge->versions()) {
            const Instance* known = mine->model.get(id);
            if (known != nullptr && known->getVersion() != version)
                throw std::runtime_error("the version of " + std::to_string(id) + " is " +
                                         std::to_string(known->getVersion()) +
                                         " in memory and stored as " + std::to_string(version));
        }
    }

    void compare(const char* where, const World& seen) const {
        if (world != seen)
            throw std::runtime_error("expected\n" + describe(world) + where + '\n' +
                                     describe(seen));
    }

    [[noreturn]] void fail(const std::string& why) const {
        throw std::runtime_error(why + "\nafter\n" + program.str());
    }

    int pick(int below) { return static_cast<int>(random() % static_cast<unsigned>(below)); }

    Id any() {
        auto at = present.begin();
        std::advance(at, pick(static_cast<int>(present.size())));
        return at->first;
    }

    // 0 when there is none.
    Id anyOf(bool isBox) {
        std::vector<Id> ids;
        for (const auto& [id, o] : present)
            if (o.isBox == isBox)
                ids.push_back(id);
        return ids.empty() ? 0 : ids[static_cast<std::size_t>(pick(static_cast<int>(ids.size())))];
    }

    std::mt19937 random;
    std::function<void(Model&)> open;
    std::optional<Session> mine;
    std::optional<Session> theirs;
    std::optional<Session> judge;
    World world;    // what is stored
    World present;  // with the calls of the transaction at hand
    std::vector<Effect> effects;
    std::vector<World> states;
    std::size_t position = 0;
    bool isStale = false;  // the other session has committed since this one read all
    std::ostringstream program;
};

}  // namespace links

using links::LinkProgram;

}  // namespace Kes::testing
