// Unique values that change hands within one commit.

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "tests/drivers/DriverTest.h"
#include "tests/drivers/FreeModel.h"
#include "tests/support/Raises.h"

namespace Kes::testing {

namespace {

void fieldsOf(Free& object, Handler* h) {
    h->handleString("text", object.text, 20);
    h->handleInt("number", object.number);
    h->handleLong("wide", object.wide);
    h->handleDouble("real", object.real);
    h->handleTimestamp("moment", object.moment);
    h->handleBool("flag", object.flag);
}

void declare(FreeModel& model) {
    Class* cls = model.declareClass("Plate", fieldsOf);
    for (const char* each : {"text", "number", "wide", "real", "moment"})
        cls->addIndex(each, true);
    model.declareClass("Paper", textField);
}

}  // namespace

class UniqueTest : public DriverTest {
protected:
    UniqueTest() : model(1, declare) {
        open(model);
        model.startTransaction();
        for (int i = 0; i < 4; ++i) {
            plates.emplace_back(model.make("Plate"));
            set(i, i);
        }
        model.commit();
        model.startTransaction();
    }

    static void give(Free* plate, int value) {
        plate->text = std::to_string(value).c_str();
        plate->number = value;
        plate->wide = value;
        plate->real = value;
        plate->moment = Timestamp(2000, 1, 1 + value, 5, 0, 0);
    }
    void set(int plate, int value) { give(plates[static_cast<std::size_t>(plate)], value); }
    void change(int plate, int value) {
        set(plate, value);
        plates[static_cast<std::size_t>(plate)]->change();
    }
    std::string stored() {
        std::string all;
        for (const Pointer<Free>& each : plates)
            all += ask("SELECT [text] FROM [Plate] WHERE [KesObjectID] = " +
                       std::to_string(each->getObjectID())) +
                   ' ';
        return all;
    }

    FreeModel model;
    std::vector<Pointer<Free>> plates;
};

TEST_F(UniqueTest, ValuesAreSwapped) {
    change(0, 1);
    change(1, 0);
    model.commit();

    EXPECT_EQ("1 0 2 3 ", stored());
    EXPECT_EQ("2", ask("SELECT count(*) FROM [Plate] WHERE [KesVersion] = 1"));
}

TEST_F(UniqueTest, ValuesMoveInAChainInEitherOrder) {
    for (int i = 0; i < 4; ++i)
        change(i, i + 1);
    model.commit();
    EXPECT_EQ("1 2 3 4 ", stored());

    model.startTransaction();
    for (int i = 0; i < 4; ++i)
        change(i, i);
    model.commit();
    EXPECT_EQ("0 1 2 3 ", stored());

    model.startTransaction();
    for (int i = 3; i >= 0; --i)
        change(i, i + 1);
    model.commit();
    EXPECT_EQ("1 2 3 4 ", stored());
}

TEST_F(UniqueTest, ValuesMoveInACircleWithANewcomerAndARemoval) {
    Free* fresh = model.make("Plate");
    give(fresh, 0);
    change(0, 1);
    change(1, 2);
    change(2, 3);
    plates[3]->remove();
    model.commit();

    EXPECT_EQ("1 2 3  ", stored());
    EXPECT_EQ("4", ask("SELECT count(*) FROM [Plate]"));
}

TEST_F(UniqueTest, ASwapIsUndone) {
    change(0, 1);
    change(1, 0);
    model.commit();
    model.undo();
    EXPECT_EQ("0 1 2 3 ", stored());
    model.redo();
    EXPECT_EQ("1 0 2 3 ", stored());
}

TEST_F(UniqueTest, AValueThatSomebodyKeepsIsRefused) {
    change(0, 1);
    change(2, 0);
    EXPECT_RAISES("COMFAIL", model.commit());

    EXPECT_EQ("0 1 2 3 ", stored());
    EXPECT_STREQ("0", plates[0]->text);
}

TEST_F(UniqueTest, AChangeOfSomebodyElseIsStillNoticed) {
    FreeModel other(1, declare);
    open(other);
    Pointer<Free> theirs(
        static_cast<Free*>(other.getInstance(plates[0]->getObjectID(), other.getClass("Plate"))));
    theirs->flag = !theirs->flag;
    theirs->change();
    other.commit();
    change(0, 1);
    change(1, 0);

    const std::string message = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(says(message, "Plate object " + std::to_string(plates[0]->getObjectID())))
        << message;
    EXPECT_TRUE(says(message, "somebody else has changed it")) << message;
    EXPECT_EQ("0 1 2 3 ", stored());
}

// More than waits for a commit elsewhere.
TEST_F(UniqueTest, AValueIsFreeHoweverManyRowsCameBetween) {
    Free* fresh = model.make("Plate");
    give(fresh, 3);
    change(0, 2);
    for (int i = 0; i < 33000; ++i)
        model.make("Paper");
    plates[3]->remove();
    plates[2]->remove();
    model.commit();

    EXPECT_EQ("2 1   ", stored());
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Plate] WHERE [text] = '3'"));
}

}  // namespace Kes::testing
