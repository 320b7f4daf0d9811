#include <kes/String.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>
#include <mutex>
#include <new>
#include <string>

#include <kes/Exception.h>

#include "core/NullText.h"

namespace Kes {

constinit StringData String::myEmpty{0, {'\0'}};

namespace {

// The longest text of a number: %f of the largest double has over 300 digits.
constexpr std::size_t NumberSize = 400;

template <class T>
String format(const char* pattern, T value) {
    char buffer[NumberSize];
    std::snprintf(buffer, sizeof buffer, pattern, value);
    return String(static_cast<const char*>(buffer));
}

// Positions and sizes are ints.
bool fits(std::size_t length) {
    if (length <= static_cast<std::size_t>(std::numeric_limits<int>::max()))
        return true;
    Exception(Exception::ERROR, "STRSIZE", "String::String",
              "A text holds at most 2147483647 bytes; store larger data in several texts")
        .handle();
    return false;
}

}  // namespace

StringData* String::allocate(std::size_t length) {
    const std::size_t bytes = offsetof(StringData, text) + length + 1;
    auto* fresh = static_cast<StringData*>(
        ::operator new(bytes < sizeof(StringData) ? sizeof(StringData) : bytes));
    fresh->count = 1;
    return fresh;
}

StringData* String::make(const char* s) {
    if (s == nullptr || *s == '\0')
        return &myEmpty;
    const std::size_t length = std::strlen(s);
    if (!fits(length))
        return &myEmpty;
    StringData* fresh = allocate(length);
    std::memcpy(reinterpret_cast<char*>(fresh) + offsetof(StringData, text), s, length + 1);
    return fresh;
}

void String::release(StringData* unused) {
    // A count of 1 is never a constant's, but the compiler cannot know.
    if (unused == &myEmpty)
        return;
    ::operator delete(unused);
}

String String::constant(const char* s) {
    if (s == nullptr || *s == '\0')
        return String();
    static std::mutex guard;
    static auto& constants = *new std::map<std::string, String>;
    const std::lock_guard<std::mutex> lock(guard);
    String& known = constants[s];
    if (known.data == &myEmpty) {
        known = s;
        known.data->count = 0;
    }
    return known;
}

String::String(int v) : String(format("%d", v)) {}
String::String(unsigned int v) : String(format("%u", v)) {}
String::String(long v) : String(format("%ld", v)) {}
String::String(unsigned long v) : String(format("%lu", v)) {}
String::String(double v) : String(format("%f", v)) {}
String::String(float v) : String(static_cast<double>(v)) {}

String::String(const char* a, const char* b) : data(join(a, b)) {
    if (data == nullptr)
        data = &myEmpty;
}

// Null, which was raised, for more than a text holds.
StringData* String::join(const char* a, const char* b) {
    const char* const first = orEmpty(a);
    const char* const second = orEmpty(b);
    const std::size_t sizeA = std::strlen(first);
    const std::size_t sizeB = std::strlen(second);
    if (!fits(sizeA + sizeB))
        return nullptr;
    StringData* fresh = allocate(sizeA + sizeB);
    char* text = reinterpret_cast<char*>(fresh) + offsetof(StringData, text);
    std::memcpy(text, first, sizeA);
    std::memcpy(text + sizeA, second, sizeB + 1);
    return fresh;
}

String::String(const char* s, int n) {
    const auto most = static_cast<std::size_t>(n < 0 ? 0 : n);
    data = allocate(most);
    char* text = reinterpret_cast<char*>(data) + offsetof(StringData, text);
    const std::size_t length = strnlen(orEmpty(s), most);
    std::memcpy(text, orEmpty(s), length);
    std::memset(text + length, '\0', most - length + 1);
}

String& String::operator=(const char* s) {
    // Made first: the text may be this string's own.
    StringData* fresh = make(s);
    removeData();
    data = fresh;
    return *this;
}

String& String::operator+=(const char* s) {
    StringData* fresh = join(data->text, s);
    if (fresh == nullptr)
        return *this;
    removeData();
    data = fresh;
    return *this;
}

int String::compareCaseInsensitive(const char* s) const {
    return toUpper().compare(String(s).toUpper());
}

int String::compareCaseInsensitive(const String& s) const {
    return toUpper().compare(s.toUpper());
}

int String::parseInt() const {
    return std::atoi(data->text);
}

long String::parseLong() const {
    return std::atol(data->text);
}

unsigned int String::parseUnsigned() const {
    unsigned long value = 0;
    std::sscanf(data->text, "%lu", &value);
    return static_cast<unsigned int>(value);
}

double String::parseDouble() const {
    return std::atof(data->text);
}

void String::assignFormat(const char* pattern, ...) {
    char buffer[1024] = "";  // stays so when the format is not to be printed
    std::va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(buffer, sizeof buffer, orEmpty(pattern), arguments);
    va_end(arguments);
    buffer[1022] = '\0';
    *this = static_cast<const char*>(buffer);
}

long String::hash(const String& s) {
    std::uint32_t h = 0;
    unsigned shift = 8;
    for (const char* at = s.data->text; *at != '\0'; ++at, ++shift) {
        const auto c =
            static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<signed char>(*at)));
        h ^= (h << shift % 32) ^ c;
    }
    return static_cast<std::int32_t>(h);
}

}  // namespace Kes
