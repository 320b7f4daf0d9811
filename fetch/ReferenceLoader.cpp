#include "fetch/ReferenceLoader.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/Condition.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>
#include <kes/Pointer.h>
#include <kes/Selection.h>

#include "core/RaisedErrors.h"
#include "fetch/BatchQueries.h"
#include "fetch/Loading.h"
#include "identity/ObjectCache.h"
#include "object/InstanceState.h"
#include "object/Links.h"
#include "object/ModelGate.h"
#include "object/ReferenceState.h"

namespace Kes {

ReferenceLoader::ReferenceLoader(Model* itsModel)
    : model(itsModel),
      door(ModelGate::door(itsModel)),
      follower(itsModel, &ModelGate::objects(itsModel)) {}

// The application has done, or is about to do, what may show it a newer state
// than the one that was read ahead.
void ReferenceLoader::asked() {
    freshness.end();
    prefetched.forget();
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

void ReferenceLoader::onRenewed(Instance* instance) {
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
void ReferenceLoader::endReading() {
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

}  // namespace Kes
