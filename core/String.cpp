#include <kes/String.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>
#include <mutex>
#include <new>
#include <string>

#include <kes/Exception.h>
#include <kes/ValVector.h>

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

const char* orEmpty(const char* s) {
    return s != nullptr ? s : "";
}

int lengthOf(const char* s) {
    return s != nullptr ? static_cast<int>(std::strlen(s)) : 0;
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

// Applies a change to a copy of the text.
template <class Change>
String changed(const char* text, Change change) {
    std::string copy(text);
    change(copy);
    return String(copy.c_str());
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

int String::indexOf(const char* s, int start) const {
    if (start < 0 || start >= size())
        return -1;
    const char* found = std::strstr(data->text + start, orEmpty(s));
    return found != nullptr ? static_cast<int>(found - data->text) : -1;
}

int String::indexOfLast(const char* s) const {
    const char* const wanted = orEmpty(s);
    const std::size_t length = std::strlen(wanted);
    for (int i = size() - 1; i >= 0; --i)
        if (std::strncmp(data->text + i, wanted, length) == 0)
            return i;
    return -1;
}

bool String::contains(const char* s) const {
    return std::strstr(data->text, orEmpty(s)) != nullptr;
}

int String::occurrencesOf(const char* s) const {
    int count = 0;
    const char* at = data->text;
    while (*at != '\0' && (at = std::strstr(at, orEmpty(s))) != nullptr) {
        ++count;
        ++at;
    }
    return count;
}

String String::substring(int start) const {
    return String(static_cast<const char*>(data->text + start));
}

String String::substring(int start, int end) const {
    constexpr long most = std::numeric_limits<int>::max();
    const long length = std::min(static_cast<long>(end) - start, most);
    return String(data->text + start, static_cast<int>(std::max(length, 0L)));
}

String String::before(const char* sep, int start) const {
    const int i = indexOf(sep, start);
    return i != -1 ? substring(0, i) : *this;
}

String String::beforeLast(const char* sep) const {
    const int i = indexOfLast(sep);
    return i != -1 ? substring(0, i) : *this;
}

String String::after(const char* sep, int start) const {
    const int i = indexOf(sep, start);
    return i != -1 ? substring(i + lengthOf(sep)) : *this;
}

String String::afterLast(const char* sep) const {
    const int i = indexOfLast(sep);
    return i != -1 ? substring(i + lengthOf(sep)) : *this;
}

String String::replace(const char* from, const char* to, int start) const {
    const int i = indexOf(from, start);
    if (i == -1)
        return *this;
    const int length = lengthOf(from);
    const String head = i < 1 ? String() : substring(0, i);
    const String tail = i >= size() - length + 1 ? String() : substring(i + length);
    return head + to + tail;
}

String String::replaceLast(const char* from, const char* to) const {
    const int i = indexOfLast(from);
    if (i == -1)
        return *this;
    const int length = lengthOf(from);
    return (i < 1 ? String() : substring(0, i)) + to + substring(i + length);
}

String String::replaceAll(const char* from, const char* to) const {
    const auto fromSize = static_cast<std::size_t>(lengthOf(from));
    if (fromSize == 0)
        return *this;
    return changed(data->text, [&](std::string& w) {
        std::string result;
        std::size_t done = 0;
        for (std::size_t p = w.find(from); p != std::string::npos; p = w.find(from, done)) {
            result.append(w, done, p - done).append(orEmpty(to));
            done = p + fromSize;
        }
        w = result.append(w, done);
    });
}

ValVector<String> String::split(const char* sep) const {
    ValVector<String> parts(10, 10);
    const int length = lengthOf(sep);

    // The array grows by ten, which for many parts would copy them very often.
    int count = 1;
    for (const char* at = data->text; length != 0 && (at = std::strstr(at, sep)) != nullptr;
         at += length)
        ++count;
    if (count > 10)
        parts.setCapacity(count);
    const char* at = data->text;
    while (const char* found = length != 0 ? std::strstr(at, sep) : nullptr) {
        parts.add(String(at, static_cast<int>(found - at)));
        at = found + length;
    }
    parts.add(String(at));
    return parts;
}

String String::toUpper() const {
    return changed(data->text, [](std::string& w) {
        for (char& c : w)
            if (c >= 'a' && c <= 'z')
                c = static_cast<char>(c - 32);
    });
}

String String::toLower() const {
    return changed(data->text, [](std::string& w) {
        for (char& c : w)
            if (c >= 'A' && c <= 'Z')
                c = static_cast<char>(c + 32);
    });
}

String String::reverse() const {
    return changed(data->text, [](std::string& w) { w.assign(w.rbegin(), w.rend()); });
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
