// Text.

#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <kes/Export.h>
#include <kes/Forward.h>

namespace Kes {

/// A shared text buffer: the count of its owners, then the characters and the
/// NUL in the same block.
struct StringData {
    std::uint16_t count;  // 0 marks a constant text, which nobody counts or frees
    char text[1];         // as many as the block holds
};

/// Immutable 8-bit, NUL-terminated text. Copies share one counted buffer.
///
/// Order is byte order, positions are byte offsets from 0, "not found" is -1.
/// Case operations know ASCII letters only. Offsets are not checked. A null
/// pointer stands for "" wherever a text is taken. A text has at most 2147483647
/// bytes: an operation whose result has more raises STRSIZE (ERROR), and gives ""
/// when the handler returns; += leaves the text as it was.
///
/// The count is not atomic: strings that share a buffer belong to one thread at
/// a time. The empty text and constant() know no such limit. A buffer has at
/// most 65,535 owners; the next copy takes one of its own.
class KES_EXPORT String {
public:
    String() noexcept : data(&myEmpty) {}
    String(const char* s) : data(make(s)) {}  // NOLINT: a literal stands for its text
    String(const String& s) : data(share(s.data)) {}
    /// Leaves "" behind.
    String(String&& s) noexcept : data(s.data) { s.data = &myEmpty; }

    /// Decimal text, as printf's %d, %u, %ld, %lu and %f give it.
    String(int v);            // NOLINT: a number stands for its text, too
    String(unsigned int v);   // NOLINT
    String(long v);           // NOLINT
    String(unsigned long v);  // NOLINT
    String(double v);         // NOLINT
    String(float v);          // NOLINT

    /// A character is no number: "a" is the text, not 'a'.
    String(char) = delete;

    virtual ~String() { removeData(); }

    /// A text for the life of the process, one per value, whose copies any thread
    /// makes and drops. For names that all threads share, not for data: it is
    /// never freed.
    static String constant(const char* s);

    String& operator=(const char* s);
    String& operator=(const String& s) {
        StringData* fresh = share(s.data);
        removeData();
        data = fresh;
        return *this;
    }
    String& operator=(String&& s) noexcept {
        if (this != &s) {
            removeData();
            data = s.data;
            s.data = &myEmpty;
        }
        return *this;
    }

    String operator+(const char* s) const { return String(data->text, s); }
    String operator+(const String& s) const { return String(data->text, s.data->text); }
    String& operator+=(const char* s);
    String& operator+=(const String& s) { return *this += s.data->text; }

    /// A copy with a buffer of its own, which another thread may have.
    String unshared() const { return String(static_cast<const char*>(data->text)); }

    /// In bytes, without the terminating NUL; counted anew each time.
    int size() const { return static_cast<int>(std::strlen(data->text)); }

    /// Valid while any String shares the buffer.
    operator const char*() const { return data->text; }
    char operator[](int i) const { return data->text[i]; }
    char operator[](long i) const { return data->text[i]; }
    char operator[](unsigned int i) const { return data->text[i]; }
    char operator[](unsigned long i) const { return data->text[i]; }

    /// As strcmp: negative, 0 or positive.
    int compare(const char* s) const { return std::strcmp(data->text, s != nullptr ? s : ""); }
    int compare(const String& s) const { return std::strcmp(data->text, s.data->text); }
    int compareCaseInsensitive(const char* s) const;
    int compareCaseInsensitive(const String& s) const;

    bool operator==(const char* s) const { return compare(s) == 0; }
    bool operator!=(const char* s) const { return compare(s) != 0; }
    bool operator<(const char* s) const { return compare(s) < 0; }
    bool operator<=(const char* s) const { return compare(s) <= 0; }
    bool operator>(const char* s) const { return compare(s) > 0; }
    bool operator>=(const char* s) const { return compare(s) >= 0; }
    bool operator==(const String& s) const { return data == s.data || compare(s) == 0; }
    bool operator!=(const String& s) const { return !(*this == s); }
    bool operator<(const String& s) const { return compare(s) < 0; }
    bool operator<=(const String& s) const { return compare(s) <= 0; }
    bool operator>(const String& s) const { return compare(s) > 0; }
    bool operator>=(const String& s) const { return compare(s) >= 0; }

    /// The first occurrence at or after `start`; -1 for a start outside.
    int indexOf(const char* s, int start = 0) const;
    int indexOfLast(const char* s) const;
    bool contains(const char* s) const;

    /// Overlapping occurrences count.
    int occurrencesOf(const char* s) const;

    /// From `start` up to but not including `end`.
    String substring(int start) const;
    String substring(int start, int end) const;

    /// The whole text when the separator is absent.
    String before(const char* sep, int start = 0) const;
    String beforeLast(const char* sep) const;
    String after(const char* sep, int start = 0) const;
    String afterLast(const char* sep) const;

    /// A copy in which the first occurrence at or after `start`, or the last of all,
    /// is replaced; the same text when there is none.
    String replace(const char* from, const char* to, int start = 0) const;
    String replaceLast(const char* from, const char* to) const;

    /// Inserted text is not searched again. An empty `from` replaces nothing.
    String replaceAll(const char* from, const char* to) const;

    /// Always at least one element; empty ones are kept. An empty separator
    /// separates nothing.
    ValVector<String> split(const char* sep) const;

    /// Copies with other ASCII letters, or with the bytes in the opposite order, which
    /// breaks characters of several bytes.
    String toUpper() const;
    String toLower() const;
    String reverse() const;

    /// Leading blanks are skipped, trailing junk is ignored; 0 when nothing
    /// parses.
    int parseInt() const;
    long parseLong() const;
    unsigned int parseUnsigned() const;
    double parseDouble() const;

    /// Formats as printf does; the result is cut at 1,022 characters.
    void assignFormat(const char* format, ...);

    /// The hash of all name tables, a signed 32-bit value.
    static long hash(const String& s);

protected:
    /// The second text after the first.
    String(const char* a, const char* b);

    /// At most `n` bytes of `s`.
    String(const char* s, int n);

    /// Lets the buffer go; the caller installs another at once.
    void removeData() {
        if (data->count > 1)
            --data->count;
        else if (data->count == 1)
            release(data);
    }

private:
    static StringData* make(const char* s);
    static StringData* join(const char* a, const char* b);
    static StringData* allocate(std::size_t length);
    static void release(StringData* unused);
    static StringData* share(StringData* shared) {
        if (shared->count == 0)
            return shared;
        if (shared->count == UINT16_MAX)
            return make(shared->text);
        ++shared->count;
        return shared;
    }

    StringData* data;  // never null

    static StringData myEmpty;
};

inline String operator+(const char* a, const String& b) {
    return String(a) + b;
}
inline bool operator==(const char* a, const String& b) {
    return b == a;
}
inline bool operator!=(const char* a, const String& b) {
    return b != a;
}
// Without these, a text on the left would be compared by its address.
inline bool operator<(const char* a, const String& b) {
    return b > a;
}
inline bool operator<=(const char* a, const String& b) {
    return b >= a;
}
inline bool operator>(const char* a, const String& b) {
    return b < a;
}
inline bool operator>=(const char* a, const String& b) {
    return b <= a;
}

}  // namespace Kes
