// Looking for parts of a text, and texts made of parts of others.

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

#include <kes/String.h>
#include <kes/ValVector.h>

#include "core/NullText.h"

namespace Kes {

namespace {

int lengthOf(const char* s) {
    return s != nullptr ? static_cast<int>(std::strlen(s)) : 0;
}

// Applies a change to a copy of the text.
template <class Change>
String changed(const char* text, Change change) {
    std::string copy(text);
    change(copy);
    return String(copy.c_str());
}

}  // namespace

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

}  // namespace Kes
