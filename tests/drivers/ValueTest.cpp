#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/drivers/DriverTest.h"
#include "tests/support/Raises.h"

#include <kes/Kes.h>

namespace Kes::testing {

// One field of every kind.
class Sample : public Instance {
public:
    explicit Sample(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleULong("aULong", aULong);
        h->handleLong("aLong", aLong);
        h->handleString("text", text, 10);
        h->handleInt("anInt", anInt);
        h->handleUInt("aUInt", aUInt);
        h->handleBool("aBool", aBool);
        h->handleFloat("aFloat", aFloat);
        h->handleDouble("aDouble", aDouble);
        h->handleTimestamp("time", time);
        h->handleBlob("blob", blob);
    }

    unsigned long aULong = 0;
    long aLong = 0;
    String text;
    int anInt = 0;
    unsigned int aUInt = 0;
    bool aBool = false;
    float aFloat = 0;
    double aDouble = 0;
    Timestamp time{2000, 1, 1, 0, 0, 0};
    Blob blob;
};

class SampleModel : public Model {
public:
    SampleModel() : Model("samples", 1000) {}

    Class* sampleClass = nullptr;

protected:
    void declareModel() override {
        setVersion(1);
        sampleClass = addClass("Sample", 1, [](Class* c) -> Instance* { return new Sample(c); });
    }
};

class ValueTest : public DriverTest {
protected:
    ValueTest() {
        open(model);
        model.startTransaction();
        sample = static_cast<Sample*>(model.sampleClass->newInstance());
    }

    // The object as another session reads it.
    Sample* reload() {
        model.commit();
        open(other);
        Selection all(other.sampleClass);
        EXPECT_TRUE(all.next());
        loaded = static_cast<Sample*>(all.value());
        return loaded;
    }

    void expectRefused(const char* field) {
        const std::string message = messageRaisedBy([&] { model.commit(); });
        EXPECT_NE(std::string::npos, message.find(field)) << message;
        EXPECT_NE(std::string::npos, message.find("Sample")) << message;
        Selection all(model.sampleClass);
        EXPECT_FALSE(all.next());
    }

    SampleModel model;
    SampleModel other;
    Pointer<Sample> sample;
    Pointer<Sample> loaded;
};

TEST_F(ValueTest, RefusesUnsignedNumbersThatNotEveryDatabaseHolds) {
    sample->aULong = static_cast<unsigned long>(std::numeric_limits<long>::max()) + 1;

    expectRefused("aULong");
}

class RealTest : public ValueTest, public ::testing::WithParamInterface<double> {};

TEST_P(RealTest, IsKeptExactly) {
    sample->aDouble = GetParam();
    sample->aFloat = static_cast<float>(GetParam());

    const Sample* read = reload();

    EXPECT_EQ(GetParam(), read->aDouble);
    EXPECT_EQ(std::signbit(GetParam()), std::signbit(read->aDouble));
    EXPECT_EQ(static_cast<float>(GetParam()), read->aFloat);
    EXPECT_EQ(std::signbit(GetParam()), std::signbit(read->aFloat));
}

INSTANTIATE_TEST_SUITE_P(Odd, RealTest,
                         ::testing::Values(0.0, 0.1, 1.0 / 3, 4.9e-324, 1e-45, 16777216.0, -1e30,
                                           3.25, 123456789.0));

TEST_F(ValueTest, KeepsOrRefusesNegativeZeros) {
    sample->aDouble = -0.0;
    if (!engine->keepsNegativeZeros())
        return expectRefused("aDouble");

    const Sample* read = reload();

    EXPECT_EQ(0.0, read->aDouble);
    EXPECT_TRUE(std::signbit(read->aDouble));
}

TEST_F(ValueTest, RefusesWhatIsNotANumber) {
    sample->aDouble = std::numeric_limits<double>::quiet_NaN();

    expectRefused("aDouble");
}

TEST_F(ValueTest, RefusesInfinities) {
    sample->aFloat = -std::numeric_limits<float>::infinity();

    expectRefused("aFloat");
}

class TextTest : public ValueTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(TextTest, IsKeptExactlyAndFound) {
    sample->text = GetParam();

    EXPECT_STREQ(GetParam(), reload()->text);

    Selection same(other.sampleClass);
    same.where(same["text"] == GetParam());
    EXPECT_TRUE(same.next());
}

INSTANTIATE_TEST_SUITE_P(Odd, TextTest,
                         ::testing::Values("", " ", "   ", "a ", "007", "1e3", "NULL", "it's", "\"",
                                           "`", "\\", ";--", "/*", "%", "_", "\n\r\t",
                                           "Robert'); DROP TABLE \"Sample\";--",
                                           "longer than the ten bytes declared", "łäß", "a\xCC\x88",
                                           "\xF0\x9F\x98\x80"));

TEST_F(ValueTest, KeepsAMegabyteOfText) {
    const std::string long_(1 << 20, 'x');
    sample->text = long_.c_str();

    EXPECT_EQ(long_, static_cast<const char*>(reload()->text));
}

class BadTextTest : public ValueTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(BadTextTest, IsRefused) {
    sample->text = GetParam();

