#include "fetch/ReferenceLoader.h"

#include <algorithm>
#include <memory>
#include <unordered_set>
#include <utility>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/Condition.h>
#include <kes/LinkReader.h>
#include <kes/Many.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>
#include <kes/Pointer.h>
#include <kes/Role.h>
#include <kes/Selection.h>

#include "core/RaisedErrors.h"
#include "fetch/BatchQueries.h"
#include "identity/ObjectCache.h"
#include "object/InstanceState.h"
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

// A reference that is read. Its own queries tell it of what they deliver, and
// not the loader: nothing of that is the application's yet.
class ReferenceLoader::Loading final : public DeliveryObserver {
public:
    explicit Loading(ReferenceLoader& itsLoader)
        : loader(itsLoader),
          outer(std::exchange(loader.loading, this)) {
        ++loader.loadings;
        loader.loadingBegan = loader.freshness.now();
    }
    ~Loading() {
        loader.noteRead();
        loader.loading = outer;
    }

    void asked() override {}
    ReadMoment now() const override { return loader.now(); }
    void read(Delivery& delivery, Instance* instance) override {
        loader.enterGroup(delivery, instance, true);
    }
    void delivered(Instance*) override {}
    std::size_t wantedAhead(const Delivery& delivery) override {
        return loader.wantedAhead(delivery);
    }
    bool setReadingAhead(bool on) override { return loader.setReadingAhead(on); }

private:
    ReferenceLoader& loader;
    Loading* outer;
};

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

ReferenceLoader::ReferenceLoader(Model* itsModel)
    : model(itsModel),
      door(ModelGate::door(itsModel)),
      follower(itsModel, &ModelGate::objects(itsModel)) {}

// The application has done, or is about to do, what may show it a newer state
// than the one that was read ahead.
void ReferenceLoader::asked() {
    freshness.end();
    kept.forget();
}

void ReferenceLoader::delivered(Instance* instance) {
    const SiblingGroup* group = groups.of(instance);
    if (group != nullptr && freshness.isOfNow(group->when))
        revealAhead(instance);
    else
        InstanceState::setAhead(instance, false);
}

void ReferenceLoader::revealAhead(Instance* instance) {
    InstanceState::setAhead(instance, false);
    followLinks(instance);
}

// What was read before the application's latest statement may be older than what
// the partners in memory show.
void ReferenceLoader::followLinks(Instance* instance) {
    const DroppedPartners::Pause pause;
    follower.follow(instance, door.dropped, filling);
}

void ReferenceLoader::noteRenewed(Instance* instance) {
    sawNewer = sawNewer || loading != nullptr;
    if (!InstanceState::isAhead(instance))
        followLinks(instance);
    door.dropped.clear();
}

bool ReferenceLoader::handOutFresh(Instance* instance) {
    if (!isFresh(instance))
        return false;
    revealAhead(instance);
    ++partnersUsed;
    return true;
}

void ReferenceLoader::enterGroup(Delivery& delivery, Instance* instance, bool forReference) {
    const bool isNew = std::exchange(latest, nullptr) == instance;
    if (isNew && !InstanceState::isAhead(instance) && freshness.isOfNow(delivery.when))
        followLinks(instance);

    // Who is reached over a reference stays among those he was found with, unless
    // he was read again.
    if (forReference && !InstanceState::isAhead(instance) && groups.of(instance) != nullptr)
        return;
    groups.enter(delivery, instance, forReference ? loadings : 0);
}

// Who left his group, or whose group has given its place away, is not.
bool ReferenceLoader::isFresh(const Instance* instance) {
    const SiblingGroup* group = groups.of(instance);
    return group != nullptr && freshness.holds(group->when);
}

// A loading ends the validity of all that was read before it when it may show
// something newer: a commit that is under way may be stored already. What it has
// read itself goes on to stand, unless the error handler has asked the database
// meanwhile.
void ReferenceLoader::noteRead() {
    const bool isUndisturbed = loadingBegan.era == freshness.now().era;
    if (std::exchange(sawNewer, false) || CommitCount::isAnyUnderWay())
        freshness.end();
    if (!isUndisturbed)
        return;
    const std::uint64_t commits = loadingBegan.commits;
    loadingBegan = freshness.now();
    loadingBegan.commits = commits;
    groups.renew(loadings, loadingBegan);
}

std::size_t ReferenceLoader::wantedAhead(const Delivery& delivery) {
    return groups.wantedAhead(delivery, room());
}

std::size_t ReferenceLoader::room() const {
    return static_cast<std::size_t>(ModelGate::objects(model).capacity()) / 4;
}

std::vector<unsigned long> ReferenceLoader::partnersOf(const SiblingGroup& group, std::size_t most,
                                                       unsigned long wanted,
                                                       const Association* association,
                                                       const String& role) {
    std::vector<unsigned long> ids{wanted};
    std::unordered_set<unsigned long> seen{wanted};
    RoleReader field(association->getName(), role);
    for (const unsigned long member : group.members) {
        if (ids.size() >= most)
            break;
        Instance* sibling = ModelGate::objects(model).get(member);
        if (sibling == nullptr)
            continue;
        field.read(sibling);
        if (field.one == nullptr || field.one->isFetched())
            continue;
        const unsigned long id = field.one->getObjectID();
        if (id == 0)
            continue;
        const Instance* known = ModelGate::objects(model).get(id);
        const bool isReady = known != nullptr && (!InstanceState::isAhead(known) || isFresh(known));
        if (!isReady && seen.insert(id).second)
            ids.push_back(id);
    }
    return ids;
}

