#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/drivers/DriverTest.h"
#include "tests/drivers/FreeModel.h"
#include "tests/support/Raises.h"

namespace Kes::testing {

class SchemaTest : public DriverTest {
protected:
    // What an open with these declarations says; "" when it works.
    std::string refusal(const FreeModel::Declare& declare, int version = 1) {
        FreeModel model(version, declare);
        return messageRaisedBy([&] { open(model); });
    }

    // Makes a database with one object of the class Thing.
    void makeThing(const Free::Fields& fields, const std::function<void(Free&)>& fill) {
        FreeModel model(1, [&](FreeModel& m) { m.declareClass("Thing", fields); });
        open(model);
        model.startTransaction();
        fill(*model.make("Thing"));
        model.commit();
    }
};

class NameTest : public SchemaTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(NameTest, WorksWhereObjectsAreChangedAndTraced) {
    const String name(GetParam());
    const String number(name + " too");
    const auto fields = [&](Free& object, Handler* h) {
        textField(object, h);
        h->handleString(name, object.text2, 20);
        h->handleInt(number, object.number);
    };
    FreeModel model(1, [&](FreeModel& m) {
        Class* base = m.declareClass("Base", textField);
        m.declareClass(name, fields)->subclassOf(base);
    });
    std::ostringstream trace;
    open(model);
    model.traceSQLTo(trace);
    model.startTransaction();
    Free* thing = model.make(name);
    thing->number = 7;
    model.commit();
    thing->change();
    thing->text2 = "found";
    model.commit();

    Selection selection(model.getClass(name));
    selection.where((selection[name] == "found") & (selection[number] == 7));
    selection.orderBy(selection[number]);
    selection.orderBy(selection[name]);

    ASSERT_TRUE(selection.next());
    EXPECT_TRUE(says(trace.str(), GetParam())) << trace.str();
    thing->remove();
    model.commit();
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Base_all]"));
}

INSTANTIATE_TEST_SUITE_P(Unusual, NameTest,
                         ::testing::Values("select", "from", "order", "user", "group", "table",
                                           "index", "primary", "references", "key", "value",
                                           "with blanks", "a.b", "100%", "(x)", "a:b", "what?",
                                           "[x]", "a/b", "1st", "_x", "\"", "`", "']",
                                           "\"; drop table x; --", "Änderung", "a,b", "price$",
                                           "rank$9", "$1", "$x$", ":name", "?1", "'", "it's", "--",
                                           "/* x", "@a", "#", "\\", "%s", "{x}"));

class BadNameTest : public SchemaTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(BadNameTest, IsRefusedForClasses) {
    EXPECT_NE("", refusal([](FreeModel& m) { m.declareClass(GetParam(), textField); }));
    EXPECT_TRUE(engine->tables().empty());
}

TEST_P(BadNameTest, IsRefusedForFieldsOrWorks) {
    const std::string name = GetParam();
    const bool isField = name == "kes_versions";
    const std::string said = refusal([&](FreeModel& m) {
        m.declareClass("Thing", [name](Free& object, Handler* h) {
            h->handleString(name.c_str(), object.text, 20);
        });
    });

    EXPECT_EQ(isField, said.empty()) << said;
}

INSTANTIATE_TEST_SUITE_P(Impossible, BadNameTest,
                         ::testing::Values("", " ", "ends in ", "kes_versions"));

TEST_F(SchemaTest, NeverTakesAClassForATableOfTheLibrary) {
    const std::string said =
        refusal([](FreeModel& m) { m.declareClass("KES_VERSIONS", textField); });

    EXPECT_EQ(engine->foldsTableNames(), !said.empty()) << said;
}

TEST_F(SchemaTest, RefusesNamesThatAreTheLibrarysOwn) {
    for (const char* name : {"kes_new_Thing", "kes_new_1", "kes_second_Friends", "kes_turn_1"}) {
        const std::string ofClass = refusal([&](FreeModel& m) { m.declareClass(name, textField); });
        const std::string ofLinks = refusal([&](FreeModel& m) {
            m.declareClass("Thing", [&](Free& object, Handler* h) {
                h->handleManyAssociated(name, "a", &object.many);
                h->handleManyAssociated(name, "b", &object.many2);
            });
        });

        EXPECT_TRUE(says(ofClass, "the library's own")) << name << ": " << ofClass;
        EXPECT_TRUE(says(ofLinks, "the library's own")) << name << ": " << ofLinks;
    }
    EXPECT_TRUE(engine->tables().empty());
}

