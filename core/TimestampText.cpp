#include <kes/Timestamp.h>

#include <cstring>

#include <kes/Exception.h>

namespace Kes {

namespace {

template <std::size_t N>
ValVector<String> listOf(const char* const (&names)[N]) {
    ValVector<String> list(10, 10);
    for (const char* name : names)
        list.add(String::constant(name));
    return list;
}

// The tables belong to all threads, but a text's owners are counted without
// locks: the names are constants, whose owners nobody counts. The tables are
// never destroyed, so that a timestamp can be formatted until the process ends.
//
// The spelling of the names is part of stored texts.
ValVector<String>& longMonthNames() {
    static auto& names = *new ValVector<String>(
        listOf({"Januari", "Februari", "March", "April", "May", "June", "July", "August",
                "September", "October", "November", "December"}));
    return names;
}

ValVector<String>& shortMonthNames() {
    static auto& names = *new ValVector<String>(listOf(
        {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"}));
    return names;
}

ValVector<String>& longDayNames() {
    static auto& names = *new ValVector<String>(
        listOf({"Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saterday", "Sunday"}));
    return names;
}

ValVector<String>& shortDayNames() {
    static auto& names =
        *new ValVector<String>(listOf({"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"}));
    return names;
}

ValVector<String> constantsOf(const ValVector<String>& names) {
    ValVector<String> constants(10, 10);
    for (int i = 0; i < names.size(); ++i)
        constants.add(String::constant(names[i]));
    return constants;
}

const String& nameAt(const ValVector<String>& names, int number) {
    static const String none;
    return number >= 1 && number <= names.size() ? names[number - 1] : none;
}

void fail(const char* message) {
    Exception(Exception::ERROR, "E_TSPARSE", "Timestamp::assignFormat", message).handle();
}

int readNumber(const char* text, std::size_t digits) {
    char copy[8];
    std::strncpy(copy, text, digits);
    copy[digits] = '\0';
    return String(static_cast<const char*>(copy)).parseInt();
}

// The number of the first name that the text begins with, 0 for none.
int matchName(const char* text, const ValVector<String>& names, std::size_t& length) {
    for (int i = 0; i < names.size(); ++i) {
        length = std::strlen(names[i]);
        if (std::strncmp(text, names[i], length) == 0)
            return i + 1;
    }
    length = 0;
    return 0;
}

}  // namespace

void Timestamp::setLongMonthNames(const ValVector<String>& names) {
    longMonthNames() = constantsOf(names);
}

void Timestamp::setShortMonthNames(const ValVector<String>& names) {
    shortMonthNames() = constantsOf(names);
}

void Timestamp::setLongDayNames(const ValVector<String>& names) {
    longDayNames() = constantsOf(names);
}

void Timestamp::setShortDayNames(const ValVector<String>& names) {
    shortDayNames() = constantsOf(names);
}

const String& Timestamp::getLongMonthName(int month) {
    return nameAt(longMonthNames(), month);
}

const String& Timestamp::getShortMonthName(int month) {
    return nameAt(shortMonthNames(), month);
}

const String& Timestamp::getLongDayName(int day) {
    return nameAt(longDayNames(), day);
}

const String& Timestamp::getShortDayName(int day) {
    return nameAt(shortDayNames(), day);
}

int Timestamp::parseLongMonthName(const String& name) {
    return longMonthNames().find(name) + 1;
}

int Timestamp::parseShortMonthName(const String& name) {
    return shortMonthNames().find(name) + 1;
}

int Timestamp::parseLongDayName(const String& name) {
    return longDayNames().find(name) + 1;
}

int Timestamp::parseShortDayName(const String& name) {
    return shortDayNames().find(name) + 1;
}

String Timestamp::getPaddedString(int value) const {
    String padded;
    padded.assignFormat("%02d", value);
    return padded;
}

String Timestamp::asString(const char* format) const {
    String w(format);
    for (int p = w.indexOf("%"); p != -1; p = w.indexOf("%", p + 1)) {
        const char directive[3] = {'%', w[p + 1], '\0'};
        String value;
        switch (directive[1]) {
        case 'a': value = getShortDayName(getDayOfTheWeek()); break;
        case 'A': value = getLongDayName(getDayOfTheWeek()); break;
        case 'b': value = getShortMonthName(getMonth()); break;
        case 'B': value = getLongMonthName(getMonth()); break;
        case 'd': value = getPaddedString(getDate()); break;
        case 'H': value = getPaddedString(getHour()); break;
        case 'm': value = getPaddedString(getMonth()); break;
        case 'M': value = getPaddedString(getMinute()); break;
        case 'S': value = getPaddedString(getSecond()); break;
        case 'w': value = getPaddedString(getDayOfTheWeek()); break;
        case 'Y': value = getPaddedString(getYear()); break;
        case '%': ++p; continue;
        default: continue;
        }
        w = w.replace(directive, value, p);
    }
    return w;
}

void Timestamp::parseString(const char* itsText, const char* itsFormat) {
    const char* const text = itsText != nullptr ? itsText : "";
    const char* const format = itsFormat != nullptr ? itsFormat : "";
    const std::size_t formatSize = std::strlen(format);
    const std::size_t textSize = std::strlen(text);
    const char* found = std::strchr(format, '%');
    std::size_t t = found != nullptr ? static_cast<std::size_t>(found - format) : 0;
    while (found != nullptr) {
        // A text that ends early is read as far as it goes.
        const char* at = text + (t < textSize ? t : textSize);
        std::size_t width = 2;
        std::size_t length = 2;
        int number = 0;
        switch (found[1]) {
        case 'H': setHour(readNumber(at, 2)); break;
        case 'd':
            if ((number = readNumber(at, 2)) == 0)
                fail("indicated day of month is invalid");
            setDate(number);
            break;
        case 'm':
            if ((number = readNumber(at, 2)) == 0)
                fail("indicated month is invalid");
            setMonth(number);
            break;
        case 'M': setMinute(readNumber(at, 2)); break;
        case 'S': setSecond(readNumber(at, 2)); break;
        case 'Y':
            setYear(readNumber(at, 4));
            length = 4;
            break;
        case 'B':
        case 'b': {
            const bool isLong = found[1] == 'B';
            number = matchName(at, isLong ? longMonthNames() : shortMonthNames(), length);
            if (number != 0)
                setMonth(number);
            else
                fail(isLong ? "indicated long month name not found"
                            : "indicated short month name not found");
            break;
        }
        default: width = 1; length = 1;
        }
        const std::size_t f = static_cast<std::size_t>(found - format) + width;
        const char* next = f < formatSize ? std::strchr(format + f, '%') : nullptr;
        t += length;
        if (next != nullptr)
            t += static_cast<std::size_t>(next - format) - f;
        found = next;
    }
}

}  // namespace Kes
