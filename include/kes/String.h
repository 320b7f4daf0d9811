// Text.
//
// A String is a counted reference to a buffer whose text never changes once it
// is built, so copying costs one increment and every operation that modifies
// returns a new text. Two rules keep this cheap and safe:
//
// - A buffer has at most 65,535 owners. The copy after that gets a buffer of
//   its own, with the same text.
// - The buffer of the empty text is one constant for the whole process. It is
//   never counted and never written, so all threads may share it.

#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <kes/Export.h>
#include <kes/ValVector.h>

namespace Kes {

class StringData;

/// Immutable text: a run of 8-bit characters that ends at the first NUL.
///
/// A null `const char*` counts as "" wherever one is taken. Positions are bytes
/// from 0, and -1 stands for "not found". Slices that reach beyond the text are
/// cut to it. The owners of a buffer are counted without locks, so strings that
/// share one stay on one thread; pass `String((const char*)s)` to another.
class KES_EXPORT String {
public:
    String() noexcept;
    String(const char* s);
    String(const String& other);
    String(String&& other) noexcept;

    /// Numbers, as printf writes them with "%d", "%u", "%ld", "%lu" and "%f".
    String(int value);
    String(unsigned int value);
    String(long value);
    String(unsigned long value);
    String(double value);
    String(float value);

    virtual ~String();

    /// `s` may lie inside this text.
    String& operator=(const char* s);
    String& operator=(const String& other);
    String& operator=(String&& other) noexcept;

    String operator+(const char* s) const;
    String operator+(const String& other) const;
    String& operator+=(const char* s);
    String& operator+=(const String& other);

    /// In bytes, without the terminating NUL; counted anew by every call.
    int size() const { return static_cast<int>(std::strlen(text())); }

    /// Borrowed while any String shares the buffer.
    operator const char*() const { return text(); }

    /// The byte at `i`, unchecked.
    char operator[](int i) const { return text()[i]; }
    template <std::integral I>
    char operator[](I i) const {
        return text()[i];
    }

    /// Byte order as strcmp defines it: negative, 0 or positive.
    int compare(const char* s) const { return std::strcmp(text(), orEmpty(s)); }
    int compare(const String& other) const;

    /// Compares the two texts as toUpper() gives them.
    int compareCaseInsensitive(const char* s) const;
    int compareCaseInsensitive(const String& other) const;

    bool operator==(const char* s) const { return compare(s) == 0; }
    bool operator==(const String& other) const { return compare(other) == 0; }
    bool operator!=(const char* s) const { return compare(s) != 0; }
    bool operator!=(const String& other) const { return compare(other) != 0; }
    bool operator<(const char* s) const { return compare(s) < 0; }
    bool operator<(const String& other) const { return compare(other) < 0; }
    bool operator<=(const char* s) const { return compare(s) <= 0; }
    bool operator<=(const String& other) const { return compare(other) <= 0; }
    bool operator>(const char* s) const { return compare(s) > 0; }
    bool operator>(const String& other) const { return compare(other) > 0; }
    bool operator>=(const char* s) const { return compare(s) >= 0; }
    bool operator>=(const String& other) const { return compare(other) >= 0; }

    /// The first occurrence that begins at or after `start`; -1 when `start` is
    /// not a position inside the text, so "" is found nowhere in "".
    int indexOf(const char* s, int start = 0) const;

    /// The last occurrence that begins inside the text.
    int indexOfLast(const char* s) const;

    /// Whether `s` occurs anywhere; "" occurs in every text.
    bool contains(const char* s) const;

    /// Counts overlapping occurrences too: "aaa" holds "aa" twice.
    int occurrencesOf(const char* s) const;

    /// From `start` to the end, or up to but not including `end`.
    String substring(int start) const;
    String substring(int start, int end) const;

    /// What stands before or after the first separator found from `start` on,
    /// or the last one. The whole text when there is no separator, in every case.
    String before(const char* separator, int start = 0) const;
    String beforeLast(const char* separator) const;
    String after(const char* separator, int start = 0) const;
    String afterLast(const char* separator) const;

    /// Replaces one occurrence: the first from `start` on, or the last.
    String replace(const char* from, const char* to, int start = 0) const;
    String replaceLast(const char* from, const char* to) const;

    /// Replaces every occurrence and does not look again at what it inserted.
    /// Replacing "" gives the text as it is. Linear in the result.
    String replaceAll(const char* from, const char* to) const;

    /// The parts between the separators, always one more than there are
    /// separators. Splitting at "" gives the whole text. Linear in the text.
    ValVector<String> split(const char* separator) const;

