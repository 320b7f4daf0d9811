// The known anomalies of reads and writes, in every order of their steps.

#include "tests/histories/Interleaving.h"

namespace Kes::testing {

TEST_P(InterleavingTest, LosesNoUpdate) {
    unsigned long id = 0;
    const auto script = [&](Side& side) {
        return Steps{[&] {
                         side.start();
                         side.table(id)->refresh();
                     },
                     [&] {
                         const Pointer<Table> table(side.table(id));
                         table->change();
                         ++table->number;
                     },
                     [&] { side.commit(); }};
    };
    play(
        {script(sides[0]), script(sides[1])}, [&] { id = makeTable(0); },
        [&] { EXPECT_EQ(sides[0].committed + sides[1].committed, storedNumber(id)); });
}

TEST_P(InterleavingTest, ShowsAPartOfACommitWhereThatIsPermitted) {
    unsigned long a = 0, b = 0;
    int seenA = 0, seenB = 0;
    const Steps writer{[&] {
                           sides[0].start();
                           for (const unsigned long id : {a, b}) {
                               const Pointer<Table> table(sides[0].table(id));
                               table->change();
                               table->number = 1;
                           }
                       },
                       [&] { sides[0].commit(); }};
    const Steps reader{[&] { sides[1].start(); }, [&] { seenA = sides[1].table(a)->number; },
                       [&] { seenB = sides[1].table(b)->number; }, [&] { sides[1].commit(); }};
    play(
        {writer, reader},
        [&] {
            a = makeTable(0);
            b = makeTable(0);
        },
        [&] {
            if (sides[1].committed && seenA != seenB)
                seen.insert(Anomaly::ReadSkew);
        });
    expectAsPermitted(Anomaly::ReadSkew);
}

TEST_P(InterleavingTest, LetsTwoReadWhatTheOtherOneWritesWhereThatIsPermitted) {
    unsigned long ids[2] = {};
    const auto script = [&](Side& side, unsigned long& mine) {
        return Steps{[&] {
                         side.start();
                         for (const unsigned long id : ids)
                             side.table(id)->refresh();
                     },
                     [&] {
                         if (side.table(ids[0])->number + side.table(ids[1])->number < 2)
                             return;
                         const Pointer<Table> table(side.table(mine));
                         table->change();
                         table->number = 0;
                     },
                     [&] { side.commit(); }};
    };
    play(
        {script(sides[0], ids[0]), script(sides[1], ids[1])},
        [&] {
            for (unsigned long& id : ids)
                id = makeTable(1);
        },
        [&] {
            if (storedNumber(ids[0]) + storedNumber(ids[1]) == 0)
                seen.insert(Anomaly::WriteSkew);
        });
    expectAsPermitted(Anomaly::WriteSkew);
}

// One behind the other, somebody sees what another one wrote.
TEST_P(InterleavingTest, LetsThreeReadWhatTheNextOneWritesWhereThatIsPermitted) {
    unsigned long ids[3] = {};
    const auto script = [&](Side& side, unsigned long& read, unsigned long& written) {
        return Steps{[&] {
                         side.start();
                         side.table(read)->refresh();
                         side.table(written)->refresh();
                     },
                     [&] {
                         const Pointer<Table> table(side.table(written));
                         table->change();
                         table->number = side.table(read)->number + 1;
                     },
                     [&] { side.commit(); }};
    };
    play(
        {script(sides[0], ids[0], ids[1]), script(sides[1], ids[1], ids[2]),
         script(sides[2], ids[2], ids[0])},
        [&] {
            for (unsigned long& id : ids)
                id = makeTable(0);
        },
        [&] {
            int most = 0;
            for (const unsigned long id : ids)
                most = std::max(most, storedNumber(id));
            if (sides[0].committed && sides[1].committed && sides[2].committed && most == 1)
                seen.insert(Anomaly::WriteSkew);
        });
    expectAsPermitted(Anomaly::WriteSkew);
}

TEST_P(InterleavingTest, KeepsTwoFromItThatLockWhatTheyRead) {
    unsigned long ids[2] = {};
    const auto script = [&](Side& side, unsigned long& mine, unsigned long& other) {
        return Steps{[&] {
                         side.start();
                         side.table(other)->refresh();
                         side.table(other)->lock();
                     },
                     [&] {
                         side.table(mine)->refresh();
                         if (side.table(mine)->number + side.table(other)->number < 2)
                             return;
                         const Pointer<Table> table(side.table(mine));
                         table->change();
                         table->number = 0;
                     },
                     [&] { side.commit(); }};
    };
    play(
        {script(sides[0], ids[0], ids[1]), script(sides[1], ids[1], ids[0])},
        [&] {
            for (unsigned long& id : ids)
                id = makeTable(1);
        },
        [&] { EXPECT_LT(0, storedNumber(ids[0]) + storedNumber(ids[1])); });
}

TEST_P(InterleavingTest, ShowsASelectionInOneState) {
    unsigned long ids[2] = {};
    std::set<std::string> shown;
    std::unique_ptr<SelectionOf<Register>> all;
    const auto read = [&] {
        const Register* list = all->nextValue();
        if (list != nullptr)
            shown.insert(static_cast<const char*>(list->values));
        return list != nullptr;
    };
    const Steps writer{[&] {
                           sides[0].start();
                           for (int i = 0; i < 2; ++i) {
                               const Pointer<Register> list(
                                   sides[0].find<Register>(sides[0].model.registerClass, ids[i]));
                               list->change();
                               list->values = "new";
                           }
                       },
                       [&] { sides[0].commit(); }};
    const Steps reader{
        [&] {
            all = std::make_unique<SelectionOf<Register>>(sides[1].model.registerClass);
            all->where((*all)["values"] != "past");
            read();
        },
        [&] {
            while (read())
                continue;
            all.reset();
            sides[1].committed = true;
        }};
    play(
        {writer, reader},
        [&] {
            shown.clear();
            engine->run("UPDATE [EvenRegister] SET [values] = 'past'");
            engine->run("UPDATE [OddRegister] SET [values] = 'past'");
            maker.startTransaction();
            for (int i = 0; i < 2; ++i) {
                auto* list = static_cast<Register*>(maker.classes[i]->newInstance());
                list->number = ++numbers;
                list->values = "old";
                ids[i] = list->getObjectID();
            }
            maker.commit();
        },
        [&] { EXPECT_EQ(sides[1].committed ? 1U : 0U, shown.size()); });
}

// A collection that is read after a counter is no older than the counter.
TEST_P(InterleavingTest, ReadsNothingOlderThanWhatItHasRead) {
    unsigned long tables[2] = {}, guest = 0;
    int seenNumber = 0;
    std::size_t seenMembers = 0;
    const Steps writer{[&] {
                           sides[0].start();
                           const Pointer<Table> table(sides[0].table(tables[1]));
                           table->refresh();
                           table->change();
                           table->number = 1;
                           table->guests.add(sides[0].guest(guest));
                       },
                       [&] { sides[0].commit(); }};
    // The collections of both tables are loaded together.
    const Steps reader{[&] {
                           sides[1].start();
                           SelectionOf<Table> all(sides[1].model.tableClass);
                           all.where(all["number"] >= 0);
                           std::vector<Pointer<Table>> held;
                           for (Table* table : all)
                               held.emplace_back(table);
                           sides[1].table(tables[0])->guests.size();
                       },
                       [&] {
                           const Pointer<Table> table(sides[1].table(tables[1]));
                           table->refresh();
                           seenNumber = table->number;
                       },
                       [&] { seenMembers = sides[1].table(tables[1])->guests.size(); },
                       [&] { sides[1].commit(); }};
    play(
        {writer, reader},
        [&] {
            seenNumber = 0;
            seenMembers = 0;
            engine->run("UPDATE [Table] SET [number] = -1");
            for (unsigned long& table : tables)
                table = makeTable(0);
            guest = make(&HistoryModel::guestClass);
        },
        [&] {
            if (sides[1].committed) {
                EXPECT_LE(static_cast<std::size_t>(seenNumber), seenMembers);
            }
        });
}

INSTANTIATE_TEST_SUITE_P(Levels, InterleavingTest, ::testing::ValuesIn(levelsOf(driverUnderTest())),
                         shownName);

}  // namespace Kes::testing