    expectRefused("text");
}

INSTANTIATE_TEST_SUITE_P(NotUtf8, BadTextTest,
                         ::testing::Values("\x80", "abc\xFF", "\xC0\x80", "\xE2\x82",
                                           "\xED\xA0\x80", "\xF4\x90\x80\x80",
                                           "12345678\xC3(901234"));

class TimeTest : public ValueTest, public ::testing::WithParamInterface<Timestamp> {};

TEST_P(TimeTest, IsKeptExactlyAndFound) {
    sample->time = GetParam();

    const Sample* read = reload();

    EXPECT_EQ(GetParam().getAllDays(), read->time.getAllDays());
    EXPECT_EQ(GetParam().getAllSeconds(), read->time.getAllSeconds());
    Selection same(other.sampleClass);
    same.where(same["time"] == GetParam());
    EXPECT_TRUE(same.next());
}

Timestamp endOfDay() {
    Timestamp t(2020, 5, 5, 0, 0, 0);
    t.addHours(-24);
    return t;
}

INSTANTIATE_TEST_SUITE_P(
    Odd, TimeTest,
    ::testing::Values(Timestamp(1, 1, 1, 0, 0, 0), Timestamp(7899, 12, 31, 23, 59, 59),
                      Timestamp(1969, 12, 31, 23, 59, 59), Timestamp(2000, 2, 29, 12, 0, 0),
                      Timestamp(1900, 2, 29, 1, 1, 1), Timestamp(2038, 1, 19, 3, 14, 8),
                      Timestamp(2024, 3, 31, 2, 30, 0), endOfDay()));

TEST_F(ValueTest, RefusesTimesOutsideTheCalendar) {
    sample->time.setAllDays(-1);

    expectRefused("time");
}

TEST_F(ValueTest, RefusesSecondsOutsideADay) {
    sample->time.setAllSeconds(86401);

    expectRefused("time");
}

TEST_F(ValueTest, RefusesToReadABooleanThatIsNone) {
    model.commit();
    run("UPDATE [Sample] SET [aBool] = 2");
    open(other);
    Selection all(other.sampleClass);

    const std::string message = messageRaisedBy([&] { all.next(); });

    EXPECT_NE(std::string::npos, message.find("aBool")) << message;
}

TEST_F(ValueTest, RefusesToReadANumberThatIsTooLarge) {
    model.commit();
    run("UPDATE [Sample] SET [anInt] = 3000000000");
    open(other);
    Selection all(other.sampleClass);

    EXPECT_RAISES("SELERR", all.next());
}

// Values that the drivers never write, as other programs write them. A database
// that refuses one keeps it from everybody.
struct StrangeValue {
    const char* field;
    const char* value;
};

class StrangeValueTest : public ValueTest, public ::testing::WithParamInterface<StrangeValue> {};

TEST_P(StrangeValueTest, IsNeverReadWithoutAnError) {
    const auto [field, value] = GetParam();
    model.commit();
    try {
        run(std::string("UPDATE [Sample] SET [") + field + "] = " + value);
    } catch (const std::runtime_error&) {
        return;
    }
    open(other);
    Selection all(other.sampleClass);

    const std::string error = errorRaisedBy([&] { all.next(); });

    EXPECT_EQ(0U, error.find("1 SELERR")) << error;
    for (const char* words : {field, "Sample object", "mend the row"})
        EXPECT_TRUE(says(error, words)) << error;
}

INSTANTIATE_TEST_SUITE_P(
    , StrangeValueTest,
    ::testing::Values(StrangeValue{"aDouble", "9e999"}, StrangeValue{"aDouble", "-9e999"},
                      StrangeValue{"aDouble", "'NaN'"}, StrangeValue{"aDouble", "'Infinity'"},
                      StrangeValue{"aDouble", "'-Infinity'"},
                      StrangeValue{"aDouble", "CAST(CAST(9007199254740993 AS BLOB) AS INTEGER)"},
                      StrangeValue{"aFloat", "1e300"}, StrangeValue{"aFloat", "'NaN'"},
                      StrangeValue{"aFloat", "'-Infinity'"}, StrangeValue{"aFloat", "-1e300"},
                      StrangeValue{"text", "CAST(CAST(x'FF' AS BLOB) AS TEXT)"},
                      StrangeValue{"text", "CAST(CAST(x'61C328' AS BLOB) AS TEXT)"},
                      StrangeValue{"aULong", "-1"}, StrangeValue{"aUInt", "-1"},
                      StrangeValue{"KesObjectID", "0"}, StrangeValue{"KesVersion", "-1"},
                      StrangeValue{"time", "'2024-02-30 00:00:00'"}));

TEST_F(ValueTest, WritesTheChangedFieldsOnly) {
    reload();
    run("UPDATE [Sample] SET [text] = 'by hand'");
    model.startTransaction();
    sample->change();
    sample->anInt = 5;
    model.commit();

    EXPECT_EQ("by hand", ask("SELECT [text] FROM [Sample]"));
    EXPECT_EQ("5", ask("SELECT [anInt] FROM [Sample]"));
}

TEST_F(ValueTest, RaisesTheStoredVersionWhenNothingChanged) {
    reload();
    model.startTransaction();
    sample->change();
    model.commit();

    EXPECT_EQ("1", ask("SELECT [KesVersion] FROM [Sample]"));
}

}  // namespace Kes::testing
