#include <string>
#include <utility>
#include <vector>

#include "tests/drivers/DriverTest.h"
#include "tests/drivers/FreeModel.h"
#include "tests/support/Raises.h"

namespace Kes::testing {

namespace {

void textAndNumber(Free& object, Handler* h) {
    h->handleString("text", object.text, 20);
    h->handleInt("number", object.number);
}

void friends(Free& object, Handler* h) {
    textField(object, h);
    h->handleManyAssociated("Friends", "a", &object.many);
    h->handleManyAssociated("Friends", "b", &object.many2);
}

const FreeModel::Declare thing = [](FreeModel& m) { m.declareClass("Thing", textField, 1); };
const FreeModel::Declare longerThing = [](FreeModel& m) {
    m.declareClass("Thing", textAndNumber, 1);
};

class Note : public Instance {
public:
    using Instance::Instance;
    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleString("text", text, 20);
        h->handleManyAssociated("Friends", "a", &a);
        h->handleManyAssociated("Friends", "b", &b);
    }

    String text;
    Many<Note> a{this};
    Many<Note> b{this};
};

// A model of any name with one class.
class Notes : public Model {
public:
    Notes(const char* called, const char* itsClass, int schemaVersion, bool isSharing = false)
        : Model(called, 100),
          className(itsClass),
          sharing(isSharing) {
        setVersion(schemaVersion);
    }

protected:
    void declareModel() override {
        addClass(className.c_str(), getVersion(), [](Class* c) -> Instance* {
            return new Note(c);
        })->setShared(sharing);
    }

private:
    std::string className;
    bool sharing;
};

}  // namespace

class DeclarationTest : public DriverTest {
protected:
    std::string errorOf(Model& model) {
        return errorRaisedBy([&] { open(model); });
    }

    // What an open with these declarations raises; "" when it works.
    std::string error(const FreeModel::Declare& declare, int version = 1) {
        FreeModel model(version, declare);
        return errorOf(model);
    }

    std::string errorOfNotes(const char* called, const char* className, int version = 1,
                             bool isSharing = false) {
        Notes model(called, className, version, isSharing);
        return errorOf(model);
    }

    static std::vector<std::string> withoutLinks(std::vector<std::string> tables) {
        std::erase(tables, "Friends");
        return tables;
    }

    void dropRecords() {
        run("DELETE FROM kes_versions WHERE kind NOT IN ('FORMAT', 'MODEL', 'CLASS')");
    }

    std::string modelVersion() {
        return ask("SELECT version FROM kes_versions WHERE kind = 'MODEL'");
    }

    static void expectRefusal(const std::string& error, const std::vector<std::string>& words) {
        EXPECT_EQ(0U, error.find("1 DECLERR | Model::open | ")) << error;
        for (const std::string& each : words)
            EXPECT_TRUE(says(error, each)) << "not \"" << each << "\": " << error;
    }
};

TEST_F(DeclarationTest, RefusesAModelThatNobodyGaveAVersion) {
    expectRefusal(error(thing, 0), {"class Thing", "is not stored yet", "setVersion with 1"});

    EXPECT_TRUE(engine->tables().empty());
}

TEST_F(DeclarationTest, RefusesAFieldThatWasAddedInSilence) {
    ASSERT_EQ("", error(thing));

    expectRefusal(error(longerThing),
                  {"class Thing", "field number, which is missing",
                   "raise the version of the class Thing", "of the model free above 1"});

    EXPECT_EQ("", error(thing));
}

TEST_F(DeclarationTest, RefusesAClassThatStaysBehindItsModel) {
    ASSERT_EQ("", error(thing));

    expectRefusal(error(longerThing, 2),
                  {"class Thing", "field number", "raise the version of the class Thing"});

    EXPECT_EQ("1", modelVersion());
}

TEST_F(DeclarationTest, RefusesAModelThatStaysBehindItsClass) {
    const FreeModel::Declare newer = [](FreeModel& m) {
        m.declareClass("Thing", textAndNumber, 2);
    };
    ASSERT_EQ("", error(thing));

    expectRefusal(error(newer), {"class Thing of version 2", "is stored in version 1", "model free",
                                 "setVersion with 2"});

    EXPECT_EQ("", error(newer, 2));
    EXPECT_EQ("", error(newer, 2));
    EXPECT_EQ((std::vector<std::string>{"KesObjectID", "KesVersion", "text", "number"}),
              engine->columnsOf("Thing"));
}

TEST_F(DeclarationTest, NamesAllClassesThatDiffer) {
    const auto declare = [](const Free::Fields& fields) {
        return [fields](FreeModel& m) {
            m.declareClass("One", fields, 1);
            m.declareClass("Two", textField, 1);
            m.declareClass("Three", fields, 1);
        };
    };
    ASSERT_EQ("", error(declare(textField)));

    const std::string said = error(declare(textAndNumber));

    expectRefusal(said, {"class One", "as well: Three"});
    EXPECT_FALSE(says(said, "Two")) << said;
}

