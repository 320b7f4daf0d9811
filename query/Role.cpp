#include <kes/Role.h>

#include <memory>

#include <kes/Selection.h>

namespace Kes {

namespace {

OneAssociatedCondition testOne(const Role& role, Condition::AssociationOperator op,
                               Instance* instance) {
    return OneAssociatedCondition(new Role(role), op, instance);
}

ManyAssociatedCondition testMany(const Role& role, Condition::AssociationOperator op,
                                 Selection& nested) {
    auto tested = std::make_unique<Role>(role);
    auto* frozen = new AssociatedClass(nested);
    return ManyAssociatedCondition(tested.release(), op, frozen);
}

constexpr auto Equal = Condition::Associations::EQUAL;
constexpr auto NotEqual = Condition::Associations::NOT_EQUAL;

}  // namespace

OneAssociatedCondition Role::operator==(Instance* instance) const {
    return testOne(*this, Equal, instance);
}

OneAssociatedCondition Role::operator!=(Instance* instance) const {
    return testOne(*this, NotEqual, instance);
}

OneAssociatedCondition Role::operator==(const Pointer<Instance>& instance) const {
    return testOne(*this, Equal, instance);
}

OneAssociatedCondition Role::operator!=(const Pointer<Instance>& instance) const {
    return testOne(*this, NotEqual, instance);
}

OneAssociatedCondition Role::operator==(std::nullptr_t) const {
    return testOne(*this, Equal, nullptr);
}

OneAssociatedCondition Role::operator!=(std::nullptr_t) const {
    return testOne(*this, NotEqual, nullptr);
}

ManyAssociatedCondition Role::operator==(Selection& nested) const {
    return testMany(*this, Equal, nested);
}

ManyAssociatedCondition Role::operator!=(Selection& nested) const {
    return testMany(*this, NotEqual, nested);
}

}  // namespace Kes
