#include "transaction/UnsureLinks.h"

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <utility>

#include <kes/Association.h>
#include <kes/LinkReader.h>
#include <kes/Selection.h>

#include "object/ModelGate.h"
#include "query/DriverDoor.h"

namespace Kes {

namespace {

using Pair = std::pair<unsigned long, unsigned long>;

// Of the many-to-many association, by whether the pairs' first ids play its first
// role.
struct Asked {
    std::vector<unsigned long> owners;
    std::set<Pair> stored;
    bool isKnown = false;
};

// With a query for the one pair.
bool isLinked(const Action& action) {
    Association* association = action.association;
    const String& role =
        action.firstIsOne ? association->getOneRole() : association->getOtherRole();
    const String& otherRole = association->getAssociatedRole(role);
    Class* cls = association->getClassFor(otherRole);
    auto isMember = std::make_unique<OneAssociatedCondition>(
        new Role(cls, otherRole, association), Condition::AssociationOperator::EQUAL, action.first);
    auto isSecond = std::make_unique<AttributeCondition<unsigned long>>(
        new Attribute(cls, "KesObjectID"), Condition::EQUAL, action.second->getObjectID());
    Selection selection(cls);
    selection.setCondition(
        new CombinationCondition(isMember.release(), Condition::AND, isSecond.release()));
    return selection.next();
}

}  // namespace

// To take back what dissolved a link that was not there is to do nothing. Where
// no collection in memory told, the driver does, and tells it of many at once.
void askForUnsureLinks(const Model* model, Changes& changes) {
    using Key = std::pair<Association*, bool>;
    std::map<Key, Asked> asked;
    for (const Action& action : changes.pending)
        if (action.isUnsure && action.kind == Action::Unlink && !changes.isNew(action.first) &&
            !changes.isNew(action.second))
            asked[{action.association, action.firstIsOne}].owners.push_back(
                action.first->getObjectID());
    if (asked.empty())
        return;
    for (auto& [key, each] : asked) {
        std::sort(each.owners.begin(), each.owners.end());
        each.owners.erase(std::unique(each.owners.begin(), each.owners.end()), each.owners.end());
        const String& role = key.second ? key.first->getOneRole() : key.first->getOtherRole();
        std::vector<StoredLink> found;
        const std::size_t most = 1000 + 64 * each.owners.size();
        auto* reader = ModelGate::door(model).find<LinkReader>();
        const DriverDoor::Passage asking = ModelGate::door(model).enter();
        each.isKnown =
            reader != nullptr && reader->readLinks(key.first, role, each.owners, most, found);
        for (const StoredLink& link : found)
            each.stored.emplace(link.owner, link.member);
    }
    for (Action& action : changes.pending) {
        const auto known = action.second != nullptr
                               ? asked.find({action.association, action.firstIsOne})
                               : asked.end();
        if (known == asked.end() ||
            !std::binary_search(known->second.owners.begin(), known->second.owners.end(),
                                action.first->getObjectID()))
            continue;
        std::set<Pair>& stored = known->second.stored;
        const Pair pair(action.first->getObjectID(), action.second->getObjectID());
        if (action.kind == Action::Link)
            stored.insert(pair);
        else if (known->second.isKnown)
            action.changedNothing = stored.erase(pair) == 0;
        else if (action.isUnsure)
            action.changedNothing = !isLinked(action);
    }
}

}  // namespace Kes