namespace {

struct Change {
    const char* name;
    FreeModel::Declare before;
    FreeModel::Declare after;
    const char* words;
};

void numberAsText(Free& object, Handler* h) {
    h->handleString("text", object.text, 20);
    h->handleLong("number", object.wide);
}

FreeModel::Declare indexed(const char* list, bool isUnique) {
    return
        [=](FreeModel& m) { m.declareClass("Thing", textAndNumber, 1)->addIndex(list, isUnique); };
}

FreeModel::Declare inherited(const Free::Fields& fields, bool isAbstract) {
    return [=](FreeModel& m) {
        Class* base = m.declareClass("Base", fields, 1);
        base->setAbstract(isAbstract);
        m.declareClass("Thing", fields, 1)->subclassOf(base);
    };
}

}  // namespace

class ChangeTest : public DeclarationTest, public ::testing::WithParamInterface<Change> {};

TEST_P(ChangeTest, IsRefusedWithoutANewVersion) {
    ASSERT_EQ("", error(GetParam().before));

    expectRefusal(error(GetParam().after), {GetParam().words, "raise the version of the class"});

    EXPECT_EQ("", error(GetParam().before));
}

INSTANTIATE_TEST_SUITE_P(
    , ChangeTest,
    ::testing::Values(
        Change{"FieldDropped", longerThing, thing, "no longer declares the field number"},
        Change{"FieldOfAnotherKind", longerThing,
               [](FreeModel& m) { m.declareClass("Thing", numberAsText, 1); },
               "the field number as a long, which is an int"},
        Change{"IndexAdded", longerThing, indexed("text, number", true),
               "declares the index \"text,number unique\""},
        Change{"IndexUnique", indexed("text", false), indexed("text", true), "the index \"text"},
        Change{"LinksAdded", thing, [](FreeModel& m) { m.declareClass("Thing", friends, 1); },
               "many-to-many role a"},
        Change{"Concrete", inherited(textField, true), inherited(textField, false),
               "The class Base is concrete"},
        Change{"Abstract", inherited(textField, false), inherited(textField, true),
               "The class Base is abstract"},
        Change{"FieldInherited", inherited(textField, true), inherited(textAndNumber, true),
               "The class Thing declares the field number"}),
    [](const auto& change) { return change.param.name; });

TEST_F(DeclarationTest, TellsFieldsApartWhoseNamesHaveDots) {
    const auto named = [](const char* field) {
        return [field](Free& object, Handler* h) { h->handleString(field, object.text, 20); };
    };
    const FreeModel::Declare declare = [&](FreeModel& m) {
        m.declareClass("a.b", named("c"), 1);
        m.declareClass("a", named("b.c"), 1);
        m.declareClass("a\\", named("b.c"), 1);
    };
    ASSERT_EQ("", error(declare));

    EXPECT_EQ("", error(declare));
}

TEST_F(DeclarationTest, GivesAnOlderDatabaseItsRecords) {
    ASSERT_EQ("", error(thing));
    dropRecords();

    EXPECT_EQ("", error(thing));

    EXPECT_EQ("1", ask("SELECT count(*) FROM kes_versions WHERE kind = 'FIELD' AND "
                       "name = 'Thing.text'"));
    EXPECT_EQ("Thing.free", ask("SELECT name FROM kes_versions WHERE kind = 'OWNER'"));
    expectRefusal(error(longerThing), {"field number"});
}

TEST_F(DeclarationTest, KnowsWhatAnOlderDatabaseLacks) {
    ASSERT_EQ("", error(thing));
    dropRecords();

    expectRefusal(error(longerThing), {"class Thing", "field number, which is missing"});

    EXPECT_EQ("", error(thing));
}

TEST_F(DeclarationTest, KeepsTheRecordsOfTheNewestVersion) {
    ASSERT_EQ("", error(longerThing));
    ASSERT_EQ("", error([](FreeModel& m) { m.declareClass("Thing", friends, 2); }, 2));

    EXPECT_EQ("0", ask("SELECT count(*) FROM kes_versions WHERE name = 'Thing.number'"));
    EXPECT_EQ("2", ask("SELECT count(*) FROM kes_versions WHERE kind = 'LINK'"));
    EXPECT_EQ("2", ask("SELECT version FROM kes_versions WHERE name = 'Thing.free'"));
    EXPECT_EQ("", error([](FreeModel& m) { m.declareClass("Thing", friends, 2); }, 2));
}

TEST_F(DeclarationTest, LetsAnOldProgramUseANewerClass) {
    ASSERT_EQ("", error(thing));
    ASSERT_EQ("", error([](FreeModel& m) { m.declareClass("Thing", textAndNumber, 2); }, 2));

    EXPECT_EQ("", error(thing));

    EXPECT_EQ("2", ask("SELECT version FROM kes_versions WHERE name = 'Thing.free'"));
}

