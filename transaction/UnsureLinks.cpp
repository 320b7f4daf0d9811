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

// The ids of those who play the association's first and second role.
using Pair = std::pair<unsigned long, unsigned long>;

Pair pairOf(const Action& action) {
    const unsigned long first = action.first->getObjectID();
    const unsigned long second = action.second->getObjectID();
    return action.firstIsOne ? Pair(first, second) : Pair(second, first);
}

// Of a many-to-many association: its pairs that memory could not tell of, and
// which of them are linked.
struct Asked {
    std::map<Pair, const Action*> pairs;
    std::set<Pair> linked;
    bool isKnown = false;
};

std::vector<unsigned long> endsOf(const Asked& asked, bool ofFirstRole) {
    std::vector<unsigned long> ids;
    ids.reserve(asked.pairs.size());
    for (const auto& [pair, action] : asked.pairs)
        ids.push_back(ofFirstRole ? pair.first : pair.second);
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return ids;
}

// All links of the objects at one end, unless they are far more than the pairs.
bool readLinks(LinkReader& reader, Association* association, bool ofFirstRole, Asked& asked) {
    const std::vector<unsigned long> owners = endsOf(asked, ofFirstRole);
    const String& role = ofFirstRole ? association->getOneRole() : association->getOtherRole();
    const std::size_t most = 1000 + 64 * owners.size() + 16 * asked.pairs.size();
    std::vector<StoredLink> found;
    if (!reader.readLinks(association, role, owners, most, found))
        return false;
    for (const StoredLink& link : found) {
        const Pair pair =
            ofFirstRole ? Pair(link.owner, link.member) : Pair(link.member, link.owner);
        if (asked.pairs.contains(pair))
            asked.linked.insert(pair);
    }
    return true;
}

// With a query for the one pair.
bool isLinked(const Action& action) {
    Association* association = action.association;
    const String& role =
        action.firstIsOne ? association->getOneRole() : association->getOtherRole();
    const String& otherRole = association->getAssociatedRole(role);
    Class* cls = association->getClassFor(otherRole);
    std::unique_ptr<Condition> isMember(
        new OneAssociatedCondition(new Role(cls, otherRole, association),
                                   Condition::AssociationOperator::EQUAL, action.first));
    std::unique_ptr<Condition> isSecond(new AttributeCondition<unsigned long>(
        new Attribute(cls, "KesObjectID"), Condition::EQUAL, action.second->getObjectID()));
    Selection selection(cls);
    selection.setCondition(
        new CombinationCondition(isMember.release(), Condition::AND, isSecond.release()));
    return selection.next();
}

}  // namespace

// To take back what made a link that was there, or dissolved one that was not, is
// to do nothing. Where no collection in memory told, the driver does, and tells it
// of many at once.
void askForUnsureLinks(const Model* model, Changes& changes) {
    std::map<Association*, Asked> all;
    for (const Action& action : changes.pending)
        if (action.isUnsure && !changes.isNew(action.first) && !changes.isNew(action.second))
            all[action.association].pairs.emplace(pairOf(action), &action);
    if (all.empty())
        return;
    for (auto& [association, asked] : all) {
        auto* reader = ModelGate::door(model).find<LinkReader>();
        const DriverDoor::Passage asking = ModelGate::door(model).enter();
        asked.isKnown = reader != nullptr && (readLinks(*reader, association, true, asked) ||
                                              readLinks(*reader, association, false, asked));
    }
    for (auto& [association, asked] : all)
        if (!asked.isKnown)
            for (const auto& [pair, action] : asked.pairs)
                if (isLinked(*action))
                    asked.linked.insert(pair);
    for (Action& action : changes.pending) {
        const auto place = action.second != nullptr ? all.find(action.association) : all.end();
        if (place == all.end() || !place->second.pairs.contains(pairOf(action)))
            continue;
        std::set<Pair>& linked = place->second.linked;
        action.changedNothing = action.kind == Action::Link ? !linked.insert(pairOf(action)).second
                                                            : linked.erase(pairOf(action)) == 0;
    }
}

}  // namespace Kes
