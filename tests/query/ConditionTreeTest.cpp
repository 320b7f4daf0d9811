#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/StaffModel.h"

namespace Kes::testing {

// Notes each call as a line.
class NotingTranslator : public ConditionTranslator {
public:
    void translate(Condition* left, Condition::LogicalOperator op, Condition* right) override {
        note("combination", op);
        if (!recurses)
            return;
        left->translate(this);
        right->translate(this);
    }
    void translate(Role* role, Condition::AssociationOperator op,
                   AssociatedClass* selection) override {
        selected = selection->getCondition();
        const Class* cls = selection->getClass();
        note(std::string("many ") + static_cast<const char*>(role->getRole()) + " " +
                 (cls != nullptr ? static_cast<const char*>(cls->getName()) : ""),
             op);
    }
    void translate(Role* role, Condition::AssociationOperator op, Instance* instance) override {
        note(std::string("one ") + static_cast<const char*>(role->getRole()) +
                 (instance == nullptr ? " null" : ""),
             op);
    }
    void translate(Attribute* a, int op, double) override { noteAttribute("double", a, op); }
    void translate(Attribute* a, int op, float) override { noteAttribute("float", a, op); }
    void translate(Attribute* a, int op, bool) override { noteAttribute("bool", a, op); }
    void translate(Attribute* a, int op, const Timestamp&) override {
        noteAttribute("time", a, op);
    }
    void translate(Attribute* a, int op, const String& value) override {
        noteAttribute((std::string("text ") + static_cast<const char*>(value)).c_str(), a, op);
    }
    void translate(Attribute* a, int op, int) override { noteAttribute("int", a, op); }
    void translate(Attribute* a, int op, unsigned int) override { noteAttribute("uint", a, op); }
    void translate(Attribute* a, int op, long) override { noteAttribute("long", a, op); }
    void translate(Attribute* a, int op, unsigned long) override { noteAttribute("ulong", a, op); }

    std::vector<std::string> lines;
    bool recurses = false;
    Condition* selected = nullptr;  // nested in the last test of a role

private:
    void noteAttribute(const char* kind, const Attribute* a, int op) {
        note(std::string(static_cast<const char*>(a->getName())) + " " + kind, op);
    }
    void note(const std::string& what, int op) { lines.push_back(what + " " + std::to_string(op)); }
};

std::vector<std::string> callsOf(Condition&& condition, bool recurses = false) {
    NotingTranslator translator;
    translator.recurses = recurses;
    condition.translate(&translator);
    return translator.lines;
}

// Null where none is nested.
Condition* nestedIn(Condition& condition) {
    NotingTranslator translator;
    condition.translate(&translator);
    return translator.selected;
}

// Enough for the test, and not for a call of each level of a deep tree.
void onSmallStack(std::function<void()> work) {
    pthread_attr_t attributes;
    ASSERT_EQ(0, pthread_attr_init(&attributes));
    ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, 256 * 1024));
    pthread_t thread{};
    const auto run = [](void* what) -> void* {
        (*static_cast<std::function<void()>*>(what))();
        return nullptr;
    };
    ASSERT_EQ(0, pthread_create(&thread, &attributes, run, &work));
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

class ConditionTreeTest : public ::testing::Test {
protected:
    ConditionTreeTest() { model.openWith(); }

    using Lines = std::vector<std::string>;

    StaffModel model;
    const Attribute age{nullptr, "age"};
};

TEST_F(ConditionTreeTest, CarriesTheCodeOfEachOperator) {
    EXPECT_EQ(Lines{"age int 0"}, callsOf(age == 1));
    EXPECT_EQ(Lines{"age int 1"}, callsOf(age != 1));
    EXPECT_EQ(Lines{"age int 2"}, callsOf(age > 1));
    EXPECT_EQ(Lines{"age int 3"}, callsOf(age < 1));
    EXPECT_EQ(Lines{"age int 4"}, callsOf(age >= 1));
    EXPECT_EQ(Lines{"age int 5"}, callsOf(age <= 1));
    EXPECT_EQ(Lines{"age text a%_\\ 6"}, callsOf(age.like("a%_\\")));
}

