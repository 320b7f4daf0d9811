// Random transactions on a random graph, all undone and all redone. A plain
// oracle tells after each step what memory and a reopened model have to show.

#pragma once

#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/GraphModel.h"

namespace Kes::testing {

namespace undo {

using Id = unsigned long;

struct Plain {
    bool leaf = false;
    std::string label;
    int rank = 0;
    double weight = 0;
    Id boss = 0;
    Id whole = 0;
    Id mate = 0;
    std::set<Id> likes;

    bool operator==(const Plain&) const = default;
};

using World = std::map<Id, Plain>;

inline std::string describe(const World& world) {
    std::ostringstream text;
    for (const auto& [id, o] : world) {
        text << id << (o.leaf ? " leaf " : " node ") << o.label.substr(0, 8) << " rank " << o.rank
             << " weight " << o.weight << " boss " << o.boss << " whole " << o.whole << " mate "
             << o.mate << " likes";
        for (const Id other : o.likes)
            text << ' ' << other;
        text << '\n';
    }
    return text.str();
}

// The rules for links and removals, on plain values.
class Oracle {
public:
    void pair(Id one, Id other) {
        for (auto& [id, o] : world)
            if (o.mate == other && other != 0)
                o.mate = 0;
        world[one].mate = other;
    }

    void remove(Id id) {
        world.erase(id);
        std::vector<Id> parts;
        for (auto& [otherId, o] : world) {
            if (o.boss == id)
                o.boss = 0;
            if (o.mate == id)
                o.mate = 0;
            o.likes.erase(id);
            if (o.whole == id)
                parts.push_back(otherId);
        }
        for (const Id part : parts)
            if (world.contains(part))
                remove(part);
    }

    World world;
};

inline Id living(Node* node) {
    return node != nullptr && !node->isRemoved() ? node->getObjectID() : 0;
}

inline std::set<Id> livingMembers(const Many<Node>& members) {
    std::set<Id> ids;
    for (Node* member : members)
        if (!member->isRemoved())
            ids.insert(member->getObjectID());
    return ids;
}

/// One random program: a model, its oracle and the states that it went through.
class UndoProgram {
public:
    /// `opening` opens a model on the program's database, which is empty at
    /// first. With `rude` teams take members from others who are not told, so
    /// memory may show what is no more.
    UndoProgram(unsigned seed, std::function<void(Model&)> opening, bool rude)
        : random(seed),
          open(std::move(opening)),
          isRude(rude) {
        open(model);
    }

    /// Throws with both states and the program so far when they differ.
    void run() {
        try {
            tryToRun();
        } catch (const Exception& failure) {
            demand(false, static_cast<const char*>(failure.getMessage()));
        }
    }

private:
    void tryToRun() {
        states.push_back(oracle.world);
        const int transactions = 3 + pick(5);
        for (int i = 0; i < transactions; ++i)
            runTransaction();
        compareStored();
        while (position > 0)
            step(-1);
        while (position + 1 < states.size())
            step(1);
        for (int i = 0; i < 12; ++i)
            step(pick(2) == 0 ? -1 : 1);
    }

    void runTransaction() {
        maybeCollect();
        model.startTransaction();
        const World before = oracle.world;
        for (int i = pick(12); i >= 0; --i)
            change();
        if (pick(8) == 0) {
            program << "rollback\n";
            model.rollback();
            oracle.world = before;
            compareMemory();
            model.startTransaction();
            for (int i = pick(4); i >= 0; --i)
                change();
        }
        assign(oracle.world.empty() ? add() : any());  // an empty transaction does not count
        program << "commit\n";
        model.commit();
        states.push_back(oracle.world);
        ++position;
        compareMemory();
    }

    // One undo or redo, where there is one.
    void step(int direction) {
        maybeCollect();
        if (direction < 0 && position > 0) {
            program << "undo\n";
            model.undo();
            --position;
        } else if (direction > 0 && position + 1 < states.size()) {
            program << "redo\n";
            model.redo();
            ++position;
        } else {
            return;
        }
        oracle.world = states[position];
        compareMemory();
        compareStored();
    }

    void maybeCollect() {
        if (pick(3) != 0)
            return;
        program << "collect\n";
        model.garbageCollect();
    }

    void change() {
        const int kind = oracle.world.size() < 4 ? pick(2) : pick(17);
        if (kind <= 1)
            add();
        else if (kind <= 4)
            assign(any());
        else if (kind <= 6)
            setBoss(any(), pick(4) == 0 ? 0 : any());
        else if (kind == 7)
            addToTeam(any(), any());
        else if (kind <= 9)
            setWhole(any(), pick(4) == 0 ? 0 : any());
        else if (kind <= 11)
            setMate(any(), pick(4) == 0 ? 0 : any());
        else if (kind <= 14)
            like(any(), any());
        else if (kind == 15)
            remove(any());
        else
            addAndRemove();
    }

    Id add() {
        const bool leaf = pick(3) == 0;
        Node* made = leaf ? model.newLeaf() : model.newNode();
        Plain& o = oracle.world[made->getObjectID()];
        o.leaf = leaf;
        assign(made->getObjectID());
        return made->getObjectID();
    }

    void addAndRemove() {
        program << "add and remove\n";
        Node* made = model.newNode("brief");
        made->boss = node(any());
        made->remove();
    }

