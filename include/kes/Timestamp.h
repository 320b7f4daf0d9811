// Date and time.

#pragma once

#include <kes/Export.h>
#include <kes/String.h>
#include <kes/ValVector.h>

namespace Kes {

/// A local date and time of day, to the second, without a time zone, in the
/// Gregorian calendar extended to all years.
///
/// The calendar is exact for the years 1 to 7899; nothing checks the range.
/// Setters do not normalise: a day of 32 lands in the next month.
class KES_EXPORT Timestamp {
public:
    /// The clock's time in the time zone of the process.
    Timestamp();

    /// As setTime() with the same arguments.
    Timestamp(int year, int month, int day, int hour, int minute, int second);

    static Timestamp now();

    /// Months and days count from 1. A month above 13 counts as month 13.
    void setTime(int year, int month, int day, int hour, int minute, int second);

    /// Days since 1 January of year 1, and seconds since midnight: what is
    /// stored. Nothing is checked.
    long getAllDays() const { return days; }
    void setAllDays(long newDays) { days = newDays; }
    long getAllSeconds() const { return seconds; }
    void setAllSeconds(long newSeconds) { seconds = newSeconds; }

    int getYear() const;
    /// 1 to 12.
    int getMonth() const;
    /// The day of the month, from 1.
    int getDate() const;
    int getHour() const;
    int getMinute() const;
    int getSecond() const;
    /// 1 (Monday) to 7 (Sunday).
    int getDayOfTheWeek() const;
    bool inLeapYear() const;

    /// Keeps month and day; 29 February becomes 1 March in a common year.
    void setYear(int year);
    /// Keeps the day of the month, which may spill into the month after.
    void setMonth(int month);
    void setDate(int day);
    void setHour(int hour);
    void setMinute(int minute);
    void setSecond(int second);

    void addYears(int years);
    /// Keeps the day of the month, which may spill into the month after.
    void addMonths(int months);
    void addDays(int number);

    /// These carry into the day. Whoever steps back to exactly midnight of an
    /// earlier day gets the day before it with 86,400 seconds; stored values
    /// may hold such times, so the carry stays as it is.
    void addHours(int hours);
    void addMinutes(int minutes);
    void addSeconds(int number);

    /// The difference in days if the days differ, otherwise in seconds; held
    /// within the range of int.
    int compare(const Timestamp& other) const;

    bool operator==(const Timestamp& other) const { return compare(other) == 0; }
    bool operator!=(const Timestamp& other) const { return compare(other) != 0; }
    bool operator<(const Timestamp& other) const { return compare(other) < 0; }
    bool operator<=(const Timestamp& other) const { return compare(other) <= 0; }
    bool operator>(const Timestamp& other) const { return compare(other) > 0; }
    bool operator>=(const Timestamp& other) const { return compare(other) >= 0; }
    bool before(const Timestamp& other) const { return *this < other; }
    bool after(const Timestamp& other) const { return *this > other; }

    /// This time minus the other, in seconds.
    long operator-(const Timestamp& other) const;

    static long hash(const Timestamp& timestamp);

    /// Formats this time. Of the directives, %a and %A give the short and long
    /// name of the day, %b and %B those of the month; %d, %m, %Y the date, %H, %M,
    /// %S the time and %w the day of the week as numbers of at least two digits.
    /// Anything else stands as it is, also "%%".
    String asString(const char* format) const;

    /// Sets the fields that the directives %Y, %m, %B, %b, %d, %H, %M and %S of
    /// `format` name, one after the other, from `text`.
    ///
    /// %Y takes four characters, the other numbers two, the names their length.
    /// Text between the directives is skipped by count. Raises E_TSPARSE (ERROR)
    /// for an unknown month name and for a day or month of 0; if the handler
    /// returns, the directives that follow are still read.
    void parseString(const char* text, const char* format);

    /// The names that asString() and parseString() use, January and Monday
    /// first. One set for the whole process, not guarded: replace them before
    /// other threads use timestamps.
    static void setLongMonthNames(const ValVector<String>& names);
    static void setShortMonthNames(const ValVector<String>& names);
    static void setLongDayNames(const ValVector<String>& names);
    static void setShortDayNames(const ValVector<String>& names);

    /// The name of month 1 to 12 or day 1 (Monday) to 7; "" for any other number.
    static const String& getLongMonthName(int month);
    static const String& getShortMonthName(int month);
    static const String& getLongDayName(int day);
    static const String& getShortDayName(int day);

    /// The number that belongs to a name, from 1; 0 when there is no such name.
    static int parseLongMonthName(const String& name);
    static int parseShortMonthName(const String& name);
    static int parseLongDayName(const String& name);
    static int parseShortDayName(const String& name);

protected:
    bool isLeapYear(int year) const;
    /// The days before 1 January of `year`.
    long getDaysFromYears(int year) const;
    /// The days from 1 January to the first of `month`.
    long getDaysFromMonths(int year, int month) const;
    /// At least two digits.
    String getPaddedString(int value) const;

private:
    void carrySeconds();

    long days;     // 0 is 1 January of year 1
    long seconds;  // since midnight
};

}  // namespace Kes
