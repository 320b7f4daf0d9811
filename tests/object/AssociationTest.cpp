#include <gtest/gtest.h>

#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/object/NotingListener.h"
#include "tests/support/Raises.h"

namespace Kes::testing {

namespace {

struct End {
    const char* association;
    const char* role;
    bool isMany;
    Association::ConsistencyRule rule;
};

End one(const char* association, const char* role,
        Association::ConsistencyRule rule = Association::Unlink) {
    return {association, role, false, rule};
}

End many(const char* association, const char* role) {
    return {association, role, true, Association::Unlink};
}

std::map<std::string, std::vector<End>> declaredEnds;

/// Reports the ends that were declared for its class.
class Reporter : public Instance {
public:
    explicit Reporter(Class* c) : Instance(c) {}

    void handle(Handler* h) override {
        Instance::handle(h);
        for (const End& end : declaredEnds[static_cast<const char*>(getClass()->getName())]) {
            if (end.isMany)
                h->handleManyAssociated(end.association, end.role, &manyReference);
            else
                h->handleOneAssociated(end.association, end.role, &oneReference, end.rule);
        }
    }

private:
    One<Instance> oneReference{this};
    Many<Instance> manyReference{this};
};

Instance* makeReporter(Class* c) {
    return new Reporter(c);
}

class BareModel : public Model {
public:
    BareModel() : Model("bare", 1000) { declaredEnds.clear(); }

    Class* declare(const char* called, const std::vector<End>& ends, Class* base = nullptr) {
        declaredEnds[called] = ends;
        auto* added = new Class(called, 1, this, makeReporter);
        if (base != nullptr)
            added->subclassOf(base);
        return addClass(added);
    }

    /// Declared later by addClass, so that sub classes may come before it.
    Class* prepare(const char* called, const std::vector<End>& ends) {
        declaredEnds[called] = ends;
        return new Class(called, 1, this, makeReporter);
    }

protected:
    void declareModel() override {}
};

/// "class role plurality - class role plurality rule"
std::string describe(const Association* a) {
    auto* known = const_cast<Association*>(a);
    const auto end = [&](const Class* c, const String& role) {
        return std::string(c == nullptr ? "none" : static_cast<const char*>(c->getName())) + " " +
               static_cast<const char*>(role) +
               (known->getPluralityFor(role) == Association::Many ? " many" : " one");
    };
    return end(a->getOneClass(), a->getOneRole()) + " - " +
           end(a->getOtherClass(), a->getOtherRole()) +
           (a->getConsistencyRule() == Association::CascadeRemove ? " cascade" : " unlink");
}

static_assert(Association::One == 0 && Association::Many == 1);
static_assert(Association::Unlink == 0 && Association::CascadeRemove == 1);
static_assert(sizeof(Association::Plurality) == 4 && sizeof(Association::ConsistencyRule) == 4);
static_assert(std::has_virtual_destructor_v<Association>);
static_assert(!std::is_polymorphic_v<Role>);

class OpenAssociation : public Association {
public:
    using Association::Association;
    using Association::fireAssociationAdded;
    using Association::fireAssociationRemoved;
};

}  // namespace

class AssociationTest : public ::testing::Test {
protected:
    std::string described(const char* name) const { return describe(model.getAssociation(name)); }

