// Conditions on the partners of an object.

#include <memory>
#include <string>
#include <typeinfo>
#include <utility>

#include <kes/Association.h>
#include <kes/Error.h>
#include <kes/Role.h>
#include <kes/Selection.h>

#include "typed/DescribedClass.h"
#include "typed/PredicateNode.h"
#include "typed/Session.h"

namespace Kes {

namespace {

// The end of a link in the class that is queried.
std::unique_ptr<Role> roleOf(const PredicateScope& scope, FieldKey field) {
    const std::size_t offset = field().offset;
    const auto* cls = DescribedClass::from(scope.cls);
    if (cls != nullptr)
        for (const DescribedReference& each : cls->getReferences())
            if (each.offset == offset)
                return std::make_unique<Role>(scope.cls, each.role,
                                              scope.session.getAssociation(each.association));
    scope.namesOf(field);  // is none, and so not described at all
    return nullptr;
}

class LinkNode final : public PredicateNode {
public:
    LinkNode(FieldKey itsField, Instance* itsPartner)
        : field(itsField),
          partner(itsPartner),
          isAny(itsPartner == nullptr) {}

    ConditionPtr build(const PredicateScope& scope, bool negated) const override {
        std::unique_ptr<Role> role = roleOf(scope, field);
        if (!isAny)
            requirePartner(scope);
        ConditionPtr made = std::make_unique<OneAssociatedCondition>(
            role.get(),
            negated ? Condition::Associations::NOT_EQUAL : Condition::Associations::EQUAL,
            partner.getInstance());
        static_cast<void>(role.release());
        return made;
    }

private:
    void requirePartner(const PredicateScope& scope) const {
        const Instance* instance = partner.getInstance();
        if (instance == nullptr)
            throw Error(ErrorKind::Misuse, "INSTERR", "Kes::Query",
                        "The object that a condition on " + nameOfClass(scope) +
                            " objects names is gone since its database was closed; make the "
                            "condition again",
                        nameOfClass(scope), 0);
        if (instance->getClass()->getModel() == &scope.session)
            return;
        const std::string cls = static_cast<const char*>(instance->getClass()->getName());
        throw Error(ErrorKind::Misuse, "INSTERR", "Kes::Query",
                    "The " + cls + " object " + std::to_string(instance->getObjectID()) +
                        " belongs to another database than the query; look for it in that one",
                    cls, instance->getObjectID());
    }

    const FieldKey field;
    const Pointer<Instance> partner;
    const bool isAny;  // asks for no partner at all
};

class PartnerNode final : public InnerNode {
public:
    PartnerNode(FieldKey itsField, const std::type_info& itsPartner, NodePtr itsCondition)
        : InnerNode(std::move(itsCondition)),
          field(itsField),
          partner(itsPartner) {}

    ConditionPtr build(const PredicateScope& scope, bool negated) const override {
        std::unique_ptr<Role> role = roleOf(scope, field);
        Class* cls = scope.session.classOf(partner);
        Selection nested(cls);
        nested.setCondition(left->build(scope.below(cls), false).release());
        auto asked = std::make_unique<AssociatedClass>(nested);
        ConditionPtr made = std::make_unique<ManyAssociatedCondition>(
            role.get(),
            negated ? Condition::Associations::NOT_EQUAL : Condition::Associations::EQUAL,
            asked.get());
        static_cast<void>(role.release());
        static_cast<void>(asked.release());
        return made;
    }

private:
    const FieldKey field;
    const std::type_info& partner;
};

}  // namespace

NodePtr nodeOfLink(FieldKey field, Instance* partner) {
    return std::make_shared<LinkNode>(field, partner);
}

NodePtr nodeOfPartner(FieldKey field, const std::type_info& partner, NodePtr condition) {
    return std::make_shared<PartnerNode>(field, partner, std::move(condition));
}

}  // namespace Kes
