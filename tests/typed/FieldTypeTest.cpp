#include <cmath>
#include <cstdint>
#include <limits>

#include "tests/typed/Tracker.h"

namespace Kes::testing {

// A type of an application's own.
struct Colour {
    int red = 0;
    int green = 0;
    int blue = 0;
    bool operator==(const Colour&) const = default;
};

enum class Small : std::uint8_t { None = 0, Most = 255 };
enum class Wide : std::int64_t { Least = std::numeric_limits<std::int64_t>::min() };

}  // namespace Kes::testing

template <>
struct Kes::FieldTraits<Kes::testing::Colour> {
    using Stored = std::string;

    static Stored store(const testing::Colour& c) {
        return std::to_string(c.red) + "/" + std::to_string(c.green) + "/" + std::to_string(c.blue);
    }
    static testing::Colour load(const Stored& text) {
        testing::Colour c;
        if (std::sscanf(text.c_str(), "%d/%d/%d", &c.red, &c.green, &c.blue) != 3)
            throw std::invalid_argument("no colour");
        return c;
    }
};

namespace Kes::testing {

using namespace std::chrono;
using Moment = sys_time<microseconds>;

// A member of every type.
struct Sample : Object<Sample> {
    bool flag = false;
    signed char tiny = 0;
    std::uint8_t byte = 0;
    std::int16_t low = 0;
    std::uint16_t word = 0;
    int number = 0;
    unsigned int count = 0;
    long large = 0;
    unsigned long huge = 0;
    long long longer = 0;
    unsigned long long longest = 0;
    float single = 0;
    double real = 0;
    std::string text;
    Small small = Small::None;
    Wide wide{};
    Moment moment{};
    year_month_day day = 2000y / January / 1;
    std::vector<std::byte> bytes;
    Decimal<4> price;
    Uuid key;
    Colour colour;
    String kesText;
    Timestamp time{2000, 1, 1, 0, 0, 0};
    Blob blob;
    std::optional<bool> maybeFlag;
    std::optional<int> maybeNumber;
    std::optional<std::string> maybeText;
    std::optional<Moment> maybeMoment;
    std::optional<year_month_day> maybeDay;
    std::optional<Small> maybeSmall;
    std::optional<Decimal<4>> maybePrice;
    std::optional<Uuid> maybeKey;
    std::optional<Colour> maybeColour;
    std::optional<std::vector<std::byte>> maybeBytes;