TEST_F(ConditionTreeTest, ArrivesAtTheSlotOfItsType) {
    EXPECT_EQ(Lines{"age ulong 0"}, callsOf(age == 1UL));
    EXPECT_EQ(Lines{"age long 0"}, callsOf(age == 1L));
    EXPECT_EQ(Lines{"age uint 0"}, callsOf(age == 1U));
    EXPECT_EQ(Lines{"age bool 0"}, callsOf(age == true));
    EXPECT_EQ(Lines{"age float 0"}, callsOf(age == 1.0F));
    EXPECT_EQ(Lines{"age double 0"}, callsOf(age == 1.0));
    EXPECT_EQ(Lines{"age time 0"}, callsOf(age == Timestamp::now()));
    EXPECT_EQ(Lines{"age text x 0"}, callsOf(age == "x"));
    EXPECT_EQ(Lines{"age text x 0"}, callsOf(age == String("x")));
}

namespace {

// The calls of all six comparisons with one value.
template <class T>
std::vector<std::string> comparisons(const Attribute& with, const T& value) {
    std::vector<std::string> lines;
    const auto take = [&](Condition&& condition) {
        for (const std::string& line : callsOf(std::move(condition)))
            lines.push_back(line);
    };
    take(with == value);
    take(with != value);
    take(with > value);
    take(with < value);
    take(with >= value);
    take(with <= value);
    return lines;
}

std::vector<std::string> numbered(const std::string& call) {
    std::vector<std::string> lines;
    for (int code = 0; code < 6; ++code)
        lines.push_back(call + " " + std::to_string(code));
    return lines;
}

}  // namespace

TEST_F(ConditionTreeTest, CarriesEveryCodeForEveryType) {
    EXPECT_EQ(numbered("age ulong"), comparisons(age, 1UL));
    EXPECT_EQ(numbered("age long"), comparisons(age, 1L));
    EXPECT_EQ(numbered("age int"), comparisons(age, 1));
    EXPECT_EQ(numbered("age uint"), comparisons(age, 1U));
    EXPECT_EQ(numbered("age bool"), comparisons(age, true));
    EXPECT_EQ(numbered("age float"), comparisons(age, 1.0F));
    EXPECT_EQ(numbered("age double"), comparisons(age, 1.0));
    EXPECT_EQ(numbered("age time"), comparisons(age, Timestamp::now()));
    EXPECT_EQ(numbered("age text x"), comparisons(age, String("x")));
    const char* plain = "x";
    EXPECT_EQ(numbered("age text x"), comparisons(age, plain));
}

TEST_F(ConditionTreeTest, KeepsCopiesOfItsOperands) {
    std::unique_ptr<Condition> condition;
    {
        const Attribute name(model.personClass, "name");
        const String value("Ann");
        condition.reset((name == value).getNew());
    }
    NotingTranslator translator;
    condition->translate(&translator);

    EXPECT_EQ(Lines{"name text Ann 0"}, translator.lines);
}

namespace {

/// Notes what happens to it in a log that all copies share.
class Watched final : public Condition {
public:
    Watched(std::vector<std::string>& notes, const char* itsName) : log(notes), name(itsName) {}
    Watched(const Watched& other) = default;
    ~Watched() override { log.push_back(std::string("gone ") + name); }
    void translate(ConditionTranslator*) override { log.push_back(std::string("asked ") + name); }
    Condition* getNew() const override {
        log.push_back(std::string("copied ") + name);
        return new Watched(*this);
    }

private:
    std::vector<std::string>& log;
    const char* name;
};

/// Copies itself as what it is.
class Marked final : public CombinationCondition {
public:
    using CombinationCondition::CombinationCondition;
    Condition* getNew() const override { return new Marked(*this); }
};

}  // namespace

TEST_F(ConditionTreeTest, CopiesTheRightOperandFirst) {
    Lines log;
    const Watched left(log, "left"), right(log, "right");
    { const CombinationCondition both = left & right; }
    { const CombinationCondition any = left || right; }

    EXPECT_EQ((Lines{"copied right", "copied left", "gone left", "gone right", "copied right",
                     "copied left", "gone left", "gone right"}),
              log);
}

TEST_F(ConditionTreeTest, AsksNoOperandByItself) {
    Lines log;
    const Watched left(log, "left"), right(log, "right");
    CombinationCondition both = left & right;
    log.clear();
    NotingTranslator translator;
    both.translate(&translator);

    EXPECT_TRUE(log.empty());
}

