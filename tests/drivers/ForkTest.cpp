// Processes that are forked while a model is open: the connection stays the
// parent's, whatever the child does and however it ends.

#include <memory>

#include "tests/drivers/DriverTest.h"
#include "tests/support/Child.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class ForkTest : public DriverTest {
protected:
    ForkTest() : model(std::make_unique<StaffModel>()) {
        open(*model);
        for (const char* name : {"Ann", "Bob", "Cid"})
            model->newPerson(name, 30);
        model->commit();
    }

    void expectItWorks() {
        Person* const ann = model->findPerson("Ann");
        ASSERT_NE(nullptr, ann);
        ann->change();
        ann->age = 31;
        model->commit();
        EXPECT_EQ(1UL, ann->getVersion());
        EXPECT_NE(nullptr, model->findPerson("Bob"));
    }

    // Also where the parent has closed the file by then.
    void expectRefusedInTheChild() {
        Child child([&](const Child::Report& tell) {
            StaffModel own;
            const std::string said = messageRaisedBy([&] { open(own); });
            tell(says(said, "was open in the process that this one was forked from") ? "refused"
                                                                                     : said);
            return true;
        });
        EXPECT_EQ("refused", child.says());
    }

    std::unique_ptr<StaffModel> model;
};

TEST_F(ForkTest, RaisesAnErrorInTheChildAndLeavesTheConnectionAlone) {
    Pointer<Person> ann(model->findPerson("Ann"));
    auto people = std::make_unique<Selection>(model->personClass);
    ASSERT_TRUE(people->next());

    Child child([&](const Child::Report& tell) {
        tell(codeRaisedBy([&] { model->startTransaction(); }));
        tell(codeRaisedBy([&] { ann->change(); }));
        tell(codeRaisedBy([&] { people->next(); }));
        tell(codeRaisedBy([&] { model->close(); }));
        people.reset();
        ann.~Pointer();
        model.reset();
        return true;
    });

    EXPECT_EQ("FORKERR\nFORKERR\nFORKERR\nFORKERR", child.says());
    EXPECT_TRUE(child.succeeds());
    EXPECT_TRUE(people->next());
    EXPECT_TRUE(people->next());
    EXPECT_FALSE(people->next());
    expectItWorks();
}

TEST_F(ForkTest, OpensAModelOfItsOwnInTheChild) {
    if (!engine->opensInheritedFiles())
        return expectRefusedInTheChild();
    Child child([&](const Child::Report&) {
        StaffModel own;
        open(own);
        own.newPerson("Dan", 40);
        own.commit();
        own.close();
        return true;
    });

    EXPECT_TRUE(child.succeeds());
    EXPECT_NE(nullptr, model->findPerson("Dan"));
    expectItWorks();
}

TEST_F(ForkTest, OpensAClosedModelInTheChild) {
    model->close();

    Child child([&](const Child::Report&) {
        open(*model);
        const bool isThere = model->findPerson("Ann") != nullptr;
        model->close();
        return isThere;
    });

    EXPECT_TRUE(child.succeeds());
    open(*model);
    expectItWorks();
}

TEST_F(ForkTest, TakesNoDriverInTheChildThatTheParentHasParked) {
    Model::setDriverCacheSize(1);
    model->close();
    if (!engine->opensInheritedFiles()) {
        expectRefusedInTheChild();
        open(*model);
        expectItWorks();
        return Model::setDriverCacheSize(0);
    }

    Child child([&](const Child::Report&) {
        StaffModel own;
        open(own);
        const bool isThere = own.findPerson("Ann") != nullptr;
        own.close();
        Model::setDriverCacheSize(0);
        return isThere;
    });

    EXPECT_TRUE(child.succeeds());
    open(*model);
    expectItWorks();
    Model::setDriverCacheSize(0);
}

}  // namespace Kes::testing
