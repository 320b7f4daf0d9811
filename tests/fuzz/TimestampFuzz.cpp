// Timestamps of any value in any format, and the way there and back. Valid ones
// are held against a calendar that counts days one by one, month by month.

#include <kes/Exception.h>
#include <kes/Timestamp.h>

#include "tests/fuzz/Input.h"

using Kes::String;
using Kes::Timestamp;
using Kes::fuzz::demand;
using Kes::fuzz::Input;

namespace {

// From the year 1000 on, which has the four digits that are read, to 7899.
constexpr long FirstDay = 364877;
constexpr long AllDays = 2885050 - FirstDay;
constexpr long DaySeconds = 86400;
constexpr long FirstYear = 1000;
constexpr long AllYears = 6900;

struct Date {
    long year;
    long month;
    long day;
};

bool isLeap(long year) {
    return year % 400 == 0 || (year % 4 == 0 && year % 100 != 0);
}

long lengthOf(long year, long month) {
    if (month == 2)
        return isLeap(year) ? 29 : 28;
    return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

long lengthOf(long year) {
    return isLeap(year) ? 366 : 365;
}

// All 400 years begin on the same weekday; whole ones are passed over.
Date dateOf(long days) {
    constexpr long cycle = 146097;
    Date date{days / cycle * 400 + 1, 1, days % cycle};
    for (; date.day >= lengthOf(date.year); ++date.year)
        date.day -= lengthOf(date.year);
    for (; date.day >= lengthOf(date.year, date.month); ++date.month)
        date.day -= lengthOf(date.year, date.month);
    ++date.day;
    return date;
}

// Of a date that need not be in the month's calendar: what is too much runs over.
long daysUntil(const Date& date) {
    long days = (date.year - 1) / 400 * 146097 + date.day - 1;
    for (long year = (date.year - 1) / 400 * 400 + 1; year < date.year; ++year)
        days += lengthOf(year);
    for (long month = 1; month < date.month; ++month)
        days += lengthOf(date.year, month);
    return days;
}

std::string digits(long value) {
    return (value < 10 ? "0" : "") + std::to_string(value);
}

const char* const Months[] = {"Januari",   "Februari", "March",    "April",
                              "May",       "June",     "July",     "August",
                              "September", "October",  "November", "December"};
const char* const Days[] = {"Monday", "Tuesday",  "Wednesday", "Thursday",
                            "Friday", "Saterday", "Sunday"};

std::string value(char directive, const Timestamp& t) {
    const Date date = dateOf(t.getAllDays());
    const long weekday = t.getAllDays() % 7;
    const std::string month = Months[date.month - 1];
    const std::string day = Days[weekday];
    const long seconds = t.getAllSeconds();
    switch (directive) {
    case 'a': return day.substr(0, 3);
    case 'A': return day;
    case 'b': return month.substr(0, 3);
    case 'B': return month;
    case 'd': return digits(date.day);
    case 'H': return digits(seconds / 3600);
    case 'm': return digits(date.month);
    case 'M': return digits(seconds / 60 % 60);
    case 'S': return digits(seconds % 60);
    case 'w': return digits(weekday + 1);
    case 'Y': return digits(date.year);
    default: return {};
    }
}

void checkText(const Timestamp& t, const std::string& format) {
    std::string expected;
    for (std::size_t i = 0; i < format.size(); ++i) {
        const char next = i + 1 < format.size() ? format[i + 1] : '\0';
        const bool isDouble = format[i] == '%' && next == '%';
        const std::string filled = format[i] == '%' ? value(next, t) : "";
        expected += isDouble ? "%%" : filled.empty() ? std::string(1, format[i]) : filled;
        i += isDouble || !filled.empty() ? 1 : 0;
    }
    const String found = t.asString(format.c_str());
    demand(expected == static_cast<const char*>(found),
           expected + " as " + static_cast<const char*>(found));
}

// What is written in full is read as it was, from the first day of all on.
void goThereAndBack(const Timestamp& t, const char* format) {
    const String text = t.asString(format);
    Timestamp back(1, 1, 1, 0, 0, 0);
    back.parseString(text, format);
    const String again = back.asString(format);
    demand(back == t, static_cast<const char*>("from " + text + " back to " + again));
}

// All fields once, with any text between them. A year comes before its month, and
// a month before its day, which is the order in which each is kept by the next.
std::string fullFormat(Input& input, std::string filling) {
    std::erase(filling, '%');
    std::string dates = input.choice(2) == 0 ? "Ymd" : input.choice(2) == 0 ? "YBd" : "Ybd";
    std::string times = "HMS";
    std::string format;
    const std::size_t piece = filling.size() / 6;
    for (std::size_t i = 0; i < 6; ++i) {
        const bool isTime = dates.empty() || (!times.empty() && input.choice(2) == 0);
        std::string& from = isTime ? times : dates;
        const std::size_t at = isTime ? input.choice(static_cast<unsigned>(times.size())) : 0;
        format += filling.substr(i * piece, piece) + '%' + from[at];
        from.erase(at, 1);
    }
    return format;
}

bool isIn(const Timestamp& t, long days, long seconds) {
    return t.getAllDays() == days && t.getAllSeconds() == seconds;
}

// The day of the month stays, whatever the length of the month that it comes to.
void checkMonths(const Timestamp& valid, unsigned long wanted) {
    const Date date = dateOf(valid.getAllDays());
    const long month = (date.year - 1) * 12 + date.month - 1;
    const long target = (FirstYear - 1) * 12 + static_cast<long>(wanted % (AllYears * 12));
    const Date then{target / 12 + 1, target % 12 + 1, date.day};
    Timestamp t(valid);
    t.addMonths(static_cast<int>(target - month));
    demand(isIn(t, daysUntil(then), valid.getAllSeconds()),
           std::to_string(target - month) + " months lead to " + std::to_string(t.getAllDays()));

    t = valid;
    t.addYears(static_cast<int>(then.year - date.year));
    demand(
        isIn(t, daysUntil({then.year, date.month, date.day}), valid.getAllSeconds()),
        std::to_string(then.year - date.year) + " years lead to " + std::to_string(t.getAllDays()));
}

// A negative sum that is an exact multiple of a day leaves a full day of seconds.
void checkSeconds(const Timestamp& valid, int seconds) {
    const long sum = valid.getAllSeconds() + seconds;
    const long all = valid.getAllDays() * DaySeconds + sum;
    const bool isFull = sum < 0 && sum % DaySeconds == 0;
    Timestamp t(valid);
    t.addSeconds(seconds);
    demand(isIn(t, all / DaySeconds - (isFull ? 1 : 0), isFull ? DaySeconds : all % DaySeconds),
           std::to_string(seconds) + " seconds lead to " + std::to_string(t.getAllDays()) + ", " +
               std::to_string(t.getAllSeconds()));
    demand(t - valid == seconds && valid - t == -static_cast<long>(seconds), "another difference");
}

void checkOrder(const Timestamp& a, const Timestamp& b) {
    const bool isLess = a.getAllDays() != b.getAllDays() ? a.getAllDays() < b.getAllDays()
                                                         : a.getAllSeconds() < b.getAllSeconds();
    const bool isSame = isIn(a, b.getAllDays(), b.getAllSeconds());
    demand((a < b) == isLess && (b > a) == isLess, "another order");
    demand((a == b) == isSame && (a != b) == !isSame, "an equality that is none");
    demand((a >= b) == !isLess && (b <= a) == !isLess, "an order that depends on the side");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Timestamp any(2000, 1, 1, 0, 0, 0);
    any.setAllDays(input.number<long>());
    any.setAllSeconds(input.number<long>());
    const std::string format = input.text().c_str();
    const std::string text = input.text().c_str();

    Timestamp valid(any);
    const auto wideDays = static_cast<unsigned long>(any.getAllDays());
    valid.setAllDays(FirstDay + static_cast<long>(wideDays % AllDays));
    valid.setAllSeconds(
        static_cast<long>(static_cast<unsigned long>(any.getAllSeconds()) % DaySeconds));
    goThereAndBack(valid, "%Y-%m-%d %H:%M:%S");
    goThereAndBack(valid, "on %Y %B %d, %S %M %H");
    goThereAndBack(valid, fullFormat(input, format).c_str());
    checkText(valid, format);
    checkMonths(valid, wideDays / AllDays);
    checkSeconds(valid, static_cast<int>(any.getAllSeconds()));
    checkOrder(any, valid);
    checkOrder(any, any);

    for (Timestamp* t : {&any, &valid}) {
        static_cast<void>(t->asString(format.c_str()));
        try {
            t->parseString(text.c_str(), format.c_str());
        } catch (const Kes::Exception& refused) {
            demand(std::string(refused.getCode()) == "E_TSPARSE", refused.getMessage());
        }
        static_cast<void>(t->asString(format.c_str()));
        const Timestamp before(*t);
        t->addMonths(static_cast<int>(any.getAllDays()));
        t->addSeconds(static_cast<int>(any.getAllSeconds()));
        checkOrder(before, *t);
    }
    return 0;
}