TEST_F(ConditionTreeTest, IsDestroyedFromTheLeft) {
    Lines log;
    {
        const Watched a(log, "a"), b(log, "b"), c(log, "c"), d(log, "d");
        const std::unique_ptr<Condition> tree(((a & b) || (c & d)).getNew());
        log.clear();
    }

    EXPECT_EQ(
        (Lines{"gone a", "gone b", "gone c", "gone d", "gone d", "gone c", "gone b", "gone a"}),
        log);
}

TEST_F(ConditionTreeTest, AdoptsWhatItIsMadeOf) {
    Lines log;
    {
        const CombinationCondition both(new Watched(log, "left"), Condition::AND,
                                        new Watched(log, "right"));
        EXPECT_TRUE(log.empty());
    }

    EXPECT_EQ((Lines{"gone left", "gone right"}), log);
}

TEST_F(ConditionTreeTest, CopiesDerivedCombinationsAsWhatTheyAre) {
    const Marked marked((age == 1).getNew(), Condition::OR, (age == 2).getNew());
    class Finder final : public NotingTranslator {
    public:
        using NotingTranslator::translate;
        void translate(Condition* left, Condition::LogicalOperator, Condition*) override {
            found = dynamic_cast<Marked*>(left) != nullptr;
        }
        bool found = false;
    } finder;
    const std::unique_ptr<Condition> copy((marked & (age == 3)).getNew());
    copy->translate(&finder);

    EXPECT_TRUE(finder.found);
}

TEST_F(ConditionTreeTest, SharesWhatItHoldsWhenItIsAssigned) {
    Lines log;
    {
        const CombinationCondition original(new Watched(log, "left"), Condition::OR,
                                            new Watched(log, "right"));
        const CombinationCondition empty(nullptr, Condition::AND, nullptr);
        CombinationCondition assigned(empty);
        assigned = original;
        NotingTranslator translator;
        translator.recurses = true;
        assigned.translate(&translator);
        EXPECT_EQ(Lines{"combination 1"}, translator.lines);
        EXPECT_EQ((Lines{"asked left", "asked right"}), log);
        log.clear();
        assigned = empty;  // so that one of the two frees the operands
    }

    EXPECT_EQ((Lines{"gone left", "gone right"}), log);
}

TEST_F(ConditionTreeTest, CopiesANestedSelectionDeeply) {
    const Role role(model.personClass, "employer", model.getAssociation("Works"));
    std::unique_ptr<Condition> copy;
    {
        Selection nested(model.companyClass);
        nested.where(nested["name"] == "x");
        nested.orderBy(nested["name"]);
        const ManyAssociatedCondition original = role == nested;
        copy.reset(original.getNew());
    }
    class Looker final : public NotingTranslator {
    public:
        using NotingTranslator::translate;
        void translate(Role*, Condition::AssociationOperator, AssociatedClass* nested) override {
            nested->getCondition()->translate(this);
        }
    } looker;
    copy->translate(&looker);

    EXPECT_EQ(Lines{"name text x 0"}, looker.lines);
}

TEST_F(ConditionTreeTest, NestsASelectionWithoutCondition) {
    const Role role(model.personClass, "employer", model.getAssociation("Works"));
    Selection nested(model.companyClass);
    ManyAssociatedCondition condition = role == nested;
    class Looker final : public NotingTranslator {
    public:
        using NotingTranslator::translate;
        void translate(Role*, Condition::AssociationOperator, AssociatedClass* inner) override {
            isNull = inner->getCondition() == nullptr;
        }
        bool isNull = false;
    } looker;
    condition.translate(&looker);

    EXPECT_TRUE(looker.isNull);
}

TEST_F(ConditionTreeTest, MakesOneCallForACombination) {
    EXPECT_EQ(Lines{"combination 0"}, callsOf((age == 1) & (age == 2)));
    EXPECT_EQ(Lines{"combination 1"}, callsOf(age == 1 || age == 2));
}

TEST_F(ConditionTreeTest, NestsToTheLeft) {
    EXPECT_EQ((Lines{"combination 0", "combination 0", "age int 0", "age long 0", "age uint 0"}),
              callsOf((age == 1) & (age == 2L) & (age == 3U), true));
}

