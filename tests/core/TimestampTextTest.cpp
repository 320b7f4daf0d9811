// Formatting and parsing.

#include <kes/Timestamp.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include <kes/Exception.h>

#include "tests/support/Raises.h"

namespace Kes {
namespace {

using testing::messageRaisedBy;
using testing::ReturningHandler;

const char* const wholeFormat = "%Y-%m-%d %H:%M:%S";
const Timestamp march(2004, 3, 7, 9, 5, 0);
const Timestamp saturday(2002, 1, 5, 9, 3, 7);

// What the text makes of a moment whose every field differs from the text's.
std::string parsed(const char* text, const char* format) {
    Timestamp t(1999, 11, 12, 13, 14, 15);
    t.parseString(text, format);
    return static_cast<const char*>(t.asString(wholeFormat));
}

// Puts the tables back that a test replaces.
class TimestampNamesTest : public ::testing::Test {
protected:
    TimestampNamesTest()
        : longMonths(10, 10),
          shortMonths(10, 10),
          longDays(10, 10),
          shortDays(10, 10) {
        for (int i = 1; i <= 12; ++i) {
            longMonths.add(Timestamp::getLongMonthName(i));
            shortMonths.add(Timestamp::getShortMonthName(i));
        }
        for (int i = 1; i <= 7; ++i) {
            longDays.add(Timestamp::getLongDayName(i));
            shortDays.add(Timestamp::getShortDayName(i));
        }
    }
    ~TimestampNamesTest() override {
        Timestamp::setLongMonthNames(longMonths);
        Timestamp::setShortMonthNames(shortMonths);
        Timestamp::setLongDayNames(longDays);
        Timestamp::setShortDayNames(shortDays);
    }

