// The part of ReferenceLoader that loads collections.

#include <algorithm>
#include <memory>
#include <utility>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/Condition.h>
#include <kes/LinkReader.h>
#include <kes/Many.h>
#include <kes/OneAssociatedInstance.h>
#include <kes/Role.h>
#include <kes/Selection.h>

#include "fetch/BatchQueries.h"
#include "fetch/Loading.h"
#include "identity/ObjectCache.h"
#include "object/Links.h"
#include "object/ModelGate.h"
#include "object/ReferenceState.h"

namespace Kes {

namespace {

// Collections have any size. So many members at once bound the memory that reading
// ahead takes to some megabytes; links are but pairs of ids. Both are guesses: more
// would save statements only where one collection is as large as that.
constexpr std::size_t MembersAtOnce = 4096;
constexpr std::size_t LinksAtOnce = 4 * MembersAtOnce;

}  // namespace

// Members of the collection that is being filled refer to its owner.
class ReferenceLoader::Filling {
public:
    Filling(const Association*& which, const Association* association)
        : place(which),
          outer(std::exchange(which, association)) {}
    Filling(const Filling&) = delete;
    Filling& operator=(const Filling&) = delete;
    ~Filling() { place = outer; }

private:
    const Association*& place;
    const Association* outer;
};

bool ReferenceLoader::loadMembers(Instance* owner, Association* association, const String& role,
                                  ManyAssociatedInstances& ref) {
    if (!fill(owner, association, role, ref))
        return false;
    if (auto* known = dynamic_cast<ManyReference*>(&ref))
        ReferenceState::sort(*known);
    return true;
}

bool ReferenceLoader::fill(Instance* owner, Association* association, const String& role,
                           ManyAssociatedInstances& ref) {
    if (ModelGate::hasPending(model))
        prefetched.forget();
    const Filling scopeOfFilling(filling, association);
    if (fillFromPrefetched(owner, association, role, ref))
        return true;
    Loading scope(*this);
    SiblingGroup* group = groups.of(owner);
    if (group != nullptr && !ModelGate::hasPending(model) && prefetched.mayLoadTogether() &&
        loadTogether(owner, *group, association, role) &&
        fillFromPrefetched(owner, association, role, ref))
        return true;
    const ErrorWatch watch;
    membersLoaded += loadAlone(owner, association, role, ref);
    ++ownersLoaded;
    return !watch.hasFailed();
}

bool ReferenceLoader::loadTogether(Instance* owner, SiblingGroup& group, Association* association,
                                   const String& role) {
    std::size_t most = SiblingGroups::nextBatch(group, room());
    if (ownersLoaded != 0 && membersLoaded != 0)
        most = std::min(most, std::min(MembersAtOnce, room()) * ownersLoaded / membersLoaded);
    const std::vector<Instance*> owners = unreadOwners(owner, group, most, association, role);
    if (owners.size() < 2)
        return false;
    const String& otherRole = association->getAssociatedRole(role);
    const auto load = association->getPluralityFor(otherRole) == Association::One
                          ? &ReferenceLoader::loadBatch
                          : &ReferenceLoader::loadLinkedBatch;
    bool isStored = false;
    if (succeedsForAll([&] { isStored = (this->*load)(owners, association, role); }))
        return isStored;
    return abandonBatch();
}

bool ReferenceLoader::fillFromPrefetched(Instance* owner, const Association* association,
                                         const String& role, ManyAssociatedInstances& ref) {
    std::vector<PrefetchedMember> members;
    if (!prefetched.consume(association, role, owner->getObjectID(), members))
        return false;
    for (const PrefetchedMember& each : members) {
        Instance* member = ModelGate::objects(model).get(each.id);
        if (member == nullptr || member->getVersion() != each.version) {
            // It was freed, or read anew and may be linked to somebody else.
            ref.clear();
            prefetched.discard();
            return false;
        }
        reveal(member);
        ref.add(member);
    }
    if (!follower.isContradicted(owner, ref, association, role))
        return true;

    // What the application has seen of the other side may be newer.
    ref.clear();
    prefetched.discard();
    return false;
}

// The owner and siblings that have not read their collections.
std::vector<Instance*> ReferenceLoader::unreadOwners(Instance* owner, const SiblingGroup& group,
                                                     std::size_t most,
                                                     const Association* association,
                                                     const String& role) {
    std::vector<Instance*> owners{owner};
    RoleReader field(association->getName(), role);
    for (const unsigned long id : group.members) {
        if (owners.size() >= most)
            break;
        Instance* sibling = ModelGate::objects(model).get(id);
        if (sibling == nullptr || sibling == owner)
            continue;
        field.read(sibling);
        if (field.many != nullptr && !field.many->isFetched())
            owners.push_back(sibling);
    }
    return owners;
}

// A member tells by its own reference whose it is. False, with nothing kept,
// when some member cannot tell.
bool ReferenceLoader::loadBatch(const std::vector<Instance*>& owners, Association* association,
                                const String& role) {
    const AheadScope ahead(*this);
    const String& otherRole = association->getAssociatedRole(role);
    Class* cls = association->getClassFor(otherRole);
    const Role back(cls, otherRole, association);
    PrefetchedCollections::Collections found;
    std::vector<std::unique_ptr<Condition>> parts;
    parts.reserve(owners.size());
    for (Instance* owner : owners) {
        found[owner->getObjectID()];
        parts.emplace_back(new OneAssociatedCondition(
            new Role(back), Condition::AssociationOperator::EQUAL, owner));
    }
    Selection members(cls);
    loading->watch(members);
    members.setCondition(joinAny(std::move(parts)).release());
    RoleReader opposite(association->getName(), otherRole);
    std::size_t count = 0;
    while (members.next()) {
        Instance* member = members.value();
        opposite.read(member);
        if (opposite.one == nullptr)
            return abandonBatch();
        const Instance* held = opposite.one->isFetched() ? opposite.one->getInstance() : nullptr;
        const auto place =
            found.find(held != nullptr ? held->getObjectID() : opposite.one->getObjectID());
        if (place == found.end() || ++count > LinksAtOnce)
            return abandonBatch();
        place->second.push_back({member->getObjectID(), member->getVersion()});
    }
    storePrefetched(association, role, std::move(found), count);
    return true;
}

// Members of many owners cannot tell: the driver has to. False, with nothing
// kept, when it does not.
bool ReferenceLoader::loadLinkedBatch(const std::vector<Instance*>& owners,
                                      Association* association, const String& role) {
    auto* reader = door.find<LinkReader>();
    if (reader == nullptr)
        return false;
    const AheadScope ahead(*this);
    PrefetchedCollections::Collections found;
    std::vector<unsigned long> ids;
    ids.reserve(owners.size());
    for (const Instance* owner : owners) {
        found[owner->getObjectID()];
        ids.push_back(owner->getObjectID());
    }
    std::vector<StoredLink> links;
    const auto read = [&] {
        const DriverDoor::Passage passage = door.enter();
        return reader->readLinks(association, role, ids, LinksAtOnce, links);
    };
    if (!read())
        return abandonBatch();
    const auto byMember = [](const StoredLink& a, const StoredLink& b) {
        return a.member < b.member;
    };
    std::sort(links.begin(), links.end(), byMember);
    ids.clear();
    for (const StoredLink& link : links)
        if (ids.empty() || ids.back() != link.member)
            ids.push_back(link.member);

    // Those in memory are read as well: somebody may have changed them.
    if (!ids.empty()) {
        Class* cls = association->getClassFor(association->getAssociatedRole(role));
        Selection members(cls);
        loading->watch(members);
        members.setCondition(anyOf(cls, ids).release());
        while (members.next()) {
            const PrefetchedMember member{members.value()->getObjectID(),
                                          members.value()->getVersion()};
            const auto [from, to] =
                std::equal_range(links.begin(), links.end(), StoredLink{0, member.id}, byMember);
            for (auto link = from; link != to; ++link)
                if (const auto place = found.find(link->owner); place != found.end())
                    place->second.push_back(member);
        }
    }
    storePrefetched(association, role, std::move(found), links.size());
    return true;
}

// To load together was in vain: not to be tried again at once.
bool ReferenceLoader::abandonBatch() {
    prefetched.discard();
    return false;
}

void ReferenceLoader::storePrefetched(const Association* association, const String& role,
                                      PrefetchedCollections::Collections&& collections,
                                      std::size_t members) {
    membersLoaded += members;
    ownersLoaded += collections.size();
    endReading();
    prefetched.store(association, role, loadingBegan, std::move(collections));
}

// The members go straight into the reference, where a collection finds them.
std::size_t ReferenceLoader::loadAlone(Instance* owner, Association* association,
                                       const String& role, ManyAssociatedInstances& ref) {
    const String& otherRole = association->getAssociatedRole(role);
    Class* cls = association->getClassFor(otherRole);
    Selection selection(cls);
    loading->watch(selection);
    selection.setCondition(new OneAssociatedCondition(
        new Role(cls, otherRole, association), Condition::AssociationOperator::EQUAL, owner));
    std::size_t count = 0;
    for (; selection.next(); ++count) {
        Instance* member = selection.value();
        reveal(member);
        if (!ref.contains(member))
            ref.add(member);
    }
    return count;
}

}  // namespace Kes
