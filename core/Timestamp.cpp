#include <kes/Timestamp.h>

#include <limits>

#include "core/Platform.h"

namespace Kes {

namespace {

// There are no leap seconds here.
constexpr long DaySeconds = 86400;
constexpr int DaysPerMonth[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

// Nothing says that a stored count is a date's: sums go round at the ends of the
// numbers, where signed ones would be undefined.
long plus(long a, long b) {
    return static_cast<long>(static_cast<unsigned long>(a) + static_cast<unsigned long>(b));
}

long minus(long a, long b) {
    return static_cast<long>(static_cast<unsigned long>(a) - static_cast<unsigned long>(b));
}

long times(long a, long b) {
    return static_cast<long>(static_cast<unsigned long>(a) * static_cast<unsigned long>(b));
}

// a - b, or the nearest int: the order of any two counts survives.
int difference(long a, long b) {
    constexpr int most = std::numeric_limits<int>::max();
    const auto wideA = static_cast<unsigned long>(a);
    const auto wideB = static_cast<unsigned long>(b);
    const unsigned long gap = a > b ? wideA - wideB : wideB - wideA;
    const int size = gap > static_cast<unsigned long>(most) ? most : static_cast<int>(gap);
    return a > b ? size : -size;
}

}  // namespace

Timestamp::Timestamp() {
    const platform::LocalTime t = platform::localTime();
    setTime(t.year, t.month, t.day, t.hour, t.minute, t.second);
}

Timestamp::Timestamp(int year, int month, int day, int hour, int minute, int second) {
    setTime(year, month, day, hour, minute, second);
}

Timestamp Timestamp::now() {
    return Timestamp();
}

void Timestamp::setTime(int year, int month, int day, int hour, int minute, int second) {
    days = getDaysFromYears(year) + getDaysFromMonths(year, month) + day - 1L;
    seconds = hour * 3600L + minute * 60L + second;
}

bool Timestamp::isLeapYear(int year) const {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

long Timestamp::getDaysFromYears(int year) const {
    const long y = year - 1L;
    return y * 365 + y / 4 - y / 100 + y / 400;
}

long Timestamp::getDaysFromMonths(int year, int month) const {
    long sum = 0;
    for (int m = 1; m < month && m <= 12; ++m)
        sum += DaysPerMonth[m - 1];
    return isLeapYear(year) && month > 2 ? sum + 1 : sum;
}

// Exact from the year 1 to 30 December 7900; stored values rely on this very
// formula.
int Timestamp::getYear() const {
    const long v = plus(days, 60);
    const long leaps = v / 1461 - v / 36524 + v / 146097;
    return static_cast<int>(minus(days, leaps) / 365 + 1);
}

int Timestamp::getMonth() const {
    const int year = getYear();
    long rest = minus(days, getDaysFromYears(year));
    int m = 0;
    for (; rest >= 0 && m < 12; ++m) {
        rest -= DaysPerMonth[m] + (m == 1 && isLeapYear(year) ? 1 : 0);
    }
    return m;
}

int Timestamp::getDate() const {
    const int year = getYear();
    const long before = getDaysFromYears(year) + getDaysFromMonths(year, getMonth());
    return static_cast<int>(plus(minus(days, before), 1));
}

int Timestamp::getHour() const {
    return static_cast<int>(seconds / 3600);
}

int Timestamp::getMinute() const {
    return static_cast<int>(seconds % 3600 / 60);
}

int Timestamp::getSecond() const {
    return static_cast<int>(seconds % 60);
}

int Timestamp::getDayOfTheWeek() const {
    return static_cast<int>(days % 7) + 1;
}

bool Timestamp::inLeapYear() const {
    return isLeapYear(getYear());
}

void Timestamp::setYear(int year) {
    const int before = getYear();
    const bool pastFebruary = getMonth() > 2;
    const long old = getDaysFromYears(before) + (isLeapYear(before) && pastFebruary ? 1 : 0);
    days =
        plus(minus(days, old), getDaysFromYears(year) + (isLeapYear(year) && pastFebruary ? 1 : 0));
}

void Timestamp::setMonth(int month) {
    const int year = getYear();
    days = plus(days, getDaysFromMonths(year, month) - getDaysFromMonths(year, getMonth()));
}

void Timestamp::setDate(int date) {
    days = plus(days, static_cast<long>(date) - getDate());
}

void Timestamp::setHour(int hour) {
    seconds = seconds % 3600 + hour * 3600L;
}

void Timestamp::setMinute(int minute) {
    seconds = plus(seconds, (static_cast<long>(minute) - getMinute()) * 60);
}

void Timestamp::setSecond(int second) {
    seconds = plus(seconds, static_cast<long>(second) - getSecond());
}

void Timestamp::addDays(int n) {
    days = plus(days, n);
}

void Timestamp::addYears(int n) {
    setYear(static_cast<int>(static_cast<long>(getYear()) + n));
}

void Timestamp::addMonths(int n) {
    const int before = getYear();
    const int month = getMonth();
    days = minus(days, getDaysFromMonths(before, month));
    const long total = month - 1L + n;  // counted from January, maybe of an earlier year
    const long years = (total >= 0 ? total : total - 11) / 12;
    const int year = static_cast<int>(before + years);
    if (year != before)
        setYear(year);
    days = plus(days, getDaysFromMonths(year, static_cast<int>(total - years * 12) + 1));
}

void Timestamp::addHours(int n) {
    seconds = plus(seconds, n * 3600L);
    carry();
}

void Timestamp::addMinutes(int n) {
    seconds = plus(seconds, n * 60L);
    carry();
}

void Timestamp::addSeconds(int n) {
    seconds = plus(seconds, n);
    carry();
}

void Timestamp::carry() {
    if (seconds / DaySeconds > 0) {
        days = plus(days, seconds / DaySeconds);
        seconds %= DaySeconds;
    }
    if (seconds < 0) {
        const long borrowed = seconds / DaySeconds - 1;
        days = plus(days, borrowed);
        seconds = minus(seconds, times(borrowed, DaySeconds));
    }
}

int Timestamp::compare(const Timestamp& o) const {
    return days != o.days ? difference(days, o.days) : difference(seconds, o.seconds);
}

long Timestamp::operator-(const Timestamp& o) const {
    return plus(times(minus(days, o.days), DaySeconds), minus(seconds, o.seconds));
}

long Timestamp::hash(const Timestamp& t) {
    return t.days ^ t.seconds;
}

}  // namespace Kes