    BareModel model;
};

TEST_F(AssociationTest, KnowsOneEndAfterTheFirstClass) {
    model.declare("Person", {one("Works", "employer", Association::CascadeRemove)});

    const Association* works = model.getAssociation("Works");
    ASSERT_NE(nullptr, works);
    EXPECT_EQ(nullptr, works->getOtherClass());
    EXPECT_STREQ("", works->getOtherRole());
    EXPECT_EQ(Association::CascadeRemove, works->getConsistencyRule());
}

TEST_F(AssociationTest, KeepsTheRuleOfTheOneSideThatComesFirst) {
    model.declare("Person", {one("Works", "employer", Association::CascadeRemove)});
    model.declare("Company", {many("Works", "staff")});

    EXPECT_EQ("Person employer one - Company staff many cascade", described("Works"));
}

TEST_F(AssociationTest, KeepsTheRuleOfTheOneSideThatComesLast) {
    model.declare("Company", {many("Works", "staff")});
    model.declare("Person", {one("Works", "employer", Association::CascadeRemove)});

    EXPECT_EQ("Company staff many - Person employer one cascade", described("Works"));
}

TEST_F(AssociationTest, UnlinksWhenTheOneSideSaysSo) {
    model.declare("Company", {many("Works", "staff")});
    model.declare("Person", {one("Works", "employer")});

    EXPECT_EQ("Company staff many - Person employer one unlink", described("Works"));
}

TEST_F(AssociationTest, CascadesBetweenManyAndMany) {
    model.declare("Person", {many("Reads", "books")});
    model.declare("Book", {many("Reads", "readers")});

    EXPECT_EQ("Person books many - Book readers many cascade", described("Reads"));
}

TEST_F(AssociationTest, KeepsTheFirstRuleOfOneToOneWhenTheSecondIsUnlink) {
    model.declare("Person", {one("Owns", "passport", Association::CascadeRemove)});
    model.declare("Passport", {one("Owns", "owner")});

    EXPECT_EQ("Person passport one - Passport owner one cascade", described("Owns"));
}

TEST_F(AssociationTest, TakesTheSecondRuleOfOneToOneWhenItCascades) {
    model.declare("Person", {one("Owns", "passport")});
    model.declare("Passport", {one("Owns", "owner", Association::CascadeRemove)});

    EXPECT_EQ("Person passport one - Passport owner one cascade", described("Owns"));
}

TEST_F(AssociationTest, JoinsAClassWithItself) {
    Class* person = model.declare("Person", {one("Family", "parent", Association::CascadeRemove),
                                             many("Family", "children")});

    EXPECT_EQ("Person parent one - Person children many cascade", described("Family"));
    EXPECT_EQ(2, person->getAssociations().size());
}

TEST_F(AssociationTest, StandsInTheListsOfBothClasses) {
    Class* person = model.declare("Person", {one("Works", "employer")});
    Class* company = model.declare("Company", {many("Works", "staff")});

    ASSERT_EQ(1, person->getAssociations().size());
    ASSERT_EQ(1, company->getAssociations().size());
    EXPECT_EQ(model.getAssociation("Works"), person->getAssociations()[0]);
    EXPECT_EQ(model.getAssociation("Works"), company->getAssociations()[0]);
}

TEST_F(AssociationTest, StaysAtTheClassWhenASubClassFollows) {
    Class* person = model.declare("Person", {one("Works", "employer")});
    model.declare("Company", {many("Works", "staff")});
    Class* student = model.declare("Student", {one("Works", "employer")}, person);

    EXPECT_EQ("Person employer one - Company staff many unlink", described("Works"));
    EXPECT_EQ(1, student->getAssociations().size());
}

TEST_F(AssociationTest, StaysAtTheClassWhenASubClassFollowsBeforeTheOtherEnd) {
    Class* person = model.declare("Person", {one("Works", "employer")});
    model.declare("Student", {one("Works", "employer")}, person);
    model.declare("Company", {many("Works", "staff")});

    EXPECT_EQ("Person employer one - Company staff many unlink", described("Works"));
}

TEST_F(AssociationTest, MovesTheFirstEndUpToAClassThatFollows) {
    Class* person = model.prepare("Person", {one("Works", "employer")});
    model.declare("Student", {one("Works", "employer")}, person);
    model.addClass(person);
    model.declare("Company", {many("Works", "staff")});

    EXPECT_EQ("Person employer one - Company staff many unlink", described("Works"));
}

TEST_F(AssociationTest, MovesACompleteFirstEndUpToAClassThatFollows) {
    Class* person = model.prepare("Person", {one("Works", "employer")});
    model.declare("Student", {one("Works", "employer")}, person);
    model.declare("Company", {many("Works", "staff")});
    model.addClass(person);

    EXPECT_EQ("Person employer one - Company staff many unlink", described("Works"));
}

TEST_F(AssociationTest, MovesTheSecondEndUpToAClassThatFollows) {
    Class* person = model.prepare("Person", {one("Works", "employer")});
    model.declare("Company", {many("Works", "staff")});
    model.declare("Student", {one("Works", "employer")}, person);
    model.addClass(person);

    EXPECT_EQ("Company staff many - Person employer one unlink", described("Works"));
}

TEST_F(AssociationTest, MovesUpToASuperClassThatIsNamedLast) {
    Class* student = model.declare("Student", {one("Works", "employer")});
    Class* person = model.declare("Person", {one("Works", "employer")});
    model.declare("Company", {many("Works", "staff")});
    student->subclassOf(person);
    model.setVersion(1);

    model.open("sqlite", ":memory:", "", "", "");

    EXPECT_EQ("Person employer one - Company staff many unlink", described("Works"));
    EXPECT_EQ(1, person->getAssociations().size());
}

TEST_F(AssociationTest, StaysCompleteWhenAStrangerReportsTheSameRole) {
    model.declare("Person", {one("Works", "employer")});
    model.declare("Company", {many("Works", "staff")});
    model.declare("Robot", {one("Works", "employer")});

    EXPECT_EQ("Person employer one - Company staff many unlink", described("Works"));
}

TEST_F(AssociationTest, AnswersEachRoleWithItsOwnAndTheOppositeEnd) {
    Class* person = model.declare("Person", {one("Works", "employer")});
    Class* company = model.declare("Company", {many("Works", "staff")});
    Association* works = model.getAssociation("Works");

    EXPECT_EQ(person, works->getClassFor("employer"));
    EXPECT_EQ(company, works->getClassFor("staff"));
    EXPECT_STREQ("staff", works->getAssociatedRole("employer"));
    EXPECT_STREQ("employer", works->getAssociatedRole("staff"));
    EXPECT_EQ(Association::One, works->getPluralityFor("employer"));
    EXPECT_EQ(Association::Many, works->getPluralityFor("staff"));
}

TEST_F(AssociationTest, FindsTheUnknownEndUnderTheEmptyRole) {
    model.declare("Person", {many("Works", "employer")});
    Association* works = model.getAssociation("Works");

    EXPECT_EQ(nullptr, works->getClassFor(""));
    EXPECT_STREQ("employer", works->getAssociatedRole(""));
    EXPECT_EQ(Association::One, works->getPluralityFor(""));
}

TEST(AssociationRoleTest, AsksTheOtherEndFirstForTheClassOfEqualRoles) {
    Class a("A", 1, nullptr, nullptr), b("B", 1, nullptr, nullptr);
    Association same("Same", &a, "x", Association::One, &b, "x", Association::Many,
                     Association::Unlink);
    EXPECT_EQ(&b, same.getClassFor("x"));
    EXPECT_EQ(Association::One, same.getPluralityFor("x"));
}

TEST(AssociationRoleTest, AsksTheFirstEndFirstForTheAssociatedRoleOfEqualRoles) {
    Class a("A", 1, nullptr, nullptr);
    const Association same("Same", &a, "x", Association::One, &a, "x", Association::Many,
                           Association::Unlink);
    EXPECT_EQ(&same.getOtherRole(), &same.getAssociatedRole("x"));
}

TEST(AssociationConstructionTest, EntersTheAssociationNowhere) {
    BareModel model;
    Class a("A", 1, &model, nullptr), b("B", 1, &model, nullptr);
    const Association whole("Whole", &a, "x", Association::One, &b, "y", Association::Many,
                            Association::Unlink);
    const Association half("Half", &a, "x", Association::Many, Association::CascadeRemove);

    EXPECT_EQ(0, a.getAssociations().size());
    EXPECT_EQ(0, b.getAssociations().size());
    EXPECT_EQ(nullptr, model.getAssociation("Whole"));
    EXPECT_EQ(nullptr, model.getAssociation("Half"));
}

namespace {

class LostRole : public ::testing::Test {
protected:
    Class person{"Person", 1, nullptr, nullptr};
    Class company{"Company", 1, nullptr, nullptr};
    Association works{"Works", &company,   "staff",          Association::Many,
                      &person, "employer", Association::One, Association::Unlink};
};

// What the work raises, as "severity code context message".
template <class Work>
std::string errorOf(Work work) {
    try {
        work();
    } catch (const Exception& e) {
        return std::to_string(e.getSeverity()) + " " + e.getCode() + " " + e.getContext() + " " +
               e.getMessage();
    }
    return "";
}

}  // namespace

TEST_F(LostRole, IsFatalForTheClass) {
    EXPECT_EQ("0 ASSERR Association::getClassFor Association does not have role: boss",
              errorOf([&] { works.getClassFor("boss"); }));
}

TEST_F(LostRole, IsFatalForTheAssociatedRole) {
    EXPECT_EQ("0 ASSERR Association::getAssociatedRole Association does not have role: boss",
              errorOf([&] { works.getAssociatedRole("boss"); }));
}

TEST_F(LostRole, IsFatalForThePlurality) {
    EXPECT_EQ("0 ASSERR Association::getPluralityFor Association does not have role: boss",
              errorOf([&] { works.getPluralityFor("boss"); }));
}

using LostRoleDeathTest = LostRole;

TEST_F(LostRoleDeathTest, EndsTheProcessWhenTheHandlerReturns) {
    const ReturningHandler handler;
    EXPECT_EXIT(works.getClassFor("boss"), ::testing::ExitedWithCode(1), "");
    EXPECT_EXIT(works.getAssociatedRole("boss"), ::testing::ExitedWithCode(1), "");
    EXPECT_EXIT(works.getPluralityFor("boss"), ::testing::ExitedWithCode(1), "");
}

TEST_F(LostRole, DoesNotMatchInAnotherCase) {
    EXPECT_RAISES("ASSERR", works.getClassFor("Staff"));
}

TEST_F(LostRole, LeavesAssociationsEqualToThemselvesOnly) {
    const Association twin(works);
    EXPECT_TRUE(works == works);
    EXPECT_FALSE(works == twin);
    EXPECT_STREQ("staff", twin.getOneRole());
}

TEST(InitializeOtherClassTest, ReplacesAnEndByAnUnrelatedClass) {
    Class a("A", 1, nullptr, nullptr), b("B", 1, nullptr, nullptr), c("C", 1, nullptr, nullptr);
    Association as("As", &a, "x", Association::One, &b, "y", Association::Many,
                   Association::CascadeRemove);

    as.initializeOtherClass(&c, "z", Association::One, Association::Unlink);

    EXPECT_EQ("A x one - C z one cascade", describe(&as));
}

TEST(InitializeOtherClassTest, ChangesOnlyTheClassWhenItGeneralises) {
    Class a("A", 1, nullptr, nullptr), b("B", 1, nullptr, nullptr),
        base("Base", 1, nullptr, nullptr);
    b.subclassOf(&base);
    Association as("As", &a, "x", Association::One, &b, "y", Association::Many,
                   Association::Unlink);

    as.initializeOtherClass(&base, "z", Association::One, Association::CascadeRemove);

    EXPECT_EQ("A x one - Base y many unlink", describe(&as));
}

TEST(InitializeOtherClassTest, ChangesNothingForTheFirstRoleOfAStranger) {
    Class a("A", 1, nullptr, nullptr), c("C", 1, nullptr, nullptr);
    Association as("As", &a, "x", Association::One, Association::Unlink);

    as.initializeOtherClass(&c, "x", Association::Many, Association::CascadeRemove);

    EXPECT_EQ("A x one - none  one unlink", describe(&as));
}

TEST(AssociationListenerTest, TellsBothInstancesAndThenItsOwnListeners) {
    Class c("C", 1, nullptr, nullptr);
    OpenAssociation as("As", &c, "x", Association::One, Association::Unlink);
    Instance p(&c), q(&c);
    p.setObjectID(1);
    q.setObjectID(2);
    NotingListener::Log log;
    NotingListener ofP(log, "p"), ofQ(log, "q"), own(log, "as");
    as.addListener(&own);
    q.addListener(&ofQ);
    p.addListener(&ofP);

    as.fireAssociationAdded(&p, &q);
    as.fireAssociationRemoved(&p, &q);
    as.removeListener(&own);

    EXPECT_EQ(
        (NotingListener::Log{"p: linked As 1 2", "q: linked As 2 1", "as: linked As 1 2",
                             "p: unlinked As 1 2", "q: unlinked As 2 1", "as: unlinked As 1 2"}),
        log);
}

TEST(AssociationListenerTest, ForgetsAListenerThatWasAddedTwiceAtOnce) {
    Class c("C", 1, nullptr, nullptr);
    OpenAssociation as("As", &c, "x", Association::One, Association::Unlink);
    Instance p(&c), q(&c);
    NotingListener::Log log;
    NotingListener listener(log);
    as.addListener(&listener);
    as.addListener(&listener);
    as.fireAssociationAdded(&p, &q);
    as.removeListener(&listener);
    as.fireAssociationAdded(&p, &q);

    EXPECT_EQ(1U, log.size());
}

TEST(AssociationListenerTest, ReachesAllWhenOneLeavesMeanwhile) {
    Class c("C", 1, nullptr, nullptr);
    OpenAssociation as("As", &c, "x", Association::One, Association::Unlink);
    Instance p(&c), q(&c);
    NotingListener::Log log;
    NotingListener leaving(log, "leaving"), staying(log, "staying");
    leaving.then = [&] { as.removeListener(&leaving); };
    as.addListener(&leaving);
    as.addListener(&staying);

    as.fireAssociationAdded(&p, &q);
    as.fireAssociationRemoved(&p, &q);
    as.removeListener(&staying);

    EXPECT_EQ((NotingListener::Log{"leaving: linked As 0 0", "staying: linked As 0 0",
                                   "staying: unlinked As 0 0"}),
              log);
}

TEST(AssociationListenerTest, OutlivesACopyThatIsDestroyed) {
    Class c("C", 1, nullptr, nullptr);
    OpenAssociation as("As", &c, "x", Association::One, Association::Unlink);
    Instance p(&c), q(&c);
    NotingListener::Log log;
    NotingListener listener(log);
    as.addListener(&listener);
    {
        OpenAssociation copy(as);
        copy.fireAssociationAdded(&p, &q);
    }
    as.fireAssociationRemoved(&p, &q);
    as.removeListener(&listener);

    EXPECT_EQ((NotingListener::Log{"linked As 0 0", "unlinked As 0 0"}), log);
}

TEST(RoleTest, KnowsItsParts) {
    Class c("C", 1, nullptr, nullptr);
    Association as("As", &c, "x", Association::One, Association::Unlink);
    const Role role(&c, "x", &as);
    const Role copy(role);

    EXPECT_EQ(&c, copy.getClass());
    EXPECT_STREQ("x", copy.getRole());
    EXPECT_EQ(&as, copy.getAssociation());
    Role assigned(nullptr, "", nullptr);
    assigned = role;
    EXPECT_EQ(&c, assigned.getClass());
    EXPECT_STREQ("x", assigned.getRole());
    EXPECT_EQ(&as, assigned.getAssociation());
}

}  // namespace Kes::testing