// What an older library does in an upgrade: it knows of versions only.
TEST_F(DeclarationTest, ForgetsRecordsOfAnEarlierVersion) {
    ASSERT_EQ("", error(longerThing));
    run("UPDATE kes_versions SET version = 2 WHERE kind IN ('MODEL', 'CLASS')");
    const FreeModel::Declare newer = [](FreeModel& m) { m.declareClass("Thing", textField, 2); };

    EXPECT_EQ("", error(newer, 2));

    EXPECT_EQ("0", ask("SELECT count(*) FROM kes_versions WHERE name = 'Thing.number'"));
}

TEST_F(DeclarationTest, RefusesASecondModelWithAClassOfTheSameName) {
    ASSERT_EQ("", error(thing));

    for (const int version : {1, 7})
        expectRefusal(errorOfNotes("other", "Thing", version),
                      {"class Thing", "model other", "belongs to the model free", "setShared"});

    EXPECT_EQ((std::vector<std::string>{"KesObjectID", "KesVersion", "text"}),
              engine->columnsOf("Thing"));
    EXPECT_EQ("", errorOfNotes("other", "Other"));
    EXPECT_EQ("", error(thing));
}

TEST_F(DeclarationTest, LeavesATableAloneWhoseNameDiffersInItsCaseOnly) {
    ASSERT_EQ("", error(longerThing));

    const std::string said = errorOfNotes("other", "thing");

    if (engine->foldsTableNames()) {
        EXPECT_EQ(0U, said.find("1 DELCLS | ")) << said;
        for (const char* words : {"\"thing\" of the class thing", "\"Thing\" of the model free"})
            EXPECT_TRUE(says(said, words)) << said;
    } else {
        EXPECT_EQ("", said);
    }
    EXPECT_EQ((std::vector<std::string>{"KesObjectID", "KesVersion", "text", "number"}),
              engine->columnsOf("Thing"));
    EXPECT_EQ("", error(longerThing));
}

TEST_F(DeclarationTest, RefusesAViewThatWouldBeATableOfAnotherModel) {
    ASSERT_EQ("", errorOfNotes("other", "Base_all"));

    const std::string said = error([](FreeModel& m) {
        Class* base = m.declareClass("Base", textField);
        m.declareClass("Sub", textField)->subclassOf(base);
    });

    EXPECT_EQ(0U, said.find("1 DELCLS | ")) << said;
    for (const char* words :
         {"\"Base_all\" of the view of the class Base", "\"Base_all\" of the model other"})
        EXPECT_TRUE(says(said, words)) << said;
    EXPECT_EQ(std::vector<std::string>{"Base_all"}, withoutLinks(engine->tables()));
}

TEST_F(DeclarationTest, RefusesASecondModelWithLinksOfTheSameName) {
    ASSERT_EQ("", errorOfNotes("one", "One"));

    expectRefusal(errorOfNotes("two", "Two"), {"association Friends", "model two", "model one"});

    EXPECT_TRUE(engine->columnsOf("Two").empty());
}

TEST_F(DeclarationTest, LetsModelsShareAClassOnPurpose) {
    ASSERT_EQ("", errorOfNotes("one", "Note"));

    EXPECT_EQ("", errorOfNotes("two", "Note", 1, true));
    EXPECT_EQ("", errorOfNotes("two", "Note", 2, true));

    EXPECT_EQ("2", ask("SELECT version FROM kes_versions WHERE name = 'Note.one'"));
    EXPECT_EQ("0", ask("SELECT count(*) FROM kes_versions WHERE name = 'Note.two'"));
    EXPECT_EQ("", errorOfNotes("one", "Note", 2));
}

TEST_F(DeclarationTest, GivesAnOlderDatabaseToTheModelThatOpensIt) {
    ASSERT_EQ("", errorOfNotes("one", "Note"));
    dropRecords();
    ASSERT_EQ("", errorOfNotes("one", "Note"));

    expectRefusal(errorOfNotes("two", "Note"), {"belongs to the model one"});
}

TEST_F(DeclarationTest, RefusesASubClassThatLeavesAFieldOut) {
    for (const bool isAbstract : {false, true}) {
        const std::string said = error([&](FreeModel& m) {
            Class* base = m.declareClass("Base", textAndNumber);
            base->setAbstract(isAbstract);
            m.declareClass("Sub", textField)->subclassOf(base);
        });

        expectRefusal(said, {"class Sub", "sub class of Base", "does not report number"});
    }
    EXPECT_TRUE(engine->tables().empty());
}

TEST_F(DeclarationTest, RefusesASubClassThatReportsAFieldOtherwise) {
    expectRefusal(error([&](FreeModel& m) {
                      Class* base = m.declareClass("Base", textAndNumber);
                      m.declareClass("Sub", numberAsText)->subclassOf(base);
                  }),
                  {"class Sub", "does not report number"});
}

TEST_F(DeclarationTest, RefusesASubClassThatLeavesAReferenceOut) {
    expectRefusal(error([&](FreeModel& m) {
                      Class* base = m.declareClass("Base", friends);
                      m.declareClass("Sub", textField)->subclassOf(base);
                  }),
                  {"class Sub", "does not report a"});
}

}  // namespace Kes::testing