    static void describe(Description<Sample>& d) {
        d.field("flag", &Sample::flag);
        d.field("tiny", &Sample::tiny);
        d.field("byte", &Sample::byte);
        d.field("low", &Sample::low);
        d.field("word", &Sample::word);
        d.field("number", &Sample::number);
        d.field("count", &Sample::count);
        d.field("large", &Sample::large);
        d.field("huge", &Sample::huge);
        d.field("longer", &Sample::longer);
        d.field("longest", &Sample::longest);
        d.field("single", &Sample::single);
        d.field("real", &Sample::real);
        d.field("text", &Sample::text);
        d.field("small", &Sample::small);
        d.field("wide", &Sample::wide);
        d.field("moment", &Sample::moment);
        d.field("day", &Sample::day);
        d.field("bytes", &Sample::bytes);
        d.field("price", &Sample::price);
        d.field("key", &Sample::key);
        d.field("colour", &Sample::colour);
        d.field("kesText", &Sample::kesText);
        d.field("time", &Sample::time);
        d.field("blob", &Sample::blob);
        d.field("maybeFlag", &Sample::maybeFlag);
        d.field("maybeNumber", &Sample::maybeNumber);
        d.field("maybeText", &Sample::maybeText);
        d.field("maybeMoment", &Sample::maybeMoment);
        d.field("maybeDay", &Sample::maybeDay);
        d.field("maybeSmall", &Sample::maybeSmall);
        d.field("maybePrice", &Sample::maybePrice);
        d.field("maybeKey", &Sample::maybeKey);
        d.field("maybeColour", &Sample::maybeColour);
        d.field("maybeBytes", &Sample::maybeBytes);
    }
};

template <class T>
constexpr T least() {
    return std::numeric_limits<T>::lowest();
}
template <class T>
constexpr T most() {
    return std::numeric_limits<T>::max();
}

Moment lastMoment() {
    return Moment(microseconds(most<std::int64_t>()));
}

const Uuid someKey("01234567-89ab-cdef-0123-456789ABCDEF");

void fillLow(Sample& s) {
    s.tiny = least<signed char>();
    s.low = least<std::int16_t>();
    s.number = least<int>();
    s.large = least<long>();
    s.longer = least<long long>();
    s.single = least<float>();
    s.real = least<double>();
    s.wide = Wide::Least;
    s.moment = Moment(microseconds(least<std::int64_t>()));
    s.day = 1y / January / 1;
    s.price = Decimal<4>::fromUnits(least<std::int64_t>());
    s.maybeFlag = false;
    s.maybeNumber = 0;
    s.maybeText = "";
    s.maybeMoment = Moment();
    s.maybeDay = 1970y / January / 1;
    s.maybeSmall = Small::None;
    s.maybePrice = Decimal<4>();
    s.maybeKey = Uuid();
    s.maybeColour = Colour();
    s.maybeBytes.emplace();
}

void fillHigh(Sample& s) {
    s.flag = true;
    s.tiny = most<signed char>();
    s.byte = most<std::uint8_t>();
    s.low = most<std::int16_t>();
    s.word = most<std::uint16_t>();
    s.number = most<int>();
    s.count = most<unsigned int>();
    s.large = most<long>();
    s.huge = static_cast<unsigned long>(most<long>());
    s.longer = most<long long>();
    s.longest = static_cast<unsigned long long>(most<long long>());
    s.single = most<float>();
    s.real = 0.1;
    s.text = "\xE2\x82\xAC and more";
    s.small = Small::Most;
    s.moment = lastMoment();
    s.day = 7899y / December / 31;
    s.bytes = {std::byte{0}, std::byte{255}, std::byte{7}};
    s.price = Decimal<4>("-12.0001");
    s.key = someKey;
    s.colour = {1, 2, 3};
    s.kesText = "Kes";
    s.time = Timestamp(2024, 2, 29, 23, 59, 59);
    s.blob.setData("ab", 2);
    s.maybeFlag = true;
    s.maybeNumber = -5;
    s.maybeText = "set";
    s.maybeMoment = lastMoment();
    s.maybeDay = 2024y / February / 29;
    s.maybeSmall = Small::Most;
    s.maybePrice = Decimal<4>("0.0001");
    s.maybeKey = someKey;
    s.maybeColour = Colour{9, 8, 7};
    s.maybeBytes = std::vector<std::byte>{std::byte{1}};
}

void expectEqual(const Sample& a, const Sample& b) {
    EXPECT_EQ(a.flag, b.flag);
    EXPECT_EQ(a.tiny, b.tiny);
    EXPECT_EQ(a.byte, b.byte);
    EXPECT_EQ(a.low, b.low);
    EXPECT_EQ(a.word, b.word);
    EXPECT_EQ(a.number, b.number);
    EXPECT_EQ(a.count, b.count);
    EXPECT_EQ(a.large, b.large);
    EXPECT_EQ(a.huge, b.huge);
    EXPECT_EQ(a.longer, b.longer);
    EXPECT_EQ(a.longest, b.longest);
    EXPECT_EQ(a.single, b.single);
    EXPECT_EQ(a.real, b.real);
    EXPECT_EQ(a.text, b.text);
    EXPECT_EQ(a.small, b.small);
    EXPECT_EQ(a.wide, b.wide);
    EXPECT_EQ(a.moment, b.moment);
    EXPECT_EQ(a.day, b.day);
    EXPECT_EQ(a.bytes, b.bytes);
    EXPECT_EQ(a.price, b.price);
    EXPECT_EQ(a.key, b.key);
    EXPECT_EQ(a.colour, b.colour);
    EXPECT_EQ(a.kesText, b.kesText);
    EXPECT_EQ(a.time, b.time);
    EXPECT_EQ(a.blob, b.blob);
    EXPECT_EQ(a.maybeFlag, b.maybeFlag);
    EXPECT_EQ(a.maybeNumber, b.maybeNumber);
    EXPECT_EQ(a.maybeText, b.maybeText);
    EXPECT_EQ(a.maybeMoment, b.maybeMoment);
    EXPECT_EQ(a.maybeDay, b.maybeDay);
    EXPECT_EQ(a.maybeSmall, b.maybeSmall);
    EXPECT_EQ(a.maybePrice, b.maybePrice);
    EXPECT_EQ(a.maybeKey, b.maybeKey);
    EXPECT_EQ(a.maybeColour, b.maybeColour);
    EXPECT_EQ(a.maybeBytes, b.maybeBytes);
}

class FieldTypeTest : public TypedTest {
protected:
    static Schema samples() { return schema<Sample>("samples", 1); }

    template <class Fill>
    Ref<Sample> store(Fill fill) {
        return db->transact([&](Transaction& tx) { return tx.make<Sample>(fill); });
    }

    // What another session reads of it.
    void expectStored(const Ref<Sample>& sample) {
        const auto other = open(samples());
        const Ref<Sample> read = other->find<Sample>(sample.getObjectID());
        ASSERT_TRUE(read);
        expectEqual(*sample, *read);
    }

    template <class Fill>
    Error refusalOf(Fill fill) {
        return errorOf([&] { store(fill); });
    }

