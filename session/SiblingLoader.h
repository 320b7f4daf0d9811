// Loading references of siblings together.
//
// Objects that one selection delivered are mostly worked on alike: whoever
// reads a reference of the first will read it of the second. So objects are
// grouped as they are delivered, and reading a reference of one member loads it
// for more and more of the others with it: the first read loads one, the next
// ones grow up to a full group. A selection whose objects are worked on as they
// come reads ahead, so that there are siblings to load for.
//
// Partners of one-references only enter the object cache, where the siblings
// find them. Collections are kept aside until they are asked for, for a second at
// most, and forgotten as soon as the application talks to the database in any
// other way: what it has seen of somebody else's changes shows in them.
//
// A sibling whose rows cannot be read is no reason to fail for the one that was
// asked for: that is loaded alone then.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <kes/Forward.h>
#include <kes/String.h>

#include "session/KeptCollections.h"

namespace Kes {

class SiblingLoader {
public:
    explicit SiblingLoader(Model* itsModel) : model(itsModel) {}
    SiblingLoader(const SiblingLoader&) = delete;
    SiblingLoader& operator=(const SiblingLoader&) = delete;

    /// A selection has delivered an instance. `token` is the selection's own,
    /// 0 at its beginning.
    static void delivered(Model* model, std::uint64_t& token, Instance* instance);

    /// How many instances the selection should read ahead of the one that it
    /// has just delivered. What it reads counts as delivered here.
    static std::size_t wantedAhead(Model* model, std::uint64_t token);

    /// Loads the partner with that id, and partners of siblings beside it.
    /// Null when it is not stored. False when that could not be read, which was
    /// raised.
    bool loadPartner(Instance* owner, unsigned long id, const Association* association,
                     const String& role, Instance*& partner);

    /// Adds the stored members to the owner's empty collection; false when they
    /// could not be read, which was raised.
    bool loadMembers(Instance* owner, Association* association, const String& role,
                     ManyAssociatedInstances& ref);

    /// Drops what was kept aside.
    void forget() { kept.forget(); }

    /// A query is about to start that no reference asked for.
    void noteQuery() {
        if (!loading)
            forget();
    }

private:
    struct Group {
        std::uint32_t id = 0;
        std::size_t faults = 0;
        std::size_t inherited = 0;  // of these, taken over from the group before
        std::size_t answered = 0;   // of these, followed by reading ahead
        std::vector<unsigned long> members;
    };
    class LoadingScope;

    void deliver(std::uint64_t& token, Instance* instance);
    std::size_t wantedAhead(std::uint64_t token);
    Group* groupOf(const Instance* owner);
    std::size_t nextBatch(Group& group) const;
    std::size_t room() const;
    std::vector<unsigned long> partnersOf(const Group& group, std::size_t most,
                                          unsigned long wanted, const Association* association,
                                          const String& role);
    Instance* loadPartners(const std::vector<unsigned long>& ids, Class* cls);
    bool fill(Instance* owner, Association* association, const String& role,
              ManyAssociatedInstances& ref);
    bool takeKept(const Instance* owner, const Association* association, const String& role,
                  ManyAssociatedInstances& ref);
    std::vector<Instance*> unreadOwners(Instance* owner, const Group& group, std::size_t most,
                                        const Association* association, const String& role);
    bool loadTogether(Instance* owner, Group& group, Association* association,
                      const String& role);
    bool loadBatch(const std::vector<Instance*>& owners, Association* association,
                   const String& role);
    bool loadLinkedBatch(const std::vector<Instance*>& owners, Association* association,
                         const String& role);
    template <class Work>
    static bool succeedsForAll(Work work);
    bool refuse();
    void keep(const Association* association, const String& role,
              KeptCollections::Collections&& collections, std::size_t members);
    std::size_t loadAlone(Instance* owner, Association* association, const String& role,
                          ManyAssociatedInstances& ref);

    Model* model;
    std::array<Group, 64> groups;  // the latest; a group's place is its id modulo the size
    std::uint32_t lastGroup = 0;
    bool loading = false;

    KeptCollections kept;
    Pause partnersPause;
    std::size_t membersLoaded = 0;  // to estimate how large a collection is
    std::size_t ownersLoaded = 0;
};

}  // namespace Kes