    static ValVector<String> numbered(const char* prefix, int n) {
        ValVector<String> names(10, 10);
        for (int i = 1; i <= n; ++i)
            names.add(String(prefix) + String(i));
        return names;
    }

private:
    ValVector<String> longMonths;
    ValVector<String> shortMonths;
    ValVector<String> longDays;
    ValVector<String> shortDays;
};

TEST(TimestampTextTest, NamesTheMonths) {
    const char* const longNames[] = {"Januari",   "Februari", "March",    "April",
                                     "May",       "June",     "July",     "August",
                                     "September", "October",  "November", "December"};
    const char* const shortNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (int month = 1; month <= 12; ++month) {
        const char* longName = longNames[month - 1];
        const char* shortName = shortNames[month - 1];
        EXPECT_EQ(Timestamp::getLongMonthName(month), longName);
        EXPECT_EQ(Timestamp::getShortMonthName(month), shortName);
        EXPECT_EQ(Timestamp::parseLongMonthName(longName), month);
        EXPECT_EQ(Timestamp::parseShortMonthName(shortName), month);
    }
}

TEST(TimestampTextTest, NamesTheDays) {
    const char* const longNames[] = {"Monday", "Tuesday",  "Wednesday", "Thursday",
                                     "Friday", "Saterday", "Sunday"};
    const char* const shortNames[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
    for (int day = 1; day <= 7; ++day) {
        const char* longName = longNames[day - 1];
        const char* shortName = shortNames[day - 1];
        EXPECT_EQ(Timestamp::getLongDayName(day), longName);
        EXPECT_EQ(Timestamp::getShortDayName(day), shortName);
        EXPECT_EQ(Timestamp::parseLongDayName(longName), day);
        EXPECT_EQ(Timestamp::parseShortDayName(shortName), day);
    }
}

TEST(TimestampTextTest, HasNoNamesOutsideItsTables) {
    for (const int number : {-1, 0, 13, 1000000}) {
        EXPECT_EQ(Timestamp::getLongMonthName(number), "") << number;
        EXPECT_EQ(Timestamp::getShortMonthName(number), "") << number;
    }
    for (const int number : {-1, 0, 8, 1000000}) {
        EXPECT_EQ(Timestamp::getLongDayName(number), "") << number;
        EXPECT_EQ(Timestamp::getShortDayName(number), "") << number;
    }
}

TEST(TimestampTextTest, TakesAnUnknownNameForZero) {
    EXPECT_EQ(Timestamp::parseLongMonthName("January"), 0);
    EXPECT_EQ(Timestamp::parseShortMonthName("jan"), 0);
    EXPECT_EQ(Timestamp::parseLongDayName("Saturday"), 0);
    EXPECT_EQ(Timestamp::parseShortDayName(""), 0);
}

TEST(TimestampTextTest, FormatsDateAndTime) {
    EXPECT_EQ(march.asString(wholeFormat), "2004-03-07 09:05:00");
    EXPECT_EQ(saturday.asString("%A, %d %B %Y %H:%M:%S"), "Saterday, 05 Januari 2002 09:03:07");
}

TEST(TimestampTextTest, FormatsEveryDirective) {
    const struct {
        const char* directive;
        const char* text;
    } cases[] = {
        {"%a", "Sat"}, {"%A", "Saterday"}, {"%b", "Jan"},  {"%B", "Januari"},
        {"%d", "05"},  {"%H", "09"},       {"%m", "01"},   {"%M", "03"},
        {"%S", "07"},  {"%w", "06"},       {"%Y", "2002"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(saturday.asString(c.directive), c.text) << c.directive;
}

TEST(TimestampTextTest, FormatsADirectiveEachTimeItStands) {
    EXPECT_EQ(saturday.asString("%d%d/%d"), "0505/05");
}

TEST(TimestampTextTest, LeavesDoubledPercentSignsAndUnknownDirectives) {
    EXPECT_EQ(march.asString("%%d"), "%%d");
    EXPECT_EQ(march.asString("%%%d"), "%%07");
    EXPECT_EQ(march.asString("%x%d"), "%x07");
    EXPECT_EQ(march.asString("no directive"), "no directive");
    EXPECT_EQ(march.asString(""), "");
}

TEST(TimestampTextTest, LeavesALonePercentSignAtTheEnd) {
    EXPECT_EQ(march.asString("%"), "%");
    EXPECT_EQ(march.asString("%d%"), "07%");
    EXPECT_EQ(march.asString("%%%"), "%%%");
}

TEST(TimestampTextTest, PadsShortYearsToTwoDigits) {
    EXPECT_EQ(Timestamp(5, 1, 1, 0, 0, 0).asString("%Y"), "05");
    EXPECT_EQ(Timestamp(123, 1, 1, 0, 0, 0).asString("%Y"), "123");
}

TEST(TimestampTextTest, ParsesWhatItFormats) {
    EXPECT_EQ(parsed("2004-03-07 09:05:00", wholeFormat), "2004-03-07 09:05:00");
    EXPECT_EQ(parsed("05 Januari 2002", "%d %B %Y"), "2002-01-05 13:14:15");
}

TEST(TimestampTextTest, ParsesEachFieldAlone) {
    EXPECT_EQ(parsed("2004", "%Y"), "2004-11-12 13:14:15");
    EXPECT_EQ(parsed("03", "%m"), "1999-03-12 13:14:15");
    EXPECT_EQ(parsed("07", "%d"), "1999-11-07 13:14:15");
    EXPECT_EQ(parsed("09", "%H"), "1999-11-12 09:14:15");
    EXPECT_EQ(parsed("05", "%M"), "1999-11-12 13:05:15");
    EXPECT_EQ(parsed("06", "%S"), "1999-11-12 13:14:06");
    EXPECT_EQ(parsed("September", "%B"), "1999-09-12 13:14:15");
    EXPECT_EQ(parsed("Sep", "%b"), "1999-09-12 13:14:15");
}

TEST(TimestampTextTest, ParsesBehindNamesOfAnyLength) {
    EXPECT_EQ(parsed("07 Februari 2004", "%d %B %Y"), "2004-02-07 13:14:15");
    EXPECT_EQ(parsed("May2004", "%B%Y"), "2004-05-12 13:14:15");
    EXPECT_EQ(parsed("Feb-2004", "%b-%Y"), "2004-02-12 13:14:15");
}

TEST(TimestampTextTest, SkipsLiteralTextByItsLength) {
    EXPECT_EQ(parsed("on 2004/03", "at %Y-%m"), "2004-03-12 13:14:15");
}

TEST(TimestampTextTest, SetsFieldsInTheOrderOfTheFormat) {
    EXPECT_EQ(parsed("31 03", "%d %m"), "1999-03-01 13:14:15");
    EXPECT_EQ(parsed("03 31", "%m %d"), "1999-03-31 13:14:15");
}

TEST(TimestampTextTest, StepsOverOtherDirectivesOneCharacterAtATime) {
    EXPECT_EQ(parsed("%x07", "%x%d"), "1999-11-07 13:14:15");
    EXPECT_EQ(parsed("Mo07", "%a%d"), "1999-11-07 13:14:15");
    EXPECT_EQ(parsed("-07", "%%d"), "1999-11-07 13:14:15");
    EXPECT_EQ(parsed("x", "%"), "1999-11-12 13:14:15");
    EXPECT_EQ(parsed("07", "%d%"), "1999-11-07 13:14:15");
    EXPECT_EQ(parsed("anything", ""), "1999-11-12 13:14:15");
}

TEST(TimestampTextTest, ReadsAShortTextAsFarAsItGoes) {
    EXPECT_EQ(parsed("2004-3", "%Y-%m"), "2004-03-12 13:14:15");
    EXPECT_EQ(parsed("07", "%d %H:%M:%S"), "1999-11-07 00:00:00");
    EXPECT_EQ(parsed("", "before %H"), "1999-11-12 00:14:15");
}

TEST(TimestampTextTest, ReadsOtherCharactersAsZero) {
    EXPECT_EQ(parsed("xx:5x", "%H:%M"), "1999-11-12 00:05:15");
}

TEST(TimestampTextTest, RaisesForADayOrMonthOfZero) {
    EXPECT_EQ(messageRaisedBy([] { parsed("00", "%d"); }), "indicated day of month is invalid");
    EXPECT_EQ(messageRaisedBy([] { parsed("xx", "%d"); }), "indicated day of month is invalid");
    EXPECT_EQ(messageRaisedBy([] { parsed("00", "%m"); }), "indicated month is invalid");
    EXPECT_EQ(messageRaisedBy([] { parsed("", "%m"); }), "indicated month is invalid");
}

TEST(TimestampTextTest, RaisesForAnUnknownMonthName) {
    EXPECT_EQ(messageRaisedBy([] { parsed("07 Feb 2004", "%d %B %Y"); }),
              "indicated long month name not found");
    EXPECT_EQ(messageRaisedBy([] { parsed("feb", "%b"); }), "indicated short month name not found");
    EXPECT_EQ(messageRaisedBy([] { parsed("", "%b"); }), "indicated short month name not found");
}

TEST(TimestampTextTest, RaisesParseErrorsUnderOneCode) {
    try {
        parsed("00", "%d");
        ADD_FAILURE() << "nothing was raised";
    } catch (Exception& e) {
        EXPECT_EQ(e.getSeverity(), Exception::ERROR);
        EXPECT_STREQ(e.getCode(), "E_TSPARSE");
        EXPECT_STREQ(e.getContext(), "Timestamp::assignFormat");
    }
}

TEST(TimestampTextTest, StillSetsADayOrMonthOfZeroWhenTheHandlerReturns) {
    const ReturningHandler handler;

    EXPECT_EQ(parsed("00 2004", "%d %Y"), "2004-10-31 13:14:15");
    EXPECT_EQ(parsed("00", "%m"), "1999-01-12 13:14:15");

    EXPECT_EQ(handler.codes(), (std::vector<std::string>{"E_TSPARSE", "E_TSPARSE"}));
}

TEST(TimestampTextTest, StaysAtAnUnknownNameWhenTheHandlerReturns) {
    const ReturningHandler handler;

    EXPECT_EQ(parsed("2004", "%B%Y"), "2004-11-12 13:14:15");
    EXPECT_EQ(parsed(" 2004", "%b %Y"), "2004-11-12 13:14:15");

    EXPECT_EQ(handler.codes().size(), 2u);
}

TEST_F(TimestampNamesTest, FormatsAndParsesWithReplacedNames) {
    Timestamp::setLongMonthNames(numbered("longmonth", 12));
    Timestamp::setShortMonthNames(numbered("month", 12));
    Timestamp::setLongDayNames(numbered("longday", 7));
    Timestamp::setShortDayNames(numbered("day", 7));

    EXPECT_EQ(march.asString("%A %a %B %b"), "longday7 day7 longmonth3 month3");
    EXPECT_EQ(parsed("longmonth3", "%B"), "1999-03-12 13:14:15");
    EXPECT_EQ(Timestamp::parseShortDayName("day2"), 2);
}

TEST_F(TimestampNamesTest, TakesTheFirstNameThatTheTextBeginsWith) {
    Timestamp::setShortMonthNames(numbered("m", 12));

    EXPECT_EQ(parsed("m12", "%b"), "1999-01-12 13:14:15");
}

TEST_F(TimestampNamesTest, FormatsAMissingNameAsNothing) {
    Timestamp::setLongMonthNames(numbered("m", 2));

    EXPECT_EQ(march.asString("<%B>"), "<>");
}

TEST_F(TimestampNamesTest, SharesNoTextWithTheTableItWasSetFrom) {
    const ValVector<String> names = numbered("m", 12);

    Timestamp::setShortMonthNames(names);

    EXPECT_NE(static_cast<const char*>(Timestamp::getShortMonthName(3)),
              static_cast<const char*>(names[2]));
}

TEST_F(TimestampNamesTest, KeepsACopyOfTheTable) {
    ValVector<String> names = numbered("m", 12);
    Timestamp::setShortMonthNames(names);

    names[2] = "changed";

    EXPECT_EQ(march.asString("%b"), "m3");
}

TEST_F(TimestampNamesTest, FindsDirectivesInsideWhatItInserted) {
    Timestamp::setLongDayNames(numbered("a%d-", 7));
    Timestamp::setShortDayNames(numbered("%d", 7));

    EXPECT_EQ(march.asString("%A"), "a07-7");
    EXPECT_EQ(march.asString("%a"), "%d7");
}

TEST_F(TimestampNamesTest, StepsOverTheCharacterBehindAnEmptyName) {
    Timestamp::setLongMonthNames(numbered("m", 2));

    EXPECT_EQ(march.asString("%B%d%d"), "%d07");
}

TEST_F(TimestampNamesTest, ParsesDayNamesOfReplacedTables) {
    Timestamp::setLongDayNames(numbered("longday", 9));

    EXPECT_EQ(Timestamp::parseLongDayName("longday9"), 9);
    EXPECT_EQ(Timestamp::getLongDayName(9), "longday9");
    EXPECT_EQ(Timestamp::parseLongDayName("Monday"), 0);
}

TEST(TimestampTextTest, GivesNamesToSeveralThreadsAtOnce) {
    int wrong[4] = {};
    std::vector<std::thread> threads;
    for (int& count : wrong)
        threads.emplace_back([&count] {
            for (int i = 0; i < 20000; ++i) {
                const String name = Timestamp::getLongMonthName(3);
                count += name == "March" ? 0 : 1;
            }
        });
    for (std::thread& thread : threads)
        thread.join();

    for (const int count : wrong)
        EXPECT_EQ(count, 0);
}

TEST(TimestampTextTest, FormatsOnSeveralThreadsAtOnce) {
    const std::string expected = "Sunday Sun March Mar";
    int wrong[4] = {};
    std::vector<std::thread> threads;
    for (int& count : wrong)
        threads.emplace_back([&count, &expected] {
            for (int i = 0; i < 20000; ++i)
                if (march.asString("%A %a %B %b") != expected.c_str())
                    ++count;
        });
    for (std::thread& thread : threads)
        thread.join();

    for (const int count : wrong)
        EXPECT_EQ(count, 0);
}

TEST(TimestampTextTest, TakesANullTextForAnEmptyOne) {
    Timestamp t(2004, 3, 7, 9, 5, 0);

    t.parseString(nullptr, "%H");
    EXPECT_EQ(0, t.getHour());
    t.parseString("12", nullptr);

    EXPECT_EQ(0, t.getHour());
    EXPECT_EQ("", t.asString(nullptr));
}

}  // namespace
}  // namespace Kes