    std::unique_ptr<Database> db = open(samples());
};

TEST_F(FieldTypeTest, ComesBackWithItsFirstValue) {
    expectStored(store([](Sample&) {}));
}

TEST_F(FieldTypeTest, ComesBackWithItsLeastValue) {
    expectStored(store(fillLow));
}

TEST_F(FieldTypeTest, ComesBackWithItsLargestValue) {
    expectStored(store(fillHigh));
}

TEST_F(FieldTypeTest, IsChangedAndEmptied) {
    const Ref<Sample> sample = store(fillHigh);
    db->transact([&](Transaction& tx) { fillLow(tx.edit(sample)); });
    expectStored(sample);

    db->transact([&](Transaction& tx) {
        Sample& draft = tx.edit(sample);
        draft.maybeFlag.reset();
        draft.maybeText.reset();
        draft.maybeDay.reset();
        draft.maybeColour.reset();
        draft.maybeBytes.reset();
    });
    expectStored(sample);
}

TEST_F(FieldTypeTest, IsBroughtUpToDate) {
    const Ref<Sample> sample = store([](Sample&) {});
    const auto other = open(samples());
    const Ref<Sample> same = other->find<Sample>(sample.getObjectID());
    db->transact([&](Transaction& tx) { fillHigh(tx.edit(sample)); });

    other->refresh(same);

    expectEqual(*sample, *same);
}

TEST_F(FieldTypeTest, IsRolledBack) {
    const Ref<Sample> sample = store(fillHigh);
    const Ref<Sample> model = store(fillHigh);
    {
        Transaction tx(*db);
        fillLow(tx.edit(sample));
    }

    expectEqual(*model, *sample);
}

// Values that cannot be stored have no stand-in that can be.
TEST_F(FieldTypeTest, IsRolledBackFromValuesThatDoNotFit) {
    const Ref<Sample> sample = store(fillHigh);
    const Ref<Sample> model = store(fillHigh);
    {
        Transaction tx(*db);
        Sample& draft = tx.edit(sample);
        draft.text += std::string("\0more", 5);
        draft.day = 2024y / February / 31;
        draft.huge = most<unsigned long>();
        draft.maybeText = std::string("\0", 1);
        draft.maybeDay = 0y / January / 1;
    }

    expectEqual(*model, *sample);
}

TEST_F(FieldTypeTest, IsRefusedWhereItDoesNotFit) {
    const auto expectRefused = [&](const char* field, const char* why, auto fill) {
        const Error error = refusalOf(fill);
        EXPECT_EQ(ErrorKind::InvalidValue, error.getKind()) << field << ": " << error.what();
        EXPECT_EQ("Sample", error.getClassName());
        EXPECT_EQ(field, error.getFieldName());
        EXPECT_NE(0U, error.getObjectID());
        EXPECT_SAYS(error, why);
    };
    const double nothing = std::numeric_limits<double>::quiet_NaN();

    expectRefused("text", "NUL", [](Sample& s) { s.text = std::string("a\0b", 3); });
    expectRefused("text", "UTF-8", [](Sample& s) { s.text = "\xC3"; });
    expectRefused("maybeText", "NUL", [](Sample& s) { s.maybeText = std::string("\0", 1); });
    expectRefused("huge", "above", [](Sample& s) { s.huge = most<unsigned long>(); });
    expectRefused("longest", "above", [](Sample& s) { s.longest = most<unsigned long>(); });
    expectRefused("real", "finite", [&](Sample& s) { s.real = nothing; });
    expectRefused("single", "finite",
                  [](Sample& s) { s.single = std::numeric_limits<float>::infinity(); });
    expectRefused("day", "calendar", [](Sample& s) { s.day = 2023y / February / 29; });
    expectRefused("maybeDay", "7899", [](Sample& s) { s.maybeDay = 7900y / January / 1; });
    EXPECT_FALSE(db->query<Sample>().first());
}

TEST_F(FieldTypeTest, IsNotLoadedFromWhatItCannotHold) {
    const Ref<Sample> sample = store(fillHigh);
    const auto expectUnreadable = [&](const char* field, const char* value) {
        const std::string before = engine->ask(std::string("SELECT [") + field + "] FROM [Sample]");
        engine->run(std::string("UPDATE [Sample] SET [") + field + "] = " + value);
        const auto other = open(samples());
        const Error error = errorOf([&] { other->query<Sample>().first(); });
        EXPECT_EQ(ErrorKind::InvalidValue, error.getKind()) << field << ": " << error.what();
        EXPECT_EQ("Sample", error.getClassName());
        EXPECT_EQ(sample.getObjectID(), error.getObjectID());
        EXPECT_SAYS(error, "mend the row");
        engine->run(std::string("UPDATE [Sample] SET [") + field + "] = '" + before + "'");
    };

    expectUnreadable("tiny", "128");
    expectUnreadable("byte", "256");
    expectUnreadable("word", "65536");
    expectUnreadable("small", "256");
    expectUnreadable("key", "'x'");
    expectUnreadable("colour", "'red'");
    expectUnreadable("maybeNumber_is_set", "2");
}

}  // namespace Kes::testing