TEST_F(ConditionTreeTest, BindsAndTighterThanOr) {
    EXPECT_EQ((Lines{"combination 1", "age int 0", "combination 0", "age long 0", "age uint 0"}),
              callsOf(age == 1 || ((age == 2L) & (age == 3U)), true));
}

TEST_F(ConditionTreeTest, IsCopiedDeeply) {
    std::unique_ptr<Condition> copy;
    {
        const CombinationCondition original = (age == 1) & (age > 2);
        copy.reset(original.getNew());
    }
    NotingTranslator translator;
    translator.recurses = true;
    copy->translate(&translator);

    EXPECT_EQ((Lines{"combination 0", "age int 0", "age int 2"}), translator.lines);
}

TEST_F(ConditionTreeTest, TestsRolesAgainstInstances) {
    const Role role(model.personClass, "employer", model.getAssociation("Works"));
    model.startTransaction();
    const Pointer<Instance> firm(model.newCompany("Firm"));

    EXPECT_EQ(Lines{"one employer 0"}, callsOf(role == firm));
    EXPECT_EQ(Lines{"one employer 1"}, callsOf(role != firm.getInstance()));
    EXPECT_EQ(Lines{"one employer null 0"}, callsOf(role == nullptr));
    EXPECT_EQ(Lines{"one employer null 1"}, callsOf(role != nullptr));
}

TEST_F(ConditionTreeTest, TakesTheConditionOfANestedSelection) {
    const Role role(model.personClass, "employer", model.getAssociation("Works"));
    Selection nested(model.companyClass);
    nested.where(nested["name"] == "x");

    EXPECT_EQ(Lines{"many employer Company 0"}, callsOf(role == nested));
    EXPECT_EQ(nullptr, nested.getCondition());
    EXPECT_EQ(Lines{"many employer Company 1"}, callsOf(role != nested));
}

TEST_F(ConditionTreeTest, KeepsTheInstanceItTestsForAlive) {
    const Role role(model.personClass, "employer", model.getAssociation("Works"));
    model.startTransaction();
    const unsigned long id = model.newCompany("Firm")->getObjectID();
    model.commit();
    {
        const OneAssociatedCondition condition = role == model.get(id);
        model.garbageCollect();
        EXPECT_NE(nullptr, model.get(id));
    }
    model.garbageCollect();

    EXPECT_EQ(nullptr, model.get(id));
}

TEST_F(ConditionTreeTest, MayBeAMillionOperandsDeep) {
    Condition* deep = (age == 0).getNew();
    for (int i = 0; i < 1000000; ++i)
        deep = new CombinationCondition(deep, Condition::OR, (age == i).getNew());
    const std::unique_ptr<Condition> original(deep);

    const std::unique_ptr<Condition> copy(original->getNew());

    EXPECT_NE(nullptr, copy);
}

TEST(ConditionDepthTest, NestsSelectionsDeeperThanTheStack) {
    const Role role(nullptr, "parent", nullptr);

    onSmallStack([&] {
        std::unique_ptr<Condition> deep((Attribute(nullptr, "age") == 0).getNew());
        for (int i = 0; i < 1000; ++i) {
            Selection inner(nullptr);
            inner.setCondition(deep.release());
            deep.reset((role == inner).getNew());
        }

        const std::unique_ptr<Condition> copy(deep->getNew());
        deep.reset();

        int levels = 0;
        for (Condition* next = copy.get(); next != nullptr; ++levels)
            next = nestedIn(*next);
        EXPECT_EQ(1001, levels);
    });
}

TEST(ConditionTranslatorTest, HandsOutAliasesInTurn) {
    NotingTranslator translator;

    EXPECT_EQ("a0", translator.getNewAlias());
    EXPECT_EQ("a1", translator.getNewAlias());
    NotingTranslator copy(translator);
    EXPECT_EQ("a2", copy.getNewAlias());
    EXPECT_EQ("a2", translator.getNewAlias());
    NotingTranslator assigned;
    assigned = copy;
    EXPECT_EQ("a3", assigned.getNewAlias());
}

}  // namespace Kes::testing
