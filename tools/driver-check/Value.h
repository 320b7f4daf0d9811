// Values of every kind of field.

#pragma once

#include <string>
#include <variant>

#include <kes/Attribute.h>
#include <kes/Blob.h>
#include <kes/Condition.h>
#include <kes/String.h>
#include <kes/Timestamp.h>

namespace Kes::check {

using Value = std::variant<unsigned long, long, String, int, unsigned int, bool, float, double,
                           Timestamp, Blob>;

/// The position of the kind's type in Value.
enum class Kind { ULong, Long, Text, Int, UInt, Bool, Float, Double, Time, Blob };
constexpr Kind AllKinds[] = {Kind::ULong, Kind::Long,  Kind::Text,   Kind::Int,  Kind::UInt,
                             Kind::Bool,  Kind::Float, Kind::Double, Kind::Time, Kind::Blob};

/// "ulong", "long", "text", …
std::string nameOf(Kind kind);

/// 0, "", 1 January 2000, no blob.
Value plainValue(Kind kind);

/// Whether one came back exactly as the other: the sign of zero, days and
/// seconds and an empty blob are told apart; one not-a-number is like another.
bool isExactly(const Value& one, const Value& other);

/// -1, 0 or 1 for two values of the same kind, as conditions and sorting see
/// them: texts by bytes, -0.0 like 0.0.
int compare(const Value& one, const Value& other);

/// For messages; long values are shortened.
std::string describe(const Value& value);

/// A condition on the attribute, new, for the caller; null for a blob.
Condition* newCondition(const Attribute& attribute, int op, const Value& value);

/// What a condition with `op` is to answer for a field that holds `left`.
bool holds(const Value& left, int op, const Value& right);

/// The plain matcher that `like` is held against: bytes, `%`, `_` for one
/// character of UTF-8, `\` takes the next character literally.
bool matches(const char* text, const char* pattern);

}  // namespace Kes::check
