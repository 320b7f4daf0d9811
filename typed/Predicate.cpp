#include <kes/Predicate.h>

#include "typed/Operands.h"
#include "typed/PredicateNode.h"

namespace Kes {

PredicateBase::PredicateBase(const PredicateBase&) = default;
PredicateBase::PredicateBase(PredicateBase&&) noexcept = default;
PredicateBase& PredicateBase::operator=(const PredicateBase&) = default;
PredicateBase& PredicateBase::operator=(PredicateBase&&) noexcept = default;
PredicateBase::~PredicateBase() = default;

PredicateBase::PredicateBase(FieldKey field, Comparison op, std::int64_t value)
    : node(nodeOfComparison(field, op, operand(value))) {}

PredicateBase::PredicateBase(FieldKey field, Comparison op, std::uint64_t value)
    : node(nodeOfComparison(field, op, operand(value))) {}

PredicateBase::PredicateBase(FieldKey field, Comparison op, double value)
    : node(nodeOfComparison(field, op, operand(value))) {}

PredicateBase::PredicateBase(FieldKey field, Comparison op, std::string_view value)
    : node(nodeOfComparison(field, op, operand(value))) {}

PredicateBase::PredicateBase(FieldKey field, Comparison op, const FieldCodec& codec,
                             const void* value)
    : node(nodeOfComparison(field, op, operand(codec, value))) {}

PredicateBase::PredicateBase(FieldKey field, Comparison op, std::nullopt_t value)
    : node(nodeOfComparison(field, op, operand(value))) {}

PredicateBase::PredicateBase(FieldKey field, const OperandList& list)
    : node(nodeOfList(field, list.values)) {}

PredicateBase::PredicateBase(FieldKey field, std::string_view pattern)
    : node(nodeOfPattern(field, pattern)) {}

PredicateBase::PredicateBase(FieldKey field) : node(nodeOfMark(field)) {}

PredicateBase::PredicateBase(FieldKey field, const RefBase& partner)
    : node(nodeOfLink(field, partner.getInstance())) {}

PredicateBase::PredicateBase(FieldKey field, const std::type_info& partner,
                             const PredicateBase& condition)
    : node(nodeOfPartner(field, partner, condition.node)) {}

PredicateBase::PredicateBase(const PredicateBase& a, Junction junction, const PredicateBase& b)
    : node(nodeOfBoth(a.node, junction == Both ? Condition::AND : Condition::OR, b.node)) {}

PredicateBase::PredicateBase(Inverse, const PredicateBase& a) : node(nodeOfOpposite(a.node)) {}

}  // namespace Kes
