#include <gtest/gtest.h>

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

    SampleModel model;
    SampleModel other;
    Pointer<Sample> sample;
    Pointer<Sample> loaded;
};

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
