#include "Value.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <type_traits>

namespace Kes::check {

namespace {

template <class Real>
bool sameReal(Real one, Real other) {
    if (std::isnan(one) || std::isnan(other))
        return std::isnan(one) && std::isnan(other);
    return one == other && std::signbit(one) == std::signbit(other);
}

template <class T>
bool sameValue(const T& one, const T& other) {
    return one == other;
}
template <>
bool sameValue(const float& one, const float& other) {
    return sameReal(one, other);
}
template <>
bool sameValue(const double& one, const double& other) {
    return sameReal(one, other);
}
template <>
bool sameValue(const Timestamp& one, const Timestamp& other) {
    return one.getAllDays() == other.getAllDays() && one.getAllSeconds() == other.getAllSeconds();
}
template <>
bool sameValue(const Blob& one, const Blob& other) {
    return one.isEmpty() == other.isEmpty() && one.size() == other.size() &&
           (one.size() == 0 ||
            std::memcmp(one.data(), other.data(), static_cast<std::size_t>(one.size())) == 0);
}
template <>
bool sameValue(const String& one, const String& other) {
    return std::strcmp(one, other) == 0;
}

template <class T>
int order(const T& one, const T& other) {
    return one < other ? -1 : other < one ? 1 : 0;
}
template <>
int order(const String& one, const String& other) {
    const int difference = std::strcmp(one, other);
    return difference < 0 ? -1 : difference > 0 ? 1 : 0;
}
template <>
int order(const Blob&, const Blob&) {
    return 0;
}

void print(std::ostream& out, const String& text) {
    const std::string whole = static_cast<const char*>(text);
    out << '"';
    for (const char c : whole.substr(0, 60))
        if (static_cast<unsigned char>(c) < ' ')
            out << "\\x" << std::hex << static_cast<int>(static_cast<unsigned char>(c)) << std::dec;
        else
            out << c;
    out << '"';
    if (whole.size() > 60)
        out << "... (" << whole.size() << " bytes)";
}
void print(std::ostream& out, const Timestamp& time) {
    out << "day " << time.getAllDays() << " second " << time.getAllSeconds();
}
void print(std::ostream& out, const Blob& blob) {
    if (blob.isEmpty())
        out << "no blob";
    else
        out << "a blob of " << blob.size() << " bytes";
}
template <class T>
requires std::is_arithmetic_v<T>
void print(std::ostream& out, T value) {
    out.precision(17);
    out << std::boolalpha << value;
}

// The bytes of the character that begins at `text`.
std::size_t characterSize(const char* text) {
    std::size_t size = 1;
    while ((static_cast<unsigned char>(text[size]) & 0xC0) == 0x80)
        ++size;
    return size;
}

}  // namespace

std::string nameOf(Kind kind) {
    constexpr const char* names[] = {"ulong", "long",  "text",   "int",  "uint",
                                     "bool",  "float", "double", "time", "blob"};
    return names[static_cast<std::size_t>(kind)];
}

Value plainValue(Kind kind) {
    switch (kind) {
    case Kind::ULong: return 0UL;
    case Kind::Long: return 0L;
    case Kind::Text: return String("");
    case Kind::Int: return 0;
    case Kind::UInt: return 0U;
    case Kind::Bool: return false;
    case Kind::Float: return 0.0F;
    case Kind::Double: return 0.0;
    case Kind::Time: return Timestamp(2000, 1, 1, 0, 0, 0);
    case Kind::Blob: break;
    }
    return Blob();
}

bool isExactly(const Value& one, const Value& other) {
    if (one.index() != other.index())
        return false;
    return std::visit(
        [&](const auto& value) {
            return sameValue(value, std::get<std::decay_t<decltype(value)>>(other));
        },
        one);
}

int compare(const Value& one, const Value& other) {
    return std::visit(
        [&](const auto& value) {
            return order(value, std::get<std::decay_t<decltype(value)>>(other));
        },
        one);
}

std::string describe(const Value& value) {
    std::ostringstream out;
    std::visit([&](const auto& held) { print(out, held); }, value);
    return out.str();
}

Condition* newCondition(const Attribute& attribute, int op, const Value& value) {
    return std::visit(
        [&](const auto& constant) -> Condition* {
            using T = std::decay_t<decltype(constant)>;
            if constexpr (std::is_same_v<T, Blob>)
                return nullptr;
            else
                return new AttributeCondition<T>(new Attribute(attribute), op, constant);
        },
        value);
}

bool holds(const Value& left, int op, const Value& right) {
    if (op == Condition::LIKE)
        return matches(std::get<String>(left), std::get<String>(right));
    const int difference = compare(left, right);
    switch (op) {
    case Condition::EQUAL: return difference == 0;
    case Condition::NOT_EQUAL: return difference != 0;
    case Condition::GREATER: return difference > 0;
    case Condition::LESS: return difference < 0;
    case Condition::GREATER_OR_EQUAL: return difference >= 0;
    default: return difference <= 0;
    }
}

bool matches(const char* text, const char* pattern) {
    if (*pattern == '\0')
        return *text == '\0';
    if (*pattern == '%') {
        for (const char* rest = text;; ++rest) {
            if (matches(rest, pattern + 1))
                return true;
            if (*rest == '\0')
                return false;
        }
    }
    if (*text == '\0')
        return false;
    if (*pattern == '_')
        return matches(text + characterSize(text), pattern + 1);
    if (*pattern == '\\' && pattern[1] != '\0')
        ++pattern;
    return *text == *pattern && matches(text + 1, pattern + 1);
}

}  // namespace Kes::check