    /// ASCII letters only; every other byte stays.
    String toUpper() const;
    String toLower() const;
    String reverse() const;

    /// The number at the start of the text. Leading white space is skipped, what
    /// follows is ignored, and a text without a number gives 0.
    int parseInt() const;
    long parseLong() const;
    unsigned int parseUnsigned() const;
    double parseDouble() const;

    /// Replaces the text by what printf would print, cut at 1,022 characters.
    /// The arguments may point into this text.
#if defined(__GNUC__)
    [[gnu::format(printf, 2, 3)]]
#endif
    void assignFormat(const char* format, ...);

    /// A hash of the bytes, within 32 bits and the same everywhere; "" gives 0.
    static long hash(const String& s);

    friend String operator+(const char* a, const String& b) { return String(a, b.text()); }
    friend bool operator==(const char* a, const String& b) { return b.compare(a) == 0; }
    friend bool operator!=(const char* a, const String& b) { return b.compare(a) != 0; }
    friend bool operator<(const char* a, const String& b) { return b.compare(a) > 0; }
    friend bool operator<=(const char* a, const String& b) { return b.compare(a) >= 0; }
    friend bool operator>(const char* a, const String& b) { return b.compare(a) < 0; }
    friend bool operator>=(const char* a, const String& b) { return b.compare(a) <= 0; }

protected:
    /// `a` followed by `b`.
    String(const char* a, const char* b);

    /// At most `n` bytes of `s`, which may be shorter; a negative `n` counts as 0.
    String(const char* s, int n);

    /// Gives up this string's share of its buffer and leaves the pointer alone:
    /// the caller installs another buffer at once.
    void removeData() noexcept;

private:
    explicit String(StringData* built) noexcept : data(built) {}

    static const char* orEmpty(const char* s) { return s != nullptr ? s : ""; }
    static StringData* share(StringData* other);
    static StringData* emptyData() noexcept;

    const char* text() const;
    String replaceAt(int position, const char* from, const char* to) const;

    StringData* data;  // shared with the copies; never null
};

/// The shared buffer of a String: a header, directly followed by the text and
/// its NUL in the same block of memory. For String alone.
class StringData {
private:
    friend class String;
    friend struct EmptyString;

    static constexpr std::uint16_t uncounted = 0;
    static constexpr std::uint16_t mostOwners = 65535;

    explicit constexpr StringData(std::uint16_t count) noexcept : owners(count) {}

    /// A buffer with one owner and room for `length` bytes and the NUL, which
    /// is set; the bytes before it are not.
    static StringData* make(std::size_t length);
    static StringData* copyOf(const char* s, std::size_t length);
    static void free(StringData* data) noexcept;

    char* text() noexcept { return reinterpret_cast<char*>(this + 1); }

    std::uint16_t owners;  // uncounted for the empty text's constant buffer
};

/// The buffer that every empty text without a buffer of its own points to.
struct EmptyString {
    StringData header{StringData::uncounted};
    char text[2] = {};
};

// The empty text is read-only data, so a count that was written by mistake
// would stop the program at once.
extern KES_EXPORT const EmptyString emptyString;

inline StringData* String::emptyData() noexcept {
    return const_cast<StringData*>(&emptyString.header);
}

inline const char* String::text() const {
    return data->text();
}

inline StringData* String::share(StringData* other) {
    const std::uint16_t owners = other->owners;
    if (owners == StringData::uncounted)
        return other;
    if (owners == StringData::mostOwners)
        return StringData::copyOf(other->text(), std::strlen(other->text()));
    other->owners = static_cast<std::uint16_t>(owners + 1);
    return other;
}

inline void String::removeData() noexcept {
    const std::uint16_t owners = data->owners;
    if (owners > 1)
        data->owners = static_cast<std::uint16_t>(owners - 1);
    else if (owners != StringData::uncounted)
        StringData::free(data);
}

inline String::String() noexcept : data(emptyData()) {}

inline String::String(const String& other) : data(share(other.data)) {}

inline String::String(String&& other) noexcept : data(other.data) {
    other.data = emptyData();
}

inline String::~String() {
    removeData();
}

inline String& String::operator=(const String& other) {
    if (data != other.data) {
        StringData* const shared = share(other.data);
        removeData();
        data = shared;
    }
    return *this;
}

inline String& String::operator=(String&& other) noexcept {
    if (this != &other) {
        removeData();
        data = other.data;
        other.data = emptyData();
    }
    return *this;
}

inline int String::compare(const String& other) const {
    return data == other.data ? 0 : std::strcmp(text(), other.text());
}

extern template class KES_EXPORT ValVector<String>;

}  // namespace Kes