// The library's names are its own, but what has them may be older.
TEST_F(SchemaTest, LosesNoTableWhoseNameLooksLikeItsOwn) {
    makeThing(textField, [](Free& thing) { thing.text = "kept"; });
    std::vector<std::string> others = {"kes_new_1", "kes_new_Thing", "kes_old_Thing"};
    if (!engine->foldsTableNames())
        others.insert(others.end(), {"KES_NEW_1", "KES_NEW_1_0"});
    for (const std::string& other : others) {
        run("CREATE TABLE [" + other + "] (x INTEGER)");
        run("INSERT INTO [" + other + "] VALUES (7)");
    }

    EXPECT_EQ("", refusal([](FreeModel& m) { m.declareClass("Thing", textField); }, 2));

    EXPECT_EQ("kept", ask("SELECT [text] FROM [Thing]"));
    for (const std::string& other : others)
        EXPECT_EQ("7", ask("SELECT x FROM [" + other + "]")) << other;
}

TEST_F(SchemaTest, UpgradesClassesTogetherThatDifferInTheirLastLettersOnly) {
    const std::string one = std::string(56, 'x') + "1";
    const std::string two = std::string(56, 'x') + "2";
    const auto declare = [&](FreeModel& m) {
        m.declareClass(one.c_str(), textField);
        m.declareClass(two.c_str(), textField);
    };
    {
        FreeModel model(1, declare);
        open(model);
        model.startTransaction();
        model.make(one.c_str())->text = "one";
        model.make(two.c_str())->text = "two";
        model.commit();
    }

    EXPECT_EQ("", refusal(declare, 2));

    EXPECT_EQ("one", ask("SELECT [text] FROM [" + one + "]"));
    EXPECT_EQ("two", ask("SELECT [text] FROM [" + two + "]"));
}

TEST_F(SchemaTest, IndexesBothColumnsOfLinkTablesWithLongNames) {
    const std::string same(58, 'x');
    EXPECT_EQ("", refusal([&](FreeModel& m) {
                  m.declareClass("Thing", [&](Free& object, Handler* h) {
                      h->handleManyAssociated((same + "1").c_str(), "a", &object.many);
                      h->handleManyAssociated((same + "1").c_str(), "b", &object.many2);
                  });
                  m.declareClass("Other", [&](Free& object, Handler* h) {
                      h->handleManyAssociated((same + "2").c_str(), "c", &object.many);
                      h->handleManyAssociated((same + "2").c_str(), "d", &object.many2);
                  });
              }));

    for (const char* ending : {"1", "2"})
        EXPECT_EQ(2U, engine->indexesOf(same + ending)) << ending;
}

TEST_F(SchemaTest, RefusesClassesNamedLikeTheDatabasesOwnTables) {
    for (const std::string& name : engine->tableNamesOfItsOwn()) {
        EXPECT_NE("", refusal([&](FreeModel& m) { m.declareClass(name.c_str(), textField); }));
        EXPECT_EQ("", refusal([&](FreeModel& m) {
                      m.declareClass("Thing", [name](Free& object, Handler* h) {
                          h->handleString(name.c_str(), object.text, 20);
                      });
                  }));
    }
}

TEST_F(SchemaTest, RefusesAFieldNamedLikeAColumnOfTheView) {
    const auto fields = [](Free& object, Handler* h) {
        h->handleString("KesClass", object.text, 20);
    };
    const std::string said = refusal([&](FreeModel& m) {
        Class* base = m.declareClass("Base", fields);
        m.declareClass("Sub", fields)->subclassOf(base);
    });

    EXPECT_TRUE(says(said, "\"KesClass\" of a field of the class Base")) << said;
    EXPECT_EQ("", refusal([&](FreeModel& m) { m.declareClass("Alone", fields); }));
}

TEST_F(SchemaTest, MakesUniqueAndInheritedIndexes) {
    FreeModel model(1, [](FreeModel& m) {
        Class* base = m.declareClass("Base", textField);
        base->setAbstract(true);
        base->addIndex("text", true);
        m.declareClass("Sub", textField)->subclassOf(base);
    });
    open(model);
    model.startTransaction();
    model.make("Sub")->text = "same";
    model.make("Sub")->text = "same";

    const std::string said = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(says(said, "UNIQUE") || says(said, "unique")) << said;
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Sub]"));
}