bool ReferenceLoader::loadPartner(Instance* owner, unsigned long id, const Association* association,
                                  const String& role, Instance*& partner) {
    Class* cls = association->getClassFor(association->getAssociatedRole(role));
    Loading scope(*this);
    judgePartners();
    SiblingGroup* group = groups.of(owner);
    const std::size_t most =
        group != nullptr && partnersBackoff.isOver() ? SiblingGroups::nextBatch(*group, room()) : 1;
    if (most > 1) {
        const std::vector<unsigned long> ids = partnersOf(*group, most, id, association, role);
        if (ids.size() > 1) {
            if (succeedsForAll([&] { partner = loadPartners(ids, cls); })) {
                sawNewer = sawNewer || partner == nullptr;
                return true;
            }
            partnersBackoff.noteFailure();
        }
    }
    const ErrorWatch watch;
    partner = readPartner(id, cls);
    sawNewer = sawNewer || partner == nullptr;
    return !watch.hasFailed();
}

// Alone, and at once the application's.
Instance* ReferenceLoader::readPartner(unsigned long id, Class* cls) {
    Selection selection(cls);
    loading->watch(selection);
    selection.setCondition(anyOf(cls, {id}).release());
    if (!selection.next() || InstanceState::isGone(selection.value()))
        return nullptr;
    return selection.value();
}

// Once those that were loaded last are not handed out any more.
void ReferenceLoader::judgePartners() {
    if (partnersLoaded == 0 || freshness.holds(partnersRead))
        return;
    partnersBackoff.judge(partnersLoaded, partnersUsed);
    partnersLoaded = partnersUsed = 0;
}

// The one with the first id.
Instance* ReferenceLoader::loadPartners(const std::vector<unsigned long>& ids, Class* cls) {
    const AheadScope ahead(*this);
    partnersRead = freshness.now();
    partnersLoaded += ids.size();
    ++partnersUsed;
    Selection partners(cls);
    loading->watch(partners);
    partners.setCondition(anyOf(cls, ids).release());
    Pointer<Instance> found;
    while (partners.next())
        if (partners.value()->getObjectID() == ids.front())
            found = partners.value();
    return found;
}

// False when what is read for siblings too cannot be read.
template <class Work>
bool ReferenceLoader::succeedsForAll(Work work) {
    const ErrorWatch watch;
    try {
        work();
        if (!watch.hasFailed())
            return true;
    } catch (...) {
        // Whatever the error handler has thrown: it is not the owner's.
    }
    return false;
}

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
        kept.forget();
    const Filling scopeOfFilling(filling, association);
    if (takeKept(owner, association, role, ref))
        return true;
    Loading scope(*this);
    SiblingGroup* group = groups.of(owner);
    if (group != nullptr && !ModelGate::hasPending(model) && kept.mayLoadTogether() &&
        loadTogether(owner, *group, association, role) && takeKept(owner, association, role, ref))
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
    bool isKept = false;
    if (succeedsForAll([&] { isKept = (this->*load)(owners, association, role); }))
        return isKept;
    return refuse();
}

bool ReferenceLoader::takeKept(Instance* owner, const Association* association, const String& role,
                               ManyAssociatedInstances& ref) {
    std::vector<PrefetchedMember> members;
    if (!kept.take(association, role, owner->getObjectID(), members))
        return false;
    for (const PrefetchedMember& each : members) {
        Instance* member = ModelGate::objects(model).get(each.id);
        if (member == nullptr || member->getVersion() != each.version) {
            // It was freed, or read anew and may be linked to somebody else.
            ref.clear();
            kept.noteWaste();
            return false;
        }
        reveal(member);
        ref.add(member);
    }
    if (!follower.isContradicted(owner, ref, association, role))
        return true;

    // What the application has seen of the other side may be newer.
    ref.clear();
    kept.noteWaste();
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
            return refuse();
        const Instance* held = opposite.one->isFetched() ? opposite.one->getInstance() : nullptr;
        const auto place =
            found.find(held != nullptr ? held->getObjectID() : opposite.one->getObjectID());
        if (place == found.end() || ++count > LinksAtOnce)
            return refuse();
        place->second.push_back({member->getObjectID(), member->getVersion()});
    }
    keep(association, role, std::move(found), count);
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
        return refuse();
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
    keep(association, role, std::move(found), links.size());
    return true;
}

// To load together was in vain: not to be tried again at once.
bool ReferenceLoader::refuse() {
    kept.noteWaste();
    return false;
}

void ReferenceLoader::keep(const Association* association, const String& role,
                           PrefetchedCollections::Collections&& collections, std::size_t members) {
    membersLoaded += members;
    ownersLoaded += collections.size();
    noteRead();
    kept.keep(association, role, loadingBegan, std::move(collections));
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
