#include <string>

#include "tests/drivers/DriverTest.h"
#include "tests/drivers/FreeModel.h"
#include "tests/support/Raises.h"

namespace Kes::testing {

// A program from before an upgrade meets a schema that knows more than it does.
class OldProgramTest : public DriverTest {
protected:
    OldProgramTest() {
        open(young);
        young.startTransaction();
        thing = young.make("Thing");
        thing->text = "first";
        thing->number = 7;
        young.commit();
        open(old);
        Selection all(old.getClass("Thing"));
        EXPECT_TRUE(all.next());
        known = static_cast<Free*>(all.value());
    }

    FreeModel young{2, [](FreeModel& m) {
                        m.declareClass("Thing", [](Free& object, Handler* h) {
                            h->handleInt("number", object.number);
                            h->handleString("text", object.text, 20);
                            h->handleOneAssociated("Owns", "owner", &object.one,
                                                   Association::Unlink);
                            h->handleManyAssociated("Owns", "things", &object.many);
                        });
                    }};
    FreeModel old{1, [](FreeModel& m) { m.declareClass("Thing", textField); }};
    Pointer<Free> thing;
    Pointer<Free> known;
};

TEST_F(OldProgramTest, LeavesFieldsAloneThatItDoesNotKnow) {
    young.startTransaction();
    thing->one = young.make("Thing");
    const unsigned long owner = thing->one->getObjectID();
    young.commit();
    known->refresh();
    known->change();
    known->text = "second";
    old.commit();

    thing->refresh();

    EXPECT_STREQ("second", thing->text);
    EXPECT_EQ(7, thing->number);
    ASSERT_NE(nullptr, thing->one.get());
    EXPECT_EQ(owner, thing->one->getObjectID());
    EXPECT_EQ("2", ask("SELECT version FROM kes_versions WHERE kind = 'MODEL'"));
}

TEST_F(OldProgramTest, IsToldOfAChangeToAFieldThatItDoesNotKnow) {
    young.startTransaction();
    thing->change();
    thing->number = 8;
    young.commit();
    known->change();
    known->text = "second";

    const std::string said = messageRaisedBy([&] { old.commit(); });

    EXPECT_TRUE(says(said, "somebody else has changed it")) << said;
    EXPECT_EQ("8", ask("SELECT [number] FROM [Thing]"));
}

TEST_F(OldProgramTest, StoresNoObjectWithoutAFieldThatItDoesNotKnow) {
    old.startTransaction();
    const std::string id = std::to_string(old.make("Thing")->getObjectID());

    const std::string said = messageRaisedBy([&] { old.commit(); });

    EXPECT_TRUE(says(said, "inserting the Thing object " + id)) << said;
    EXPECT_TRUE(says(said, "number")) << said;
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Thing]"));
    known->change();
    known->text = "second";
    old.commit();
    EXPECT_EQ("second", ask("SELECT [text] FROM [Thing]"));
}

TEST_F(OldProgramTest, RemovesWhatItKnows) {
    old.startTransaction();
    known->remove();
    old.commit();

    EXPECT_EQ("0", ask("SELECT count(*) FROM [Thing]"));
    thing->change();
    const std::string said = messageRaisedBy([&] { young.commit(); });
    EXPECT_TRUE(says(said, "somebody else has removed it")) << said;
}

}  // namespace Kes::testing
