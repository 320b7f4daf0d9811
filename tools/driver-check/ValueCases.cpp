#include "ValueCases.h"

#include <bit>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>

namespace Kes::check {

namespace {

std::vector<ValueCase> unsignedLongs() {
    constexpr unsigned long signedMost = LONG_MAX;
    return {{"zero", 0UL},
            {"one", 1UL},
            {"above-31-bits", 2147483648UL},
            {"above-32-bits", 4294967296UL},
            {"above-53-bits", 9007199254740993UL},
            {"largest-signed", signedMost},
            {"above-largest-signed", signedMost + 1, "unsigned64"},
            {"near-the-top", ULONG_MAX - 2047, "unsigned64"},
            {"largest", ULONG_MAX, "unsigned64"}};
}

std::vector<ValueCase> longs() {
    return {{"zero", 0L},
            {"minus-one", -1L},
            {"above-31-bits", 2147483648L},
            {"below-32-bits", -2147483649L},
            {"above-53-bits", 9007199254740993L},
            {"below-53-bits", -9007199254740993L},
            {"largest", LONG_MAX},
            {"smallest", LONG_MIN},
            {"next-to-smallest", LONG_MIN + 1}};
}

std::vector<ValueCase> ints() {
    return {{"zero", 0},
            {"minus-one", -1},
            {"above-15-bits", 32768},
            {"above-23-bits", 8388608},
            {"largest", INT_MAX},
            {"smallest", INT_MIN}};
}

std::vector<ValueCase> unsignedInts() {
    return {{"zero", 0U},
            {"above-15-bits", 32768U},
            {"largest-signed", 2147483647U},
            {"above-largest-signed", 2147483648U},
            {"largest", UINT_MAX}};
}

template <class Real, class Bits>
std::vector<ValueCase> reals(Bits otherNan) {
    using Limits = std::numeric_limits<Real>;
    const Real one = 1;
    return {{"zero", Real(0)},
            {"negative-zero", -Real(0), "negative-zero"},
            {"tenth", Real(0.1L)},
            {"third", one / 3},
            {"above-one", std::nextafter(one, Real(2))},
            {"below-one", std::nextafter(one, Real(0))},
            {"large-integer", Real(16777216)},
            {"many-digits", Real(123456.789L)},
            {"negative", Real(-1.5e30L)},
            {"largest", Limits::max()},
            {"lowest", Limits::lowest()},
            {"smallest-normal", Limits::min()},
            {"smallest-denormal", Limits::denorm_min()},
            {"negative-denormal", -Limits::denorm_min()},
            {"largest-denormal", std::nextafter(Limits::min(), Real(0))},
            {"nan", Limits::quiet_NaN(), "nan"},
            {"negative-nan", std::copysign(Limits::quiet_NaN(), -one), "nan"},
            {"nan-with-payload", std::bit_cast<Real>(otherNan), "nan"},
            {"infinity", Limits::infinity(), "infinity"},
            {"negative-infinity", -Limits::infinity(), "infinity"}};
}

String everyByte() {
    std::string text;
    for (int i = 1; i < 256; ++i)
        text += static_cast<char>(i);
    return text.c_str();
}

std::vector<ValueCase> texts() {
    std::vector<ValueCase> cases;
    const auto add = [&](const char* label, const String& text, const char* property = nullptr) {
        cases.push_back({label, text, property});
    };
    add("empty", "");
    add("blank", " ");
    add("blanks", "   ");
    add("trailing-blank", "a ");
    add("leading-blank", " a");
    add("leading-zeros", "007");
    add("like-a-real", "1e3");
    add("like-hexadecimal", "0x1F");
    add("like-null", "NULL");
    add("like-true", "true");
    add("like-infinity", "Infinity");
    add("like-a-date", "2024-02-30");
    add("apostrophe", "it's");
    add("double-quotes", "say \"so\"");
    add("backtick", "`name`");
    add("backslash", "C:\\new\\table");
    add("lone-backslash", "\\");
    add("comment", "a; -- b /* c */");
    add("injection", "Robert'); DROP TABLE \"Valuetext\";--");
    add("percent", "100%");
    add("underscore", "snake_case");
    add("placeholders", "? :name $1 @x {0}");
    add("line-ends", "one\ntwo\r\nthree\rfour");
    add("tab-and-controls", "\t\x01\x02\x1B\x7F");
    add("umlauts", "\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F");
    add("polish", "\xC5\x81\xC3\xB3\x64\xC5\xBA");
    add("combined-umlaut", "\xC3\xA4");
    add("decomposed-umlaut", "a\xCC\x88");
    add("right-to-left", "\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D");
    add("chinese", "\xE4\xB8\xAD\xE6\x96\x87");
    add("emoji", "\xF0\x9F\x98\x80");
    add("last-character", "\xF4\x8F\xBF\xBF");
    add("byte-order-mark", "\xEF\xBB\xBFtext");
    add("longer-than-declared", "a text of more than the forty bytes that the field declares");
    add("blanks-beyond-declared", "a text                                              ");
    add("every-byte", everyByte(), "invalid-utf8");
    add("lone-continuation", "\x80", "invalid-utf8");
    add("overlong-form", "\xC0\x80", "invalid-utf8");
    add("surrogate", "\xED\xA0\x80", "invalid-utf8");
    add("cut-character", "ab\xE2\x82", "invalid-utf8");
    add("beyond-the-last-plane", "\xF4\x90\x80\x80", "invalid-utf8");
    add("65535-bytes", longText(65535));
    cases.push_back({"65536-bytes", String(), "text64k", 65536});
    cases.push_back({"1-mib", String(), "text1m", 1U << 20});
    cases.push_back({"16-mib", String(), "text16m", 1U << 24});
    return cases;
}

Timestamp odd(long days, long seconds) {
    Timestamp time(2000, 1, 1, 0, 0, 0);
    time.setAllDays(days);
    time.setAllSeconds(seconds);
    return time;
}

std::vector<ValueCase> times() {
    const long someDay = Timestamp(2020, 5, 5, 0, 0, 0).getAllDays();
    return {
        {"first", Timestamp(1, 1, 1, 0, 0, 0)},
        {"last", Timestamp(7899, 12, 31, 23, 59, 59)},
        {"before-the-epoch", Timestamp(1969, 12, 31, 23, 59, 59)},
        {"epoch", Timestamp(1970, 1, 1, 0, 0, 0)},
        {"leap-day", Timestamp(2000, 2, 29, 12, 0, 0)},
        {"missing-leap-day", Timestamp(1900, 2, 29, 1, 1, 1)},
        {"last-of-32-bits", Timestamp(2038, 1, 19, 3, 14, 7)},
        {"beyond-32-bits", Timestamp(2038, 1, 19, 3, 14, 8)},
        {"missing-hour", Timestamp(2024, 3, 31, 2, 30, 0)},
        {"missing-hour-overseas", Timestamp(2024, 3, 10, 2, 30, 0)},
        {"doubled-hour", Timestamp(2024, 10, 27, 2, 30, 0)},
        {"skipped-by-the-calendar-reform", Timestamp(1582, 10, 10, 0, 0, 0)},
        {"year-999", Timestamp(999, 9, 9, 9, 9, 9)},
        {"last-second", Timestamp(1999, 12, 31, 23, 59, 59)},
        {"86400-seconds", odd(someDay, 86400), "second-86400"},
        {"86401-seconds", odd(someDay, 86401), "odd-second"},
        {"negative-seconds", odd(someDay, -1), "odd-second"},
        {"day-before-the-first", odd(Timestamp(1, 1, 1, 0, 0, 0).getAllDays() - 1, 0), "odd-time"},
        {"day-after-the-last", odd(Timestamp(7899, 12, 31, 0, 0, 0).getAllDays() + 1, 0),
         "odd-time"},
        {"negative-day", odd(-1000000, 0), "odd-time"}};
}

std::vector<ValueCase> blobs() {
    return {{"none", Blob()},
            {"no-bytes", Blob("", 0)},
            {"one-zero", Blob("", 1)},
            {"text", Blob("text", 4)},
            {"every-byte", longBlob(256)},
            {"quotes", Blob("'\"`\\;--", 7)},
            {"100000-bytes", longBlob(100000)},
            {"16-mib", Blob(), "blob16m", 1U << 24},
            {"100-mb", Blob(), "blob100m", 100000000}};
}

}  // namespace

Value ValueCase::get() const {
    if (bytes == 0)
        return value;
    return std::holds_alternative<Blob>(value) ? Value(longBlob(bytes)) : Value(longText(bytes));
}

std::vector<ValueCase> valueCases(Kind kind) {
    switch (kind) {
    case Kind::ULong: return unsignedLongs();
    case Kind::Long: return longs();
    case Kind::Text: return texts();
    case Kind::Int: return ints();
    case Kind::UInt: return unsignedInts();
    case Kind::Bool: return {{"false", false}, {"true", true}};
    case Kind::Float: return reals<float>(std::uint32_t{0x7FC12345});
    case Kind::Double: return reals<double>(std::uint64_t{0x7FF8123456789ABC});
    case Kind::Time: return times();
    case Kind::Blob: break;
    }
    return blobs();
}

std::vector<Pointer<Object>> storeOddCases(CheckModel& model, const std::string& className,
                                           const std::string& field, Kind kind) {
    std::vector<Pointer<Object>> objects;
    for (const ValueCase& each : valueCases(kind)) {
        if (each.property == nullptr || each.bytes != 0 || isNan(each.value))
            continue;
        Pointer<Object> object;
        const Raised raised = raisedBy([&] {
            transact(model, [&] {
                object = model.make(className);
                (*object)[field] = each.value;
            });
        });
        if (!raised)
            objects.push_back(object);
    }
    return objects;
}

bool isNan(const Value& value) {
    if (const auto* single = std::get_if<float>(&value))
        return std::isnan(*single);
    const auto* twice = std::get_if<double>(&value);
    return twice != nullptr && std::isnan(*twice);
}

String longText(std::size_t bytes) {
    std::string text(bytes, 'x');
    for (std::size_t i = 0; i < bytes; i += 1000)
        text[i] = static_cast<char>('a' + i / 1000 % 26);
    return text.c_str();
}

Blob longBlob(std::size_t bytes) {
    std::string data(bytes, '\0');
    for (std::size_t i = 0; i < bytes; ++i)
        data[i] = static_cast<char>(i * 7 + i / 256);
    return Blob(data.data(), static_cast<int>(bytes));
}

}  // namespace Kes::check
