// Bidirectional links: keeps their two sides in step in memory when a load shows
// that somebody else has changed one.
//
// The row of an object says whose partner it is. When it is loaded, and says
// something else than a partner that is in memory already, the partner follows:
// its collection gains or loses the object, and its one-reference goes back to
// unfetched. Objects with pending changes are not loaded, and references that the
// pending transaction has changed are left alone.
//
// Links of many to many stand in no object's row, so a collection that is loaded and
// lacks an object cannot tell that it was a member once. Where collections of both
// roles are loaded, those who show an object whose own collection is not are noted.
// Collections of an application's own class can be gone through by their one iteration
// only, which it may have under way: their members are noted as they come.
//
// Most loads meet no partner that could disagree: collections of the role have
// never been in memory. Such classes cost a look at a table.

#pragma once

#include <cstddef>
#include <functional>
#include <unordered_map>
#include <utility>
#include <vector>

#include <kes/Forward.h>
#include <kes/String.h>

#include "object/DroppedPartners.h"

namespace Kes {

class LinkFollower {
public:
    LinkFollower(const Model* itsModel, const ObjectCache* itsObjects)
        : model(itsModel),
          objects(itsObjects) {}
    LinkFollower(const LinkFollower&) = delete;
    LinkFollower& operator=(const LinkFollower&) = delete;

    /// Collections of that role, or all of a new instance of that class, are in
    /// memory from now on.
    void noteCollections(const Association* association, const String& role);
    void onNewObject(const Class* cls);

    /// The instance shows what is stored, and `dropped` what it showed before.
    /// The collections that are just being filled over `filling` need not follow.
    void follow(Instance* instance, const DroppedPartners& dropped, const Association* filling);

    /// A collection is about to be unfetched: who is no member of it when it is
    /// loaded again, was dropped by others.
    void rememberMembers(Instance* owner, ManyAssociatedInstances& ref,
                         const Association* association, const String& role);

    /// A collection was loaded. Members of many owners follow, and those who show the
    /// owner and are no members.
    void followMembers(Instance* owner, ManyAssociatedInstances& ref,
                       const Association* association, const String& role);

    /// Whether some member of many owners, or somebody who shows the owner, shows
    /// another state than the collection, of which one must be older.
    bool isContradicted(Instance* owner, ManyAssociatedInstances& ref,
                        const Association* association, const String& role) const;

    /// The owner's collection of the role, one of many to many, gets the member, whose
    /// own is not fetched.
    void noteMember(const Instance* owner, const ManyAssociatedInstances& ref,
                    const Instance* member, const Association* association, const String& role);

    /// The instance was read again by itself: of its collections that says
    /// nothing.
    void unfetchCollections(Instance* instance);

    /// The instance is not stored any more: nobody who is known to refer to it
    /// goes on to.
    void leaveAll(Instance* instance);

private:
    // One end of an association, as the class that reports it sees it.
    struct End {
        const Association* association;
        const String* role;
        const String* opposite;  // role
        bool isOppositeOne;
    };
    struct Ends {
        std::vector<End> ones;
        std::vector<End> manies;
        bool isNew = false;  // its collections were noted
    };

    // Whose collection, by his id and his role.
    using CollectionKey = std::pair<unsigned long, const String*>;
    struct CollectionKeyHash {
        std::size_t operator()(const CollectionKey& key) const {
            return std::hash<unsigned long>()(key.first) * 31 +
                   std::hash<const String*>()(key.second);
        }
    };

    Ends& endsOf(const Class* cls);
    bool hasShownSides(const End& end) const;
    void rememberMembers(Instance* owner, const String* role, std::vector<unsigned long>&& ids);
    Ends findEnds(const Class* cls) const;
    bool isShown(const String* role) const { return shown.contains(role); }
    bool isLoaded(const String* role) const;
    void noteShown(const Association* association, const String* role);
    void dropFreed();
    void rememberShower(const Instance* member, const String* role, unsigned long id);
    void follow(Instance* instance, const End& end, const DroppedPartners& dropped);
    void join(Instance* instance, const End& end, unsigned long id);
    void leave(Instance* instance, const End& end, unsigned long id);
    void release(Instance* partner, const End& end, Instance* gone);
    void pointBack(OneAssociatedInstance& ref, Instance* owner, Instance* partner, const End& end);

    const Model* model;
    const ObjectCache* objects;
    std::unordered_map<const Class*, Ends> classes;
    const Class* lastClass = nullptr;
    Ends* lastEnds = nullptr;

    // Roles, as their associations hold them; true once a collection was loaded.
    std::unordered_map<const String*, bool> shown;

    // Of collections of many-to-many associations that are not fetched: their members
    // before, and who has shown their owner since.
    std::unordered_map<CollectionKey, std::vector<unsigned long>, CollectionKeyHash> former;
    std::size_t mostFormer = 1024;
};

}  // namespace Kes