    // change() comes before or after the assignment, or between.
    void assign(Id id) {
        Node* object = node(id);
        Plain& o = oracle.world[id];
        const int order = pick(3);
        program << "assign " << id << '\n';
        if (order == 0)
            object->change();
        if (pick(2) == 0) {
            o.label =
                std::string(static_cast<std::size_t>(pick(150)), static_cast<char>('a' + pick(26)));
            object->label = o.label.c_str();
        }
        if (order == 1)
            object->change();
        o.rank = pick(1000);
        object->rank = o.rank;
        if (o.leaf) {
            o.weight = pick(100) / 8.0;
            static_cast<Leaf*>(object)->weight = o.weight;
        }
        if (order == 2)
            object->change();
    }

    void setBoss(Id id, Id boss) {
        program << "boss of " << id << " = " << boss << '\n';
        node(id)->boss = node(boss);
        oracle.world[id].boss = boss;
    }

    // From the other side; nobody tells the collection of a former boss.
    void addToTeam(Id boss, Id id) {
        program << "team of " << boss << " gets " << id << '\n';
        if (!isRude)
            node(id)->boss = nullptr;
        node(boss)->team.add(node(id));
        oracle.world[id].boss = boss;
    }

    void setWhole(Id id, Id whole) {
        program << "whole of " << id << " = " << whole << '\n';
        node(id)->whole = node(whole);
        oracle.world[id].whole = whole;
    }

    // Nobody tells the one from whom the mate is taken, either.
    void setMate(Id id, Id mate) {
        program << "mate of " << id << " = " << mate << '\n';
        if (mate != 0)
            node(mate)->mateOf = nullptr;
        node(id)->mate = node(mate);
        oracle.pair(id, mate);
    }

    void like(Id id, Id other) {
        program << id << " likes, or not, " << other << '\n';
        std::set<Id>& likes = oracle.world[id].likes;
        const bool fromTheOther = pick(2) == 0;
        if (likes.erase(other) != 0) {
            if (fromTheOther)
                node(other)->likedBy.remove(node(id));
            else
                node(id)->likes.remove(node(other));
            return;
        }
        likes.insert(other);
        if (fromTheOther)
            node(other)->likedBy.add(node(id));
        else
            node(id)->likes.add(node(other));
    }

    void remove(Id id) {
        program << "remove " << id << '\n';
        node(id)->remove();
        oracle.remove(id);
    }

    // --- comparing ---

    void compareMemory() {
        if (!isRude)
            compare("in memory", read(model));
    }

    void compareStored() {
        GraphModel fresh;
        open(fresh);
        compare("stored", read(fresh));
        for (const auto& [id, o] : oracle.world)
            demand(fresh.node(id)->getVersion() == model.node(id)->getVersion(),
                   "version of " + std::to_string(id));
    }

    void compare(const char* where, const World& seen) {
        demand(oracle.world == seen,
               "expected\n" + describe(oracle.world) + where + '\n' + describe(seen));
    }

    void demand(bool truth, const std::string& otherwise) const {
        if (!truth)
            throw std::runtime_error(otherwise + "\nafter\n" + program.str());
    }

    // Both sides of every reference have to agree.
    World read(GraphModel& from) {
        World world;
        std::vector<Pointer<Node>> nodes;
        SelectionOf<Node> all(from.nodeClass);
        while (Node* next = all.nextValue())
            if (!next->isRemoved())
                nodes.emplace_back(next);
        for (const Pointer<Node>& each : nodes) {
            Node* object = each;
            Plain& o = world[object->getObjectID()];
            o.leaf = object->getClass() == from.leafClass;
            o.label = static_cast<const char*>(object->label);
            o.rank = object->rank;
            o.weight = o.leaf ? static_cast<Leaf*>(object)->weight : 0;
            o.boss = living(object->boss);
            o.whole = living(object->whole);
            o.mate = living(object->mate);
            o.likes = livingMembers(object->likes);
        }
        for (const Pointer<Node>& each : nodes)
            compareOtherSide(each, world);
        return world;
    }

    void compareOtherSide(Node* object, const World& world) {
        const Id id = object->getObjectID();
        std::set<Id> team, parts, likedBy;
        Id mateOf = 0;
        for (const auto& [otherId, o] : world) {
            if (o.boss == id)
                team.insert(otherId);
            if (o.whole == id)
                parts.insert(otherId);
            if (o.likes.contains(id))
                likedBy.insert(otherId);
            if (o.mate == id)
                mateOf = otherId;
        }
        demand(team == livingMembers(object->team), "team of " + std::to_string(id));
        demand(parts == livingMembers(object->parts), "parts of " + std::to_string(id));
        demand(likedBy == livingMembers(object->likedBy), "likedBy of " + std::to_string(id));
        demand(mateOf == living(object->mateOf), "mateOf of " + std::to_string(id));
    }

    Node* node(Id id) { return id != 0 ? model.node(id) : nullptr; }
    int pick(int below) { return static_cast<int>(random() % static_cast<unsigned>(below)); }
    Id any() {
        auto at = oracle.world.begin();
        std::advance(at, pick(static_cast<int>(oracle.world.size())));
        return at->first;
    }

    std::mt19937 random;
    std::function<void(Model&)> open;
    bool isRude;
    GraphModel model;
    Oracle oracle;
    std::ostringstream program;
    std::vector<World> states;
    std::size_t position = 0;
};

}  // namespace undo

using undo::UndoProgram;

}  // namespace Kes::testing