TEST_F(SchemaTest, NamesTheOneOfManyThatBreaksAUniqueIndex) {
    FreeModel model(
        1, [](FreeModel& m) { m.declareClass("Thing", textField)->addIndex("text", true); });
    open(model);
    model.startTransaction();
    std::vector<Pointer<Free>> things;
    for (int i = 0; i < 50; ++i) {
        things.emplace_back(model.make("Thing"));
        things.back()->text = String(i);
    }
    things[27]->text = "3";
    const std::string name = "Thing object " + std::to_string(things[27]->getObjectID());

    const std::string said = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(says(said, "inserting the " + name + ": ")) << said;
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Thing]"));
}

TEST_F(SchemaTest, RefusesAnObjectThatReportsFewerFieldsThanItsClass) {
    FreeModel model(1, [](FreeModel& m) {
        m.declareClass("Thing", [](Free& object, Handler* h) {
            h->handleInt("number", object.number);
            if (object.number != 27)
                h->handleString("text", object.text, 20);
        });
    });
    open(model);
    model.startTransaction();
    for (int i = 0; i < 50; ++i)
        model.make("Thing")->number = i;

    const std::string said = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(says(said, "handle operation")) << said;
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Thing]"));
}

TEST_F(SchemaTest, WritesObjectsOfSeveralClassesThatComeInTurn) {
    FreeModel model(1, [](FreeModel& m) {
        m.declareClass("Even", textField);
        m.declareClass("Odd", [](Free& object, Handler* h) {
            h->handleInt("number", object.number);
            h->handleTimestamp("moment", object.moment);
        });
    });
    open(model);
    model.startTransaction();
    for (int i = 0; i < 40; i += 2) {
        model.make("Even")->text = String(i);
        Free* odd = model.make("Odd");
        odd->number = i + 1;
        odd->moment.setSecond(i + 1);
    }
    model.commit();

    EXPECT_EQ("20", ask("SELECT count(*) FROM [Even]"));
    EXPECT_EQ("20", ask("SELECT count(DISTINCT [text]) FROM [Even]"));
    EXPECT_EQ("400", ask("SELECT sum([number]) FROM [Odd]"));
    EXPECT_EQ("20", ask("SELECT count(DISTINCT [moment]) FROM [Odd]"));
}

TEST_F(SchemaTest, LetsAnObjectTakeTheUniqueValueOfOneThatGoes) {
    FreeModel model(
        1, [](FreeModel& m) { m.declareClass("Thing", textField)->addIndex("text", true); });
    open(model);
    model.startTransaction();
    const Pointer<Free> first(model.make("Thing"));
    const Pointer<Free> second(model.make("Thing"));
    first->text = "first";
    second->text = "second";
    model.commit();

    model.startTransaction();
    model.make("Thing")->text = "second";
    second->change();
    second->text = "first";
    first->remove();
    model.commit();

    EXPECT_EQ("first", ask("SELECT [text] FROM [Thing] ORDER BY [KesObjectID] LIMIT 1"));
    EXPECT_EQ("2", ask("SELECT count(*) FROM [Thing]"));
}

TEST_F(SchemaTest, LetsUpdatesOfDifferentFieldsPassAUniqueValueOn) {
    FreeModel model(1, [](FreeModel& m) {
        Class* thing = m.declareClass("Thing", [](Free& object, Handler* h) {
            h->handleString("text", object.text, 20);
            h->handleInt("number", object.number);
        });
        thing->addIndex("text", true);
    });
    open(model);
    model.startTransaction();
    std::vector<Pointer<Free>> things;
    for (const char* text : {"a", "b", "c", "d"}) {
        things.emplace_back(model.make("Thing"));
        things.back()->text = text;
    }
    model.commit();

    model.startTransaction();
    String free = "e";
    for (const Pointer<Free>& thing : things) {
        thing->change();
        thing->number = free == "a" || free == "c" ? 7 : 0;
        std::swap(thing->text, free);
    }
    model.commit();

    EXPECT_EQ("2", ask("SELECT count(*) FROM [Thing] WHERE [number] = 7"));
    EXPECT_EQ("e", ask("SELECT [text] FROM [Thing] ORDER BY [KesObjectID] LIMIT 1"));
    EXPECT_EQ("c", ask("SELECT [text] FROM [Thing] ORDER BY [KesObjectID] DESC LIMIT 1"));
}

