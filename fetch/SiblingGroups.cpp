#include "fetch/SiblingGroups.h"

#include <algorithm>

namespace Kes {

namespace {

// The first reference that is read says nothing of the others, the second one makes a
// loop likely, the third one makes it all but certain. A loop over a full group takes
// three statements so; one that ends after two objects has read 15 in vain, which is
// the price of the guess.
constexpr std::size_t FewAtOnce = 16;
constexpr std::size_t AllAtOnce = 2;  // reads before all of a group are loaded for

constexpr std::uint32_t GroupIds = 1U << 24;  // as many as instances have bits for

}  // namespace

void SiblingGroups::enter(Delivery& delivery, Instance* instance, std::uint64_t loading) {
    std::uint64_t& token = delivery.token;
    SiblingGroup* group = &slotOf(token);
    const bool isKnown = token != 0 && group->id == token;
    if (!isKnown || group->members.size() >= MostMembers) {
        // A selection goes on as it has begun.
        const bool isRead = isKnown && group->faults > std::max(group->inherited, AllAtOnce - 1);
        lastGroup = lastGroup + 1 == GroupIds ? 1 : lastGroup + 1;
        group = &slotOf(lastGroup);
        group->id = lastGroup;
        group->faults = group->inherited = isRead ? AllAtOnce + 1 : 0;
        group->answered = 0;
        group->loading = loading;
        group->when = delivery.when;
        group->members.clear();
        token = lastGroup;
    }
    group->members.push_back(instance->getObjectID());
    InstanceState::setGroup(instance, group->id);
}

void SiblingGroups::renew(std::uint64_t loading, const ReadMoment& when) {
    for (SiblingGroup& group : groups)
        if (group.loading == loading)
            group.when = when;
}

std::size_t SiblingGroups::wantedAhead(const Delivery& delivery, std::size_t room) {
    SiblingGroup& group = slotOf(delivery.token);
    if (group.id != delivery.token || group.faults < AllAtOnce || group.faults == group.answered)
        return 0;
    const std::size_t wish = group.faults == AllAtOnce ? FewAtOnce : MostMembers;
    group.answered = group.faults;
    return std::min({wish, MostMembers - group.members.size(), room});
}

std::size_t SiblingGroups::nextBatch(SiblingGroup& group, std::size_t room) {
    const std::size_t step = group.faults++;
    const std::size_t wish = step == 0 ? 1 : step < AllAtOnce ? FewAtOnce : MostMembers;
    return std::min(wish, room);
}

}  // namespace Kes
