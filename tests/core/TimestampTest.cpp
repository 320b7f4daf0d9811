// Calendar arithmetic.

#include <kes/Timestamp.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <string>

namespace Kes {
namespace {

Timestamp at(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    return Timestamp(year, month, day, hour, minute, second);
}

void expectDate(const Timestamp& t, int year, int month, int day) {
    EXPECT_EQ(t.getYear(), year);
    EXPECT_EQ(t.getMonth(), month);
    EXPECT_EQ(t.getDate(), day);
}

void expectTime(const Timestamp& t, int hour, int minute, int second) {
    EXPECT_EQ(t.getHour(), hour);
    EXPECT_EQ(t.getMinute(), minute);
    EXPECT_EQ(t.getSecond(), second);
}

TEST(TimestampTest, CountsDaysFromTheFirst) {
    EXPECT_EQ(at(1, 1, 1).getAllDays(), 0);
    EXPECT_EQ(at(1, 1, 2).getAllDays(), 1);
    EXPECT_EQ(at(2000, 3, 1).getAllDays(), 730179);
    EXPECT_EQ(at(1970, 1, 1).getAllDays(), 719162);
}

TEST(TimestampTest, CountsSecondsFromMidnight) {
    EXPECT_EQ(at(2000, 1, 1).getAllSeconds(), 0);
    EXPECT_EQ(at(2000, 1, 1, 23, 59, 59).getAllSeconds(), 86399);
}

TEST(TimestampTest, GivesBackTheFieldsItIsMadeFrom) {
    const Timestamp t = at(2004, 2, 29, 13, 14, 15);

    expectDate(t, 2004, 2, 29);
    expectTime(t, 13, 14, 15);
    EXPECT_TRUE(t.inLeapYear());
}

TEST(TimestampTest, GivesBackEveryDateOfItsRange) {
    const int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    long expected = 0;
    for (int year = 1; year <= 7899; ++year) {
        const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
        for (int month = 1; month <= 12; ++month) {
            const int length = lengths[month - 1] + (month == 2 && leap ? 1 : 0);
            for (const int day : {1, length}) {
                const Timestamp t = at(year, month, day);
                ASSERT_EQ(t.getAllDays(), expected + day - 1) << year << '-' << month;
                ASSERT_EQ(t.getYear(), year) << year << '-' << month << '-' << day;
                ASSERT_EQ(t.getMonth(), month) << year << '-' << month << '-' << day;
                ASSERT_EQ(t.getDate(), day) << year << '-' << month << '-' << day;
                ASSERT_EQ(t.inLeapYear(), leap) << year;
            }
            expected += length;
        }
    }
}

TEST(TimestampTest, GivesAWrongYearFromTheLastDayOf7900) {
    EXPECT_EQ(at(7900, 12, 30).getYear(), 7900);
    EXPECT_EQ(at(7900, 12, 31).getYear(), 7901);
}

TEST(TimestampTest, LetsADayTooManyLandInTheNextMonth) {
    expectDate(at(2003, 1, 32), 2003, 2, 1);
}

TEST(TimestampTest, TakesItsCountsAsTheyAre) {
    Timestamp t = at(2000, 1, 1);

    t.setAllDays(730179);
    t.setAllSeconds(86400);

    expectDate(t, 2000, 3, 1);
    EXPECT_EQ(t.getAllSeconds(), 86400);
    EXPECT_EQ(t.getHour(), 24);
}

TEST(TimestampTest, BeginsTheWeekOnMonday) {
    EXPECT_EQ(at(1, 1, 1).getDayOfTheWeek(), 1);
    EXPECT_EQ(at(2002, 1, 5).getDayOfTheWeek(), 6);
    EXPECT_EQ(at(2002, 1, 6).getDayOfTheWeek(), 7);
    EXPECT_EQ(at(2002, 1, 7).getDayOfTheWeek(), 1);
}

TEST(TimestampTest, KnowsLeapYears) {
    EXPECT_TRUE(at(2000, 6, 1).inLeapYear());
    EXPECT_TRUE(at(2004, 6, 1).inLeapYear());
    EXPECT_FALSE(at(1900, 6, 1).inLeapYear());
    EXPECT_FALSE(at(2003, 6, 1).inLeapYear());
}

TEST(TimestampTest, IsNowByDefault) {
    const auto local = [] {
        const std::time_t now = std::time(nullptr);
        const std::tm* parts = std::localtime(&now);
        return at(parts->tm_year + 1900, parts->tm_mon + 1, parts->tm_mday, parts->tm_hour,
                  parts->tm_min, parts->tm_sec);
    };

    const Timestamp before = local();
    const Timestamp made;
    const Timestamp asked = Timestamp::now();
    const Timestamp after = local();

    EXPECT_LE(before, made);
    EXPECT_LE(made, asked);
    EXPECT_LE(asked, after);
}

TEST(TimestampTest, KeepsTheDateWhenTheYearIsSet) {
    const struct {
        Timestamp from;
        int year;
        Timestamp to;
    } cases[] = {
        {at(2003, 5, 6), 2010, at(2010, 5, 6)},     {at(2004, 1, 31), 2001, at(2001, 1, 31)},
        {at(2003, 12, 31), 2004, at(2004, 12, 31)}, {at(2004, 12, 31), 2003, at(2003, 12, 31)},
        {at(2004, 2, 29), 2008, at(2008, 2, 29)},   {at(2004, 2, 29), 2005, at(2005, 3, 1)},
        {at(2004, 2, 28), 2005, at(2005, 2, 28)},
    };
    for (const auto& c : cases) {
        Timestamp t = c.from;
        t.setYear(c.year);
        EXPECT_EQ(t.getAllDays(), c.to.getAllDays()) << c.to.asString("%Y-%m-%d");
    }
}

TEST(TimestampTest, KeepsTheDayWhenTheMonthIsSet) {
    Timestamp t = at(2003, 5, 6);
    t.setMonth(12);
    expectDate(t, 2003, 12, 6);

    t = at(2003, 1, 31);
    t.setMonth(2);
    expectDate(t, 2003, 3, 3);

    t = at(2004, 1, 31);
    t.setMonth(2);
    expectDate(t, 2004, 3, 2);
}

TEST(TimestampTest, SetsTheDayOfTheMonth) {
    Timestamp t = at(2003, 5, 6);

    t.setDate(31);
    expectDate(t, 2003, 5, 31);

    t.setDate(32);
    expectDate(t, 2003, 6, 1);
}

TEST(TimestampTest, SetsEachPartOfTheTimeAlone) {
    Timestamp t = at(2003, 5, 6, 1, 2, 3);

    t.setHour(10);
    expectTime(t, 10, 2, 3);
    t.setMinute(20);
    expectTime(t, 10, 20, 3);
    t.setSecond(30);
    expectTime(t, 10, 20, 30);

    t.setSecond(90);
    expectTime(t, 10, 21, 30);
    t.setHour(25);
    EXPECT_EQ(t.getHour(), 25);
    expectDate(t, 2003, 5, 6);
}

TEST(TimestampTest, AddsDaysAndYears) {
    Timestamp t = at(2003, 12, 31, 1, 2, 3);

    t.addDays(1);
    expectDate(t, 2004, 1, 1);
    t.addDays(-2);
    expectDate(t, 2003, 12, 30);
    t.addYears(10);
    expectDate(t, 2013, 12, 30);
    expectTime(t, 1, 2, 3);
}

TEST(TimestampTest, MovesTheLeapDayToTheFirstOfMarch) {
    Timestamp t = at(2004, 2, 29);

    t.addYears(1);

    expectDate(t, 2005, 3, 1);
}

TEST(TimestampTest, AddsMonthsOverTheYear) {
    const struct {
        Timestamp from;
        int months;
        Timestamp to;
    } cases[] = {
        {at(2003, 5, 6), 0, at(2003, 5, 6)},      {at(2003, 5, 6), 7, at(2003, 12, 6)},
        {at(2003, 5, 6), 8, at(2004, 1, 6)},      {at(2003, 5, 6), 20, at(2005, 1, 6)},
        {at(2003, 5, 6), -4, at(2003, 1, 6)},     {at(2003, 5, 6), -5, at(2002, 12, 6)},
        {at(2003, 5, 6), -17, at(2001, 12, 6)},   {at(2003, 1, 31), 1, at(2003, 3, 3)},
        {at(2003, 12, 6), 12, at(2004, 12, 6)},   {at(2004, 12, 6), -12, at(2003, 12, 6)},
        {at(2003, 5, 6), -12000, at(1003, 5, 6)}, {at(2003, 5, 6), 12000, at(3003, 5, 6)},
    };
    for (const auto& c : cases) {
        Timestamp t = c.from;
        t.addMonths(c.months);
        EXPECT_EQ(t.getAllDays(), c.to.getAllDays()) << c.to.asString("%Y-%m-%d");
    }
}

TEST(TimestampTest, CarriesAddedTimeIntoTheDays) {
    Timestamp t = at(2003, 12, 31, 23, 59, 59);

    t.addSeconds(1);
    expectDate(t, 2004, 1, 1);
    expectTime(t, 0, 0, 0);

    t.addMinutes(24 * 60 + 5);
    expectDate(t, 2004, 1, 2);
    expectTime(t, 0, 5, 0);

    t.addHours(49);
    expectDate(t, 2004, 1, 4);
    expectTime(t, 1, 5, 0);
}

TEST(TimestampTest, BorrowsSubtractedTimeFromTheDays) {
    Timestamp t = at(2004, 1, 1);

    t.addSeconds(-1);
    expectDate(t, 2003, 12, 31);
    expectTime(t, 23, 59, 59);

    t.addMinutes(-24 * 60);
    expectDate(t, 2003, 12, 30);
    expectTime(t, 23, 59, 59);

    t.addHours(-25);
    expectDate(t, 2003, 12, 29);
    expectTime(t, 22, 59, 59);
}

TEST(TimestampTest, BorrowsADayTooManyForWholeDays) {
    Timestamp t = at(2004, 1, 3);

    t.addHours(-24);

    EXPECT_EQ(t.getAllDays(), at(2004, 1, 1).getAllDays());
    EXPECT_EQ(t.getAllSeconds(), 86400);
}

TEST(TimestampTest, AddsTheLargestNumbersWithoutLosingAny) {
    Timestamp t = at(2000, 1, 1);

    t.addHours(INT_MAX);
    t.addHours(-INT_MAX);

    EXPECT_EQ(t - at(2000, 1, 1), 0);
}

TEST(TimestampTest, ComparesByDaysAndThenBySeconds) {
    const Timestamp t = at(2004, 1, 2, 12);

    EXPECT_EQ(t.compare(t), 0);
    EXPECT_EQ(t.compare(at(2004, 1, 1, 12)), 1);
    EXPECT_EQ(t.compare(at(2004, 1, 3, 12)), -1);
    EXPECT_EQ(t.compare(at(2003, 1, 2, 23)), 365);
    EXPECT_EQ(t.compare(at(2004, 1, 2, 11)), 3600);
    EXPECT_EQ(t.compare(at(2004, 1, 2, 12, 0, 1)), -1);
}

TEST(TimestampTest, OrdersCountsThatAreFarApart) {
    Timestamp low = at(2000, 1, 1);
    Timestamp high = low;
    low.setAllDays(LONG_MIN);
    high.setAllDays(LONG_MAX);

    EXPECT_LT(low, high);
    EXPECT_GT(high, low);
    EXPECT_EQ(high.compare(low), INT_MAX);
    EXPECT_EQ(low.compare(high), -INT_MAX);

    low.setAllDays(0);
    high.setAllDays(1L << 32);
    EXPECT_NE(low, high);
}

TEST(TimestampTest, AnswersWhichIsEarlier) {
    const Timestamp early = at(2004, 1, 1);
    const Timestamp late = at(2004, 1, 2);

    EXPECT_TRUE(early < late && early <= late && early <= early);
    EXPECT_TRUE(late > early && late >= early && late >= late);
    EXPECT_TRUE(early == early && early != late);
    EXPECT_FALSE(early < early || early > early || early == late || early != early);
    EXPECT_TRUE(early.before(late) && late.after(early));
    EXPECT_FALSE(late.before(early) || early.after(early));
}

TEST(TimestampTest, SubtractsToSeconds) {
    EXPECT_EQ(at(2004, 1, 2, 1) - at(2004, 1, 1, 2), 82800);
    EXPECT_EQ(at(2004, 1, 1, 2) - at(2004, 1, 2, 1), -82800);
}

TEST(TimestampTest, HashesItsCounts) {
    const Timestamp t = at(2000, 3, 1, 0, 0, 5);

    EXPECT_EQ(Timestamp::hash(t), 730179 ^ 5);
}

TEST(TimestampTest, FollowsATimeZoneThatChanges) {
    const char* const before = std::getenv("TZ");
    const std::string kept = before != nullptr ? before : "";
    setenv("TZ", "UTC0", 1);
    const Timestamp here;
    setenv("TZ", "EAST-9", 1);
    const Timestamp there;
    if (before != nullptr)
        setenv("TZ", kept.c_str(), 1);
    else
        unsetenv("TZ");
    static_cast<void>(Timestamp());

    EXPECT_LT(std::labs(there - here - 9 * 3600L), 5);
}

// Whatever comes out: nothing of it is undefined, which the sanitizer tells.
TEST(TimestampTest, GoesRoundAtTheEndsOfTheNumbers) {
    for (const long days : {LONG_MIN, LONG_MIN + 1, -1L, LONG_MAX - 1, LONG_MAX})
        for (const long seconds : {LONG_MIN, 0L, LONG_MAX})
            for (const int n : {INT_MIN, -1, INT_MAX}) {
                Timestamp t(2004, 2, 29, 0, 0, 0);
                const Timestamp other(n, n, n, n, n, n);
                for (void (Timestamp::*change)(int) :
                     {&Timestamp::addYears, &Timestamp::addMonths, &Timestamp::addDays,
                      &Timestamp::addHours, &Timestamp::addMinutes, &Timestamp::addSeconds,
                      &Timestamp::setYear, &Timestamp::setMonth, &Timestamp::setDate,
                      &Timestamp::setHour, &Timestamp::setMinute, &Timestamp::setSecond}) {
                    t.setAllDays(days);
                    t.setAllSeconds(seconds);
                    (t.*change)(n);
                    static_cast<void>(t - other);
                    EXPECT_GE(t.getMonth(), 0);
                    EXPECT_LE(t.getMonth(), 12);
                }
            }
}

}  // namespace
}  // namespace Kes
