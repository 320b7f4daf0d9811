// Values that fields are compared with.

#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "typed/PredicateNode.h"

namespace Kes {

OperandPtr operand(std::int64_t value);
OperandPtr operand(std::uint64_t value);
OperandPtr operand(double value);
OperandPtr operand(std::string_view value);
OperandPtr operand(std::nullopt_t);
OperandPtr operand(const FieldCodec& codec, const void* value);

}  // namespace Kes
