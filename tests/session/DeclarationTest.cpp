// Classes and associations that are declared twice, or not at all.

#include <gtest/gtest.h>

#include <memory>

#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

namespace {

Instance* makePerson(Class* c) {
    return new Person(c);
}

}  // namespace

TEST(DeclarationTest, KeepsAClassThatIsDeclaredAgain) {
    StaffModel model;
    model.openWith();

    EXPECT_RAISES("DECLERR", model.addClass(model.personClass));

    EXPECT_EQ("Person", model.getClass("Person")->getName());
    EXPECT_EQ("Ann", model.newPerson("Ann")->name);
}

TEST(DeclarationTest, KeepsAnAssociationThatIsDeclaredAgain) {
    StaffModel model;
    model.openWith();
    Association* const works = model.getAssociation("Works");

    EXPECT_RAISES("DECLERR", model.addAssociation(works));

    EXPECT_EQ("Works", works->getName());
    model.newPerson("Ann")->employer = model.newCompany("Acme");
    model.commit();
}

TEST(DeclarationTest, LeavesWhatAnotherModelHasDeclaredToIt) {
    StaffModel model;
    model.openWith();
    {
        StaffModel other;

        EXPECT_RAISES("DECLERR", other.addClass(model.personClass));
        EXPECT_RAISES("DECLERR", other.addAssociation(model.getAssociation("Works")));
    }

    EXPECT_EQ("Ann", model.newPerson("Ann")->name);
    EXPECT_EQ("Works", model.getAssociation("Works")->getName());
}

TEST(DeclarationTest, LeavesNoTraceOfASubClassThatWasRefused) {
    StaffModel model;
    model.openWith();
    auto* const twin = new Class("Person", 1, &model, makePerson);
    twin->subclassOf(model.companyClass);

    EXPECT_RAISES("DECLERR", model.addClass(twin));

    EXPECT_EQ(0, model.companyClass->getSubClasses().size());
    EXPECT_EQ(1, model.companyClass->getConcreteClasses().size());
}

TEST(DeclarationTest, RefusesNull) {
    StaffModel model;

    EXPECT_RAISES("DECLERR", model.addClass(nullptr));
    EXPECT_RAISES("DECLERR", model.addAssociation(nullptr));
}

TEST(DeclarationTest, GoesOnWhenTheHandlerReturns) {
    StaffModel model;
    model.openWith();
    const ReturningHandler handler;

    EXPECT_EQ(nullptr, model.addClass(model.personClass));
    model.addAssociation(model.getAssociation("Works"));

    EXPECT_EQ((std::vector<std::string>{"DECLERR", "DECLERR"}), handler.codes());
    EXPECT_EQ("Person", model.personClass->getName());
}

// The sanitizer ends a program at such a call.
#ifndef KES_SANITIZED_ADDRESS
TEST(NullClassTest, MakesNoObject) {
    StaffModel model;

    EXPECT_RAISES("INSTERR", model.personClass->newInstance());
    const ReturningHandler handler;
    EXPECT_EQ(nullptr, model.personClass->newInstance());
}

TEST(NullAttributeTest, IsDeletedWithoutHarm) {
    Attribute* volatile none = nullptr;  // the compiler is not to know
    Attribute* const attribute = none;

    attribute->deleteThis();

    EXPECT_EQ(nullptr, attribute);
}
#endif

TEST(NullClassTest, LetsNothingBeDoneWithAnObject) {
    StaffModel model;
    model.openWith();
    Person lost(nullptr);

    EXPECT_RAISES("INSTERR", lost.add());
    EXPECT_RAISES("INSTERR", lost.change());
    EXPECT_RAISES("INSTERR", lost.remove());
    EXPECT_RAISES("INSTERR", lost.lock());
    EXPECT_RAISES("INSTERR", lost.refresh());
    EXPECT_RAISES("INSTERR", lost.employer.get());
    EXPECT_RAISES("INSTERR", lost.employer = nullptr);
    EXPECT_RAISES("INSTERR", lost.friends.add(&lost));
    EXPECT_RAISES("INSTERR", lost.friends.remove(&lost));
    EXPECT_RAISES("INSTERR", Pointer<Person> keep(&lost));
    EXPECT_RAISES("INSTERR", model.add(&lost));
    EXPECT_RAISES("INSTERR", model.lock(&lost));
    EXPECT_FALSE(lost.isRemoved());
}

TEST(NullClassTest, LeavesAPointerOutOfEveryModelWhenTheHandlerReturns) {
    Person lost(nullptr);
    const ReturningHandler handler;

    { const Pointer<Person> keep(&lost); }

    EXPECT_EQ(std::vector<std::string>{"INSTERR"}, handler.codes());
}

TEST(NullClassTest, IsRefusedByAQuery) {
    StaffModel model;
    model.openWith();
    Selection none(nullptr);
    none.where((none["name"] == "Ann") & (none("Works") == nullptr) &
               (none("Works", "employer") != nullptr));
    none.orderBy(none["name"]);

    EXPECT_RAISES("SELERR", none.next());
    EXPECT_EQ(nullptr, model.getInstance(1, nullptr));
}

TEST(NullClassTest, IsRefusedByAQueryThatNestsIt) {
    StaffModel model;
    model.openWith();
    Selection none(nullptr);
    Selection people(model.personClass);
    people.where(people("Works") == none);

    EXPECT_RAISES("SELERR", people.next());
}

TEST(NeverAddedTest, IsNotRemoved) {
    StaffModel model;
    model.openWith();
    Person draft(model.personClass);

    EXPECT_RAISES("INSTERR", draft.remove());
    EXPECT_RAISES("INSTERR", model.remove(&draft));

    EXPECT_FALSE(draft.isRemoved());
}

TEST(NeverAddedTest, CanBeAddedAfterARefusedRemoval) {
    StaffModel model;
    model.openWith();
    auto* const draft = new Person(model.personClass);
    {
        const ReturningHandler handler;
        draft->remove();
        EXPECT_EQ(std::vector<std::string>{"INSTERR"}, handler.codes());
    }

    draft->add();
    model.commit();

    EXPECT_NE(0UL, draft->getObjectID());
}

}  // namespace Kes::testing
