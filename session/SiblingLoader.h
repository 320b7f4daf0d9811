// Loading references of siblings together.
//
// Objects that one selection delivered are mostly worked on alike: whoever
// reads a reference of the first will read it of the second. So objects are
// grouped as they are delivered, and reading a reference of one member loads it
// for more and more of the others with it: the first read loads one, the next
// ones grow up to a full group.
//
// Partners of one-references only enter the object cache, where the siblings
// find them. Collections are kept aside until they are asked for, and forgotten
// as soon as the application talks to the database in any other way, so that it
// never sees an older state than loading one by one would have shown it.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include <kes/Forward.h>
#include <kes/String.h>

namespace Kes {

class SiblingLoader {
public:
    explicit SiblingLoader(Model* itsModel) : model(itsModel) {}
    SiblingLoader(const SiblingLoader&) = delete;
    SiblingLoader& operator=(const SiblingLoader&) = delete;

    /// A selection has delivered an instance. `token` is the selection's own,
    /// 0 at its beginning.
    static void delivered(Model* model, std::uint64_t& token, Instance* instance);

    /// Loads the partner with that id, and partners of siblings beside it.
    /// Null when it is not stored.
    Instance* loadPartner(Instance* owner, unsigned long id, const Association* association,
                          const String& role);

    /// Adds the stored members to the owner's empty collection.
    void loadMembers(Instance* owner, Association* association, const String& role,
                     ManyAssociatedInstances& ref);

    /// Drops what was kept aside.
    void forget() { keptFor = nullptr; }

    /// A query is about to start that no reference asked for.
    void noteQuery() {
        if (!loading)
            forget();
    }

private:
    struct Group {
        std::uint32_t id = 0;
        std::size_t faults = 0;
        std::vector<unsigned long> members;
    };
    class LoadingScope;

    void deliver(std::uint64_t& token, Instance* instance);
    Group* groupOf(const Instance* owner);
    std::size_t nextBatch(Group& group) const;
    std::vector<unsigned long> partnersOf(const Group& group, std::size_t most,
                                          unsigned long wanted, const Association* association,
                                          const String& role);
    bool takeKept(const Instance* owner, const Association* association, const String& role,
                  ManyAssociatedInstances& ref);
    bool loadBatch(Instance* owner, Group& group, std::size_t most, Association* association,
                   const String& role);
    std::size_t loadAlone(Instance* owner, Association* association, const String& role,
                          ManyAssociatedInstances& ref);

    Model* model;
    std::array<Group, 64> groups;  // the latest; a group's place is its id modulo the size
    std::uint32_t lastGroup = 0;
    bool loading = false;

    // Collections that were loaded with a sibling's, by the owner's id.
    const Association* keptFor = nullptr;
    String keptRole;
    std::unordered_map<unsigned long, std::vector<unsigned long>> kept;
    std::size_t membersLoaded = 0;  // to estimate how large a collection is
    std::size_t ownersLoaded = 0;
};

}  // namespace Kes
