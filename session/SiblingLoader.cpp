#include "session/SiblingLoader.h"

#include <algorithm>
#include <memory>
#include <unordered_set>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/Condition.h>
#include <kes/Many.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>
#include <kes/Pointer.h>
#include <kes/Role.h>
#include <kes/Selection.h>

#include "object/Links.h"
#include "session/ObjectCache.h"
#include "session/TransactionManager.h"

namespace Kes {

namespace {

constexpr std::size_t GroupSize = 256;
constexpr std::size_t MembersAtOnce = 4096;
constexpr std::uint32_t GroupIds = 1U << 24;

// Joins conditions pairwise, so that the tree stays shallow.
std::unique_ptr<Condition> joinAny(std::vector<std::unique_ptr<Condition>> parts) {
    while (parts.size() > 1) {
        std::vector<std::unique_ptr<Condition>> joined;
        for (std::size_t i = 0; i + 1 < parts.size(); i += 2) {
            Condition* left = parts[i].release();
            joined.push_back(std::make_unique<CombinationCondition>(left, Condition::OR,
                                                                    parts[i + 1].release()));
        }
        if (parts.size() % 2 != 0)
            joined.push_back(std::move(parts.back()));
        parts = std::move(joined);
    }
    return std::move(parts.front());
}

}  // namespace

class SiblingLoader::LoadingScope {
public:
    explicit LoadingScope(SiblingLoader& itsLoader) : loader(itsLoader), outer(loader.loading) {
        loader.loading = true;
    }
    LoadingScope(const LoadingScope&) = delete;
    LoadingScope& operator=(const LoadingScope&) = delete;
    ~LoadingScope() { loader.loading = outer; }

private:
    SiblingLoader& loader;
    bool outer;
};

void SiblingLoader::delivered(Model* model, std::uint64_t& token, Instance* instance) {
    model->siblings->deliver(token, instance);
}

void SiblingLoader::deliver(std::uint64_t& token, Instance* instance) {
    Group* group = &groups[token % groups.size()];
    if (token == 0 || group->id != token || group->members.size() >= GroupSize) {
        lastGroup = lastGroup + 1 == GroupIds ? 1 : lastGroup + 1;
        group = &groups[lastGroup % groups.size()];
        group->id = lastGroup;
        group->faults = 0;
        group->members.clear();
        token = lastGroup;
    }
    group->members.push_back(instance->getObjectID());
    instance->siblings = group->id & (GroupIds - 1);
}

SiblingLoader::Group* SiblingLoader::groupOf(const Instance* owner) {
    Group& group = groups[owner->siblings % groups.size()];
    return owner->siblings != 0 && group.id == owner->siblings ? &group : nullptr;
}

// One, then a few, then all: a program that reads one reference of one object
// should not pay for its siblings.
std::size_t SiblingLoader::nextBatch(Group& group) const {
    const std::size_t step = group.faults++;
    const std::size_t wish = step == 0 ? 1 : step == 1 ? 16 : GroupSize;
    const auto room = static_cast<std::size_t>(model->objects->capacity()) / 4;
    return std::min(wish, room);
}

std::vector<unsigned long> SiblingLoader::partnersOf(const Group& group, std::size_t most,
                                                     unsigned long wanted,
                                                     const Association* association,
                                                     const String& role) {
    std::vector<unsigned long> ids{wanted};
    std::unordered_set<unsigned long> seen{wanted};
    RoleReader field(association->getName(), role);
    for (const unsigned long member : group.members) {
        if (ids.size() >= most)
            break;
        Instance* sibling = model->objects->get(member);
        if (sibling == nullptr)
            continue;
        field.read(sibling);
        if (field.one == nullptr || field.one->isFetched())
            continue;
        const unsigned long id = field.one->getObjectID();
        if (id != 0 && model->objects->get(id) == nullptr && seen.insert(id).second)
            ids.push_back(id);
    }
    return ids;
}

Instance* SiblingLoader::loadPartner(Instance* owner, unsigned long id,
                                     const Association* association, const String& role) {
    Class* cls = association->getClassFor(association->getAssociatedRole(role));
    const LoadingScope scope(*this);
    Group* group = groupOf(owner);
    const std::size_t most = group != nullptr ? nextBatch(*group) : 1;
    if (most < 2)
        return model->getInstance(id, cls);
    const std::vector<unsigned long> ids = partnersOf(*group, most, id, association, role);
    if (ids.size() < 2)
        return model->getInstance(id, cls);

    Selection partners(cls);
    std::vector<std::unique_ptr<Condition>> parts;
    for (const unsigned long each : ids)
        parts.push_back(std::make_unique<AttributeCondition<unsigned long>>(
            new Attribute(cls, "KesObjectID"), Condition::EQUAL, each));
    partners.setCondition(joinAny(std::move(parts)).release());
    Pointer<Instance> found;
    while (partners.next())
        if (partners.value()->getObjectID() == id)
            found = partners.value();
    return found;
}

void SiblingLoader::loadMembers(Instance* owner, Association* association, const String& role,
                                ManyAssociatedInstances& ref) {
    if (model->transactions->hasPending())
        forget();
    if (takeKept(owner, association, role, ref))
        return;
    const LoadingScope scope(*this);
    Group* group = groupOf(owner);
    const String& otherRole = association->getAssociatedRole(role);
    const bool batches = group != nullptr && !model->transactions->hasPending() &&
                         association->getPluralityFor(otherRole) == Association::One;
    if (batches) {
        std::size_t most = nextBatch(*group);
        if (ownersLoaded != 0 && membersLoaded != 0)
            most = std::min(most, MembersAtOnce * ownersLoaded / membersLoaded);
        if (most > 1 && loadBatch(owner, *group, most, association, role) &&
            takeKept(owner, association, role, ref))
            return;
    }
    membersLoaded += loadAlone(owner, association, role, ref);
    ++ownersLoaded;
}

bool SiblingLoader::takeKept(const Instance* owner, const Association* association,
                             const String& role, ManyAssociatedInstances& ref) {
    if (keptFor != association || keptRole != role)
        return false;
    const auto found = kept.find(owner->getObjectID());
    if (found == kept.end())
        return false;
    const std::vector<unsigned long> ids = std::move(found->second);
    kept.erase(found);
    for (const unsigned long id : ids) {
        Instance* member = model->objects->get(id);
        if (member == nullptr) {
            ref.clear();  // a collection has freed it: ask the database
            return false;
        }
        ref.add(member);
    }
    return true;
}

// Loads the collections of the owner and of siblings that have not read theirs.
// A member tells by its own reference whose it is. False, with nothing kept,
// when some member cannot tell.
bool SiblingLoader::loadBatch(Instance* owner, Group& group, std::size_t most,
                              Association* association, const String& role) {
    forget();
    kept.clear();
    const String& otherRole = association->getAssociatedRole(role);
    Class* cls = association->getClassFor(otherRole);
    const Role back(cls, otherRole, association);
    std::vector<std::unique_ptr<Condition>> parts;
    RoleReader field(association->getName(), role);
    const auto enter = [&](Instance* sibling) {
        kept[sibling->getObjectID()];
        parts.push_back(std::make_unique<OneAssociatedCondition>(
            new Role(back), Condition::AssociationOperator::EQUAL, sibling));
    };
    enter(owner);
    for (const unsigned long id : group.members) {
        if (parts.size() >= most)
            break;
        Instance* sibling = model->objects->get(id);
        if (sibling == nullptr || sibling == owner)
            continue;
        field.read(sibling);
        if (field.many != nullptr && !field.many->isFetched())
            enter(sibling);
    }
    Selection members(cls);
    members.setCondition(joinAny(std::move(parts)).release());
    RoleReader opposite(association->getName(), otherRole);
    std::size_t count = 0;
    while (members.next()) {
        Instance* member = members.value();
        opposite.read(member);
        if (opposite.one == nullptr)
            return false;
        const Instance* held = opposite.one->isFetched() ? opposite.one->getInstance() : nullptr;
        const auto place =
            kept.find(held != nullptr ? held->getObjectID() : opposite.one->getObjectID());
        if (place == kept.end())
            return false;
        place->second.push_back(member->getObjectID());
        ++count;
    }
    membersLoaded += count;
    ownersLoaded += kept.size();
    keptFor = association;
    keptRole = role;
    return true;
}

// The members go straight into the reference, where a collection finds them.
std::size_t SiblingLoader::loadAlone(Instance* owner, Association* association,
                                     const String& role, ManyAssociatedInstances& ref) {
    const String& otherRole = association->getAssociatedRole(role);
    Class* cls = association->getClassFor(otherRole);
    Selection selection(cls);
    selection.setCondition(new OneAssociatedCondition(new Role(cls, otherRole, association),
                                                      Condition::AssociationOperator::EQUAL,
                                                      owner));
    std::size_t count = 0;
    for (; selection.next(); ++count)
        if (!ref.contains(selection.value()))
            ref.add(selection.value());
    return count;
}

}  // namespace Kes
