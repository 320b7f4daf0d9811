// Local date and time to the second.

#pragma once

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/String.h>
#include <kes/ValVector.h>

namespace Kes {

/// A calendar date and a time of day, without time zone, in the proleptic
/// Gregorian calendar. Valid for the years 1 to 7899; nothing checks the range.
class KES_EXPORT Timestamp {
public:
    /// The current local time.
    Timestamp();

    /// Nothing is checked: a day of 32 lands in the next month.
    Timestamp(int year, int month, int day, int hour, int minute, int second);
    static Timestamp now();
    void setTime(int year, int month, int day, int hour, int minute, int second);

    /// Days since 1 January of the year 1, and whole seconds since midnight:
    /// how the value is stored.
    long getAllDays() const { return days; }
    void setAllDays(long newDays) { days = newDays; }
    long getAllSeconds() const { return seconds; }
    void setAllSeconds(long newSeconds) { seconds = newSeconds; }

    /// Calendar fields: months from 1 (January) to 12, days of the month from 1 to 31,
    /// hours from 0 to 23, minutes and seconds from 0 to 59. Worked out on each call.
    int getYear() const;
    int getMonth() const;
    int getDate() const;
    int getHour() const;
    int getMinute() const;
    int getSecond() const;

    /// 1 is Monday, 7 is Sunday.
    int getDayOfTheWeek() const;
    bool inLeapYear() const;

    /// The setters keep the other fields as far as the calendar allows; none
    /// normalises.
    void setYear(int year);
    void setMonth(int month);
    void setDate(int date);
    void setHour(int hour);
    void setMinute(int minute);
    void setSecond(int second);

    /// Move the date by `n`, which may be below 0; the time of day stays. A day that
    /// the month reached does not have runs over into the next: 31 January and a month
    /// is 3 March, or 2 March in a leap year.
    void addDays(int n);
    void addMonths(int n);
    void addYears(int n);

    /// Carry into the days. A negative sum that is an exact multiple of a day
    /// borrows one day too many and leaves 86,400 seconds; stored values rely
    /// on this.
    void addHours(int n);
    void addMinutes(int n);
    void addSeconds(int n);

    /// The difference in days, or in seconds of the same day; at most as far
    /// from 0 as an int can say.
    int compare(const Timestamp& o) const;
    bool operator<(const Timestamp& o) const { return compare(o) < 0; }
    bool operator<=(const Timestamp& o) const { return compare(o) <= 0; }
    bool operator>(const Timestamp& o) const { return compare(o) > 0; }
    bool operator>=(const Timestamp& o) const { return compare(o) >= 0; }
    bool operator==(const Timestamp& o) const { return compare(o) == 0; }
    bool operator!=(const Timestamp& o) const { return compare(o) != 0; }
    bool before(const Timestamp& o) const { return *this < o; }
    bool after(const Timestamp& o) const { return *this > o; }

    /// In seconds.
    long operator-(const Timestamp& o) const;
    static long hash(const Timestamp& t);

    /// Replaces %a %A %b %B %d %H %m %M %S %w %Y; "%%" and unknown directives
    /// stay as they are.
    String asString(const char* format) const;

    /// Sets the fields that the format names from a text laid out alike. Raises
    /// E_TSPARSE (ERROR) for an unknown month name and a day or month of 0, and
    /// carries on when the handler returns.
    void parseString(const char* text, const char* format);

    /// Replace a process-wide name table by a copy, whose texts are never freed.
    /// Not while other threads format or parse.
    static void setLongMonthNames(const ValVector<String>& names);
    static void setShortMonthNames(const ValVector<String>& names);
    static void setLongDayNames(const ValVector<String>& names);
    static void setShortDayNames(const ValVector<String>& names);

    /// Months count from 1 (January), days from 1 (Monday). "" outside. Any thread
    /// may copy the texts.
    static const String& getLongMonthName(int month);
    static const String& getShortMonthName(int month);
    static const String& getLongDayName(int day);
    static const String& getShortDayName(int day);

    /// The number of the entry that equals the text; 0 when there is none.
    static int parseLongMonthName(const String& name);
    static int parseShortMonthName(const String& name);
    static int parseLongDayName(const String& name);
    static int parseShortDayName(const String& name);

protected:
    bool isLeapYear(int year) const;
    long getDaysFromYears(int year) const;
    long getDaysFromMonths(int year, int month) const;

    /// At least two digits, padded with zeros.
    String getPaddedString(int value) const;

private:
    void carry();

    long days;
    long seconds;
};

}  // namespace Kes
