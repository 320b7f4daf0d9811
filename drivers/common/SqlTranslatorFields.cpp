// Comparisons of fields with constants.

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

#include "drivers/common/SqlFailure.h"
#include "drivers/common/SqlTranslator.h"
#include "drivers/common/TextForms.h"

namespace Kes::sql {

namespace {

constexpr const char* Operators[] = {" = ", " <> ", " > ", " < ", " >= ", " <= "};
constexpr const char* Always = "1 = 1";
constexpr const char* Never = "1 = 0";

bool isFamily(FieldKind kind, int family) {
    switch (kind) {
    case FieldKind::Text: return family == 1;
    case FieldKind::Timestamp: return family == 2;
    case FieldKind::Blob:
    case FieldKind::Reference: return false;
    default: return family == 0;
    }
}

// A pattern may end in a lone escape, which then stands for itself.
std::string completePattern(const std::string& pattern) {
    std::size_t escapes = 0;
    while (escapes < pattern.size() && pattern[pattern.size() - 1 - escapes] == '\\')
        ++escapes;
    return escapes % 2 == 0 ? pattern : pattern + '\\';
}

// Whether the nearest real is above the number, 1, below it, -1, or equal to it.
template <class Whole>
int roundingOf(Whole value) {
    const auto near = static_cast<double>(value);
    if (near >= std::ldexp(1.0, std::numeric_limits<Whole>::digits))
        return 1;
    const auto back = static_cast<Whole>(near);
    return back < value ? -1 : back > value ? 1 : 0;
}

}  // namespace

std::string SqlTranslator::column(const Attribute& attribute, Family family) {
    const std::string name = textOf(attribute.getName());
    const TableMapping& table = *scopes.back().table;
    const int position = table.find(name);
    if (position < 0)
        refuse("no field \"" + name + "\" for the condition to test");
    const FieldKind kind = table.columns()[static_cast<std::size_t>(position)].kind;
    if (!isFamily(kind, static_cast<int>(family)))
        refuse("a field \"" + name + "\" that cannot be compared with " +
               (family == Family::Number ? "a number"
                : family == Family::Text ? "a text"
                                         : "a time"));
    return scopes.back().alias + "." + table.column(position);
}

void SqlTranslator::compare(const Attribute& attribute, int op, Family family, Parameter value) {
    const std::string tested = column(attribute, family);
    if (op == Condition::LIKE || op == Condition::NOT_LIKE)
        current.text = (op == Condition::NOT_LIKE ? "NOT " : "") + dialect.like(tested, "?");
    else if (op >= Condition::EQUAL && op <= Condition::LESS_OR_EQUAL)
        current.text = tested + Operators[op] + "?";
    else
        refuse("no comparison with the code " + std::to_string(op));
    current.parameters = {std::move(value)};
    current.ids = op == Condition::EQUAL && attribute.getName() == "KesObjectID" ? 1 : 0;
}

void SqlTranslator::compareReal(const Attribute& attribute, int op, double value) {
    if (std::isnan(value)) {
        column(attribute, Family::Number);
        current.text = op == Condition::NOT_EQUAL ? Always : Never;
        return;
    }
    compare(attribute, op, Family::Number, value);
}

bool SqlTranslator::isReal(const Attribute& attribute) const {
    const TableMapping& table = *scopes.back().table;
    const int position = table.find(textOf(attribute.getName()));
    if (position < 0)
        return false;
    const FieldKind kind = table.columns()[static_cast<std::size_t>(position)].kind;
    return kind == FieldKind::Float || kind == FieldKind::Double;
}

// Between a whole number that no real equals and the nearest real there is no
// other: to be below the one is to be below the other.
bool SqlTranslator::compareBetweenReals(const Attribute& attribute, int op, double near,
                                        int rounding) {
    if (rounding == 0 || op < Condition::EQUAL || op > Condition::LESS_OR_EQUAL ||
        !isReal(attribute))
        return false;
    const bool isUp = rounding > 0;
    if (op == Condition::EQUAL || op == Condition::NOT_EQUAL)
        current.text = op == Condition::EQUAL ? Never : Always;
    else if (op == Condition::LESS || op == Condition::LESS_OR_EQUAL)
        compareReal(attribute, isUp ? Condition::LESS : Condition::LESS_OR_EQUAL, near);
    else
        compareReal(attribute, isUp ? Condition::GREATER_OR_EQUAL : Condition::GREATER, near);
    return true;
}

void SqlTranslator::compareUnsigned(const Attribute& attribute, int op, unsigned long value) {
    constexpr auto largest = static_cast<unsigned long>(std::numeric_limits<std::int64_t>::max());
    if (compareBetweenReals(attribute, op, static_cast<double>(value), roundingOf(value)))
        return;
    if (value > largest && isReal(attribute)) {
        compareReal(attribute, op, static_cast<double>(value));
        return;
    }
    if (value > largest) {
        // No stored whole number is that large.
        column(attribute, Family::Number);
        current.text =
            op == Condition::LESS || op == Condition::LESS_OR_EQUAL || op == Condition::NOT_EQUAL
                ? Always
                : Never;
        return;
    }
    compare(attribute, op, Family::Number, static_cast<std::int64_t>(value));
}

void SqlTranslator::translate(Attribute* attribute, int op, double value) {
    compareReal(*attribute, op, value);
}

void SqlTranslator::translate(Attribute* attribute, int op, float value) {
    compareReal(*attribute, op, static_cast<double>(value));
}

void SqlTranslator::translate(Attribute* attribute, int op, bool value) {
    compare(*attribute, op, Family::Number, std::int64_t{value ? 1 : 0});
}

void SqlTranslator::translate(Attribute* attribute, int op, const Timestamp& value) {
    char text[TimestampSize + 1];
    if (!writeTimestamp(value, text))
        refuse("no objects with a time outside the years 1 to 7899, which the condition on \"" +
               textOf(attribute->getName()) + "\" tests for");
    compare(*attribute, op, Family::Time, std::string(text));
}

void SqlTranslator::translate(Attribute* attribute, int op, const String& value) {
    std::string text = textOf(value);
    if (!isValidUtf8(text.data(), text.size()))
        refuse("no texts that are not valid UTF-8, which the condition on \"" +
               textOf(attribute->getName()) + "\" tests for");
    compare(*attribute, op, Family::Text,
            op == Condition::LIKE || op == Condition::NOT_LIKE ? completePattern(text)
                                                               : std::move(text));
}

void SqlTranslator::translate(Attribute* attribute, int op, int value) {
    compare(*attribute, op, Family::Number, std::int64_t{value});
}

void SqlTranslator::translate(Attribute* attribute, int op, unsigned int value) {
    compare(*attribute, op, Family::Number, std::int64_t{value});
}

void SqlTranslator::translate(Attribute* attribute, int op, long value) {
    if (compareBetweenReals(*attribute, op, static_cast<double>(value), roundingOf(value)))
        return;
    compare(*attribute, op, Family::Number, std::int64_t{value});
}

void SqlTranslator::translate(Attribute* attribute, int op, unsigned long value) {
    compareUnsigned(*attribute, op, value);
}

}  // namespace Kes::sql