TEST_F(SchemaTest, MakesAViewOfAHierarchy) {
    FreeModel model(1, [](FreeModel& m) {
        Class* base = m.declareClass("Base", textField);
        m.declareClass("Sub", textField)->subclassOf(base);
    });
    open(model);
    model.startTransaction();
    model.make("Base");
    model.make("Sub");
    model.commit();

    EXPECT_EQ("Base", ask("SELECT [KesClass] FROM [Base_all] ORDER BY [KesClass] LIMIT 1"));
    EXPECT_EQ("2", ask("SELECT count(*) FROM [Base_all]"));
}

TEST_F(SchemaTest, DropsFieldsThatAreGone) {
    makeThing(textField, [](Free& thing) { thing.text = "gone"; });

    EXPECT_EQ("", refusal(
                      [](FreeModel& m) {
                          m.declareClass("Thing", [](Free& object, Handler* h) {
                              h->handleInt("number", object.number);
                          });
                      },
                      2));

    EXPECT_EQ((std::vector<std::string>{"KesObjectID", "KesVersion", "number"}),
              engine->columnsOf("Thing"));
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Thing]"));
}

TEST_F(SchemaTest, ConvertsWhatFits) {
    makeThing([](Free& object, Handler* h) { h->handleInt("x", object.number); },
              [](Free& thing) { thing.number = 42; });

    EXPECT_EQ("", refusal(
                      [](FreeModel& m) {
                          m.declareClass("Thing", [](Free& object, Handler* h) {
                              h->handleString("x", object.text, 20);
                          });
                      },
                      2));
    EXPECT_EQ("42", ask("SELECT [x] FROM [Thing] WHERE [x] LIKE '4_'"));

    EXPECT_EQ("", refusal(
                      [](FreeModel& m) {
                          m.declareClass("Thing", [](Free& object, Handler* h) {
                              h->handleDouble("x", object.real);
                          });
                      },
                      3));
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Thing] WHERE [x] / 4 = 10.5"));
}

TEST_F(SchemaTest, RefusesAConversionThatLosesSomething) {
    makeThing(textField, [](Free& thing) { thing.text = "forty-two"; });

    const std::string said = refusal(
        [](FreeModel& m) {
            m.declareClass("Thing",
                           [](Free& object, Handler* h) { h->handleInt("text", object.number); });
        },
        2);

    EXPECT_NE(std::string::npos, said.find("forty-two")) << said;
    EXPECT_NE(std::string::npos, said.find("Thing object")) << said;
    EXPECT_EQ("forty-two", ask("SELECT [text] FROM [Thing]"));
    EXPECT_EQ("1", ask("SELECT version FROM kes_versions WHERE kind = 'MODEL'"));
    EXPECT_EQ((std::vector<std::string>{"Thing"}), engine->tables());
    EXPECT_TRUE(engine->columnsOf("kes_new_1").empty());
}

// Each in words, whatever the database sends over the wire.
TEST_F(SchemaTest, ShowsTheValueThatAnUpgradeRefuses) {
    makeThing(
        [](Free& object, Handler* h) {
            h->handleDouble("real", object.real);
            h->handleLong("wide", object.wide);
            h->handleString("text", object.text, 20);
        },
        [](Free& thing) {
            thing.real = 0.5;
            thing.wide = 5000000000;
            thing.text = std::string(3000, 'x').c_str();
        });
    const auto refused = [&](const char* field) {
        return refusal(
            [&](FreeModel& m) {
                m.declareClass(
                    "Thing", [&](Free& object, Handler* h) { h->handleInt(field, object.number); });
            },
            2);
    };

    EXPECT_TRUE(says(refused("real"), "holds 0.5, ")) << refused("real");
    EXPECT_TRUE(says(refused("wide"), "holds 5000000000, ")) << refused("wide");
    EXPECT_TRUE(says(refused("text"), "xxx\"... (3000 bytes), ")) << refused("text");
}

TEST_F(SchemaTest, RefusesMoreFieldsThanTheDatabaseTakes) {
    const std::string said = refusal([](FreeModel& m) {
        m.declareClass("Wide", [](Free& object, Handler* h) {
            for (int i = 0; i < 2100; ++i)
                h->handleInt(String("f") + String(i), object.number);
        });
    });

    EXPECT_TRUE(says(said, std::to_string(engine->mostColumns()))) << said;
}

TEST_F(SchemaTest, RefusesATableThatIsNotItsOwn) {
    run("CREATE TABLE [Thing] ([x] INTEGER)");

    EXPECT_NE("", refusal([](FreeModel& m) { m.declareClass("Thing", textField); }));
    EXPECT_EQ(1U, engine->columnsOf("Thing").size());
}

}  // namespace Kes::testing
