#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/Raises.h"

#include <kes/Kes.h>

namespace Kes::testing {

class SortHandlerTest : public ::testing::Test {
protected:
    ~SortHandlerTest() override { orders.clearAndDelete(); }

    void key(const char* name, bool ascending = true) {
        orders.add(new SortOrder(Attribute(nullptr, name), ascending));
    }

    // Whether a candidate with that value of the key "k" beats those before.
    template <class T>
    bool offers(T value, void (Handler::*report)(const String&, T&)) {
        (handler.*report)("k", value);
        return handler.isBetter();
    }
    bool offersInt(int value) { return offers(value, &Handler::handleInt); }
    bool offersText(const char* text) {
        String value(text);
        handler.handleString("k", value, 0);
        return handler.isBetter();
    }

    PtrList<SortOrder> orders;
    SortHandler handler;
};

TEST_F(SortHandlerTest, TakesTheFirstAndThenTheStrictlyBetter) {
    key("k");
    handler.init(orders);

    EXPECT_TRUE(offersInt(3));
    EXPECT_FALSE(offersInt(3));
    EXPECT_FALSE(offersInt(5));
    EXPECT_TRUE(offersInt(2));
    EXPECT_FALSE(offersInt(3));
}

TEST_F(SortHandlerTest, TurnsDescendingKeysAround) {
    key("k", false);
    handler.init(orders);

    EXPECT_TRUE(offersInt(3));
    EXPECT_TRUE(offersInt(5));
    EXPECT_FALSE(offersInt(4));
}

TEST_F(SortHandlerTest, StartsAnewAfterReinit) {
    key("k");
    handler.init(orders);
    offersInt(1);

    handler.reinit();

    EXPECT_TRUE(offersInt(9));
}

TEST_F(SortHandlerTest, ComparesEveryKindOfField) {
    key("k");
    handler.init(orders);
    EXPECT_TRUE(offers(2UL, &Handler::handleULong));
    EXPECT_TRUE(offers(1UL, &Handler::handleULong));
    handler.reinit();
    EXPECT_TRUE(offers(0L, &Handler::handleLong));
    EXPECT_TRUE(offers(-1L, &Handler::handleLong));
    handler.reinit();
    EXPECT_TRUE(offers(2U, &Handler::handleUInt));
    EXPECT_FALSE(offers(3U, &Handler::handleUInt));
    handler.reinit();
    EXPECT_TRUE(offers(1.5F, &Handler::handleFloat));
    EXPECT_FALSE(offers(1.5F, &Handler::handleFloat));
    handler.reinit();
    EXPECT_TRUE(offers(1.5, &Handler::handleDouble));
    EXPECT_TRUE(offers(-1.5, &Handler::handleDouble));
    handler.reinit();
    EXPECT_TRUE(offers(Timestamp(2000, 1, 2, 0, 0, 0), &Handler::handleTimestamp));
    EXPECT_TRUE(offers(Timestamp(2000, 1, 1, 0, 0, 0), &Handler::handleTimestamp));
}

TEST_F(SortHandlerTest, ComparesTextsByBytes) {
    key("k");
    handler.init(orders);

    EXPECT_TRUE(offersText("b"));
    EXPECT_TRUE(offersText("Z"));
    EXPECT_FALSE(offersText("_"));
    EXPECT_TRUE(offersText(""));
}

TEST_F(SortHandlerTest, AsksTheMinorKeyOnlyWhenTheMajorOneIsEqual) {
    key("k");
    key("minor");
    handler.init(orders);
    const auto offersPair = [&](int major, int minor) {
        handler.handleInt("k", major);
        handler.handleInt("minor", minor);
        return handler.isBetter();
    };

    EXPECT_TRUE(offersPair(1, 5));
    EXPECT_FALSE(offersPair(2, 1));
    EXPECT_TRUE(offersPair(1, 4));
    EXPECT_FALSE(offersPair(1, 4));
}

TEST_F(SortHandlerTest, PassesOverFieldsThatAreNoKeys) {
    key("k");
    handler.init(orders);
    offersInt(5);
    int other = 1;
    handler.handleInt("other", other);

    EXPECT_FALSE(handler.isBetter());
}

TEST_F(SortHandlerTest, NeverPrefersACandidateWithoutTheKey) {
    key("k");
    handler.init(orders);
    EXPECT_TRUE(handler.isBetter());

    EXPECT_FALSE(offersInt(1));
    EXPECT_FALSE(handler.isBetter());
}

// Once a key has decided, later fields are not read: a better candidate that
// decides by its major key leaves no minor one for those behind it to beat.
TEST_F(SortHandlerTest, ReadsNoFieldBehindTheOneThatDecides) {
    key("k");
    key("minor");
    handler.init(orders);
    const auto offersPair = [&](int major, int minor) {
        handler.handleInt("k", major);
        handler.handleInt("minor", minor);
        return handler.isBetter();
    };

    EXPECT_TRUE(offersPair(2, 1));
    EXPECT_TRUE(offersPair(1, 5));
    EXPECT_FALSE(offersPair(1, 3));
    EXPECT_TRUE(offersPair(0, 9));
}

TEST_F(SortHandlerTest, ReadsAMinorKeyThatIsReportedFirst) {
    key("k");
    key("minor");
    handler.init(orders);
    const auto offersPair = [&](int major, int minor) {
        handler.handleInt("minor", minor);
        handler.handleInt("k", major);
        return handler.isBetter();
    };

    EXPECT_TRUE(offersPair(2, 1));
    EXPECT_TRUE(offersPair(1, 5));
    EXPECT_TRUE(offersPair(1, 3));
    EXPECT_FALSE(offersPair(1, 3));
}

TEST_F(SortHandlerTest, TurnsEachKeyAroundByItself) {
    key("k", false);
    key("minor", true);
    handler.init(orders);
    const auto offersPair = [&](int major, int minor) {
        handler.handleInt("minor", minor);
        handler.handleInt("k", major);
        return handler.isBetter();
    };

    EXPECT_TRUE(offersPair(1, 5));
    EXPECT_TRUE(offersPair(2, 9));
    EXPECT_TRUE(offersPair(2, 8));
    EXPECT_FALSE(offersPair(2, 9));
}

TEST_F(SortHandlerTest, NeverPrefersWhatIsNotANumber) {
    const double none = std::numeric_limits<double>::quiet_NaN();
    key("k");
    handler.init(orders);
    EXPECT_TRUE(offers(1.0, &Handler::handleDouble));
    EXPECT_FALSE(offers(none, &Handler::handleDouble));
    handler.reinit();
    EXPECT_TRUE(offers(none, &Handler::handleDouble));
    EXPECT_FALSE(offers(1.0, &Handler::handleDouble));
}

TEST_F(SortHandlerTest, PassesBlobsAndReferencesOver) {
    key("k");
    handler.init(orders);
    offersInt(5);
    Blob blob("a", 1);
    handler.handleBlob("k", blob);
    handler.handleOneAssociated("k", "k", nullptr, Association::Unlink);
    handler.handleManyAssociated("k", "k", nullptr);

    EXPECT_FALSE(handler.isBetter());
}

TEST_F(SortHandlerTest, TakesAFieldOfTwoKeysForTheFirst) {
    key("k");
    key("k", false);
    handler.init(orders);

    EXPECT_TRUE(offersInt(3));
    EXPECT_TRUE(offersInt(2));
    EXPECT_FALSE(offersInt(2));
}

TEST_F(SortHandlerTest, StandsInACopyWhereItStood) {
    key("k");
    handler.init(orders);
    offersInt(3);
    int pending = 2;
    handler.handleInt("k", pending);

    SortHandler constructed(handler);
    SortHandler assigned;
    assigned = handler;
    assigned = *&assigned;

    for (SortHandler* each : {&constructed, &assigned, &handler})
        EXPECT_TRUE(each->isBetter());
    int later = 1;
    constructed.handleInt("k", later);
    EXPECT_TRUE(constructed.isBetter());
    handler.handleInt("k", pending);
    EXPECT_FALSE(handler.isBetter());
}

// A copy tells better from worse by values of its own, of whatever kind.
TEST_F(SortHandlerTest, CopiesAValueOfEveryKind) {
    const auto copies = [](auto best, auto better, auto report) {
        SortHandler original;
        PtrList<SortOrder> single;
        single.add(new SortOrder(Attribute(nullptr, "k"), true));
        original.init(single);
        single.clearAndDelete();
        report(original, best);
        EXPECT_TRUE(original.isBetter());

        SortHandler copy(original);
        original.reinit();
        report(copy, best);
        EXPECT_FALSE(copy.isBetter());
        report(copy, better);
        EXPECT_TRUE(copy.isBetter());
    };
    const auto by = [](auto slot) {
        return [slot](SortHandler& to, auto& value) { (to.*slot)("k", value); };
    };

    copies(2UL, 1UL, by(&SortHandler::handleULong));
    copies(2L, -1L, by(&SortHandler::handleLong));
    copies(2, -1, by(&SortHandler::handleInt));
    copies(2U, 1U, by(&SortHandler::handleUInt));
    copies(2.0F, 1.0F, by(&SortHandler::handleFloat));
    copies(2.0, 1.0, by(&SortHandler::handleDouble));
    copies(Timestamp(2000, 1, 2, 0, 0, 0), Timestamp(2000, 1, 1, 0, 0, 0),
           by(&SortHandler::handleTimestamp));
    copies(String("b"), String("a"),
           [](SortHandler& to, String& value) { to.handleString("k", value, 0); });
}

TEST_F(SortHandlerTest, LeavesABooleanKeyOutWhenTheHandlerReturns) {
    key("k");
    handler.init(orders);
    bool value = true;
    const ReturningHandler returning;

    handler.handleBool("k", value);
    EXPECT_TRUE(handler.isBetter());
    handler.handleBool("k", value);
    EXPECT_FALSE(handler.isBetter());

    EXPECT_EQ((std::vector<std::string>{"SORTFAIL", "SORTFAIL"}), returning.codes());
}

TEST_F(SortHandlerTest, PassesABooleanKeyOverWhenTheDecisionIsMade) {
    key("k");
    key("flag");
    handler.init(orders);
    offersInt(2);
    int value = 1;
    handler.handleInt("k", value);
    bool flag = true;

    EXPECT_EQ("", codeRaisedBy([&] { handler.handleBool("flag", flag); }));
    EXPECT_TRUE(handler.isBetter());
}

TEST_F(SortHandlerTest, RaisesForABooleanKey) {
    key("k");
    handler.init(orders);
    bool value = true;

    EXPECT_RAISES("SORTFAIL", handler.handleBool("k", value));
    EXPECT_EQ("You can not sort on boolean attributes",
              messageRaisedBy([&] { handler.handleBool("k", value); }));
    EXPECT_EQ("", codeRaisedBy([&] { handler.handleBool("other", value); }));
}

}  // namespace Kes::testing
