// The known anomalies, with sessions that take turns in every order of their
// steps, or in many orders evenly chosen from all.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/drivers/Engine.h"
#include "tests/histories/Anomaly.h"
#include "tests/histories/HistoryModel.h"

namespace Kes::testing {

namespace {

constexpr std::size_t MostOrders = 40;

std::string driver() {
    const char* set = std::getenv("KES_TEST_DRIVER");
    return set != nullptr ? set : "sqlite";
}

std::string shownName(const ::testing::TestParamInfo<Level>& info) {
    std::string name = info.param.option.empty() ? "default" : info.param.option.substr(10);
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
}

}  // namespace

class InterleavingTest : public ::testing::TestWithParam<Level> {
protected:
    using Steps = std::vector<std::function<void()>>;

    // One session, and what became of its steps.
    struct Side {
        HistoryModel model;
        bool failed = false;
        bool committed = false;

        template <class T>
        Pointer<T> find(Class* cls, unsigned long id) {
            return static_cast<T*>(model.getInstance(id, cls));
        }
        Pointer<Table> table(unsigned long id) { return find<Table>(model.tableClass, id); }
        Pointer<Guest> guest(unsigned long id) { return find<Guest>(model.guestClass, id); }
        Pointer<Seat> seat(unsigned long id) { return find<Seat>(model.seatClass, id); }

        void start() { model.startTransaction(); }
        void commit() {
            model.commit();
            committed = true;
        }
    };

    InterleavingTest() {
        engine->open(maker);
        for (Side& side : sides) {
            const std::string level = GetParam().option;
            engine->open(side.model,
                         level + (level.empty() ? "" : ";") + engine->waitingAtMost(100));
        }
    }

    unsigned long make(Class* HistoryModel::*cls) {
        maker.startTransaction();
        const unsigned long id = (maker.*cls)->newInstance()->getObjectID();
        maker.commit();
        return id;
    }
    unsigned long makeTable(int number) {
        const unsigned long id = make(&HistoryModel::tableClass);
        engine->run("UPDATE [Table] SET [number] = " + std::to_string(number) +
                    ", [KesVersion] = [KesVersion] + 1 WHERE [KesObjectID] = " +
                    std::to_string(id));
        return id;
    }
    std::string stored(const std::string& what, unsigned long id) {
        return engine->ask("SELECT " + what + " WHERE [KesObjectID] = " + std::to_string(id));
    }
    int storedNumber(unsigned long table) {
        return std::stoi(stored("[number] FROM [Table]", table));
    }

    // Plays the steps of the sessions in each order: `begin` makes what they work
    // on, `end` looks at what has become of it.
    void play(const std::vector<Steps>& scripts, const std::function<void()>& begin,
              const std::function<void()>& end) {
        std::vector<std::size_t> order;
        for (std::size_t side = 0; side < scripts.size(); ++side)
            order.insert(order.end(), scripts[side].size(), side);
        std::vector<std::vector<std::size_t>> orders;
        do
            orders.push_back(order);
        while (std::next_permutation(order.begin(), order.end()));
        const std::size_t every = (orders.size() + MostOrders - 1) / MostOrders;
        for (std::size_t i = 0; i < orders.size() && !HasFailure(); i += every)
            playOnce(scripts, orders[i], begin, end);
    }

    void playOnce(const std::vector<Steps>& scripts, const std::vector<std::size_t>& order,
                  const std::function<void()>& begin, const std::function<void()>& end) {
        std::string shown;
        for (const std::size_t side : order)
            shown += std::to_string(side + 1);
        begin();
        std::vector<std::size_t> next(scripts.size());
        for (Side& side : sides)
            side.failed = side.committed = false;
        for (const std::size_t side : order)
            step(sides[side], scripts[side][next[side]++], shown);
        for (Side& side : sides) {
            SCOPED_TRACE("a session of the order " + shown);
            if (side.model.transactionStarted())
                side.model.rollback();
        }
        SCOPED_TRACE("in the order " + shown + ", committed: " +
                     std::to_string(sides[0].committed) + std::to_string(sides[1].committed) +
                     std::to_string(sides[2].committed));
        end();
    }

    static void step(Side& side, const std::function<void()>& what, std::string& shown) {
        if (side.failed)
            return;
        try {
            what();
        } catch (const Exception& raised) {
            shown += std::string(" ") + raised.getCode();
            side.failed = true;
            if (side.model.transactionStarted())
                side.model.rollback();
        }
    }

    // Of the anomalies that some level permits: seen where it is permitted, and
    // nowhere else.
    void expectAsPermitted(Anomaly anomaly) const {
        EXPECT_EQ(GetParam().permits(anomaly), seen.count(anomaly) != 0) << nameOf(anomaly);
    }

    void expectNone(const std::string& what, const std::string& from) {
        EXPECT_EQ("0", engine->ask("SELECT count(*) FROM " + from)) << what;
    }

    void expectSoundSeats() {
        expectNone("guests whose seat has somebody else",
                   "[Guest] g WHERE g.[seat] IS NOT NULL AND NOT EXISTS (SELECT 1 FROM [Seat] s "
                   "WHERE s.[KesObjectID] = g.[seat] AND s.[guest] = g.[KesObjectID])");
        expectNone("seats whose guest sits elsewhere",
                   "[Seat] s WHERE s.[guest] IS NOT NULL AND NOT EXISTS (SELECT 1 FROM [Guest] g "
                   "WHERE g.[KesObjectID] = s.[guest] AND g.[seat] = s.[KesObjectID])");
    }

    const std::unique_ptr<Engine> engine = Engine::make();
    HistoryModel maker;
    int numbers = 0;  // of lists
    Side sides[3];
    std::set<Anomaly> seen;
};

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
    play({script(sides[0]), script(sides[1])}, [&] { id = makeTable(0); },
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
    const Steps reader{[&] { sides[1].start(); },
                       [&] { seenA = sides[1].table(a)->number; },
                       [&] { seenB = sides[1].table(b)->number; },
                       [&] { sides[1].commit(); }};
    play({writer, reader},
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
    play({script(sides[0], ids[0]), script(sides[1], ids[1])},
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
    play({script(sides[0], ids[0], ids[1]), script(sides[1], ids[1], ids[0])},
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
                               const Pointer<Register> list(sides[0].find<Register>(
                                   sides[0].model.registerClass, ids[i]));
                               list->change();
                               list->values = "new";
                           }
                       },
                       [&] { sides[0].commit(); }};
    const Steps reader{[&] {
                           all = std::make_unique<SelectionOf<Register>>(
                               sides[1].model.registerClass);
                           all->where((*all)["values"] != "past");
                           read();
                       },
                       [&] {
                           while (read())
                               continue;
                           all.reset();
                           sides[1].committed = true;
                       }};
    play({writer, reader},
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

TEST_P(InterleavingTest, LeavesNoReferenceToWhatIsRemoved) {
    unsigned long table = 0, guest = 0;
    const Steps linker{[&] {
                           sides[0].start();
                           sides[0].guest(guest)->refresh();
                       },
                       [&] { sides[0].guest(guest)->table = sides[0].table(table); },
                       [&] { sides[0].commit(); }};
    const Steps remover{[&] {
                            sides[1].start();
                            sides[1].guest(guest)->refresh();
                        },
                        [&] { sides[1].table(table)->remove(); }, [&] { sides[1].commit(); }};
    play({linker, remover},
         [&] {
             table = makeTable(0);
             guest = make(&HistoryModel::guestClass);
         },
         [&] {
             expectNone("references to nobody",
                        "[Guest] g WHERE g.[table] IS NOT NULL AND NOT EXISTS (SELECT 1 FROM "
                        "[Table] t WHERE t.[KesObjectID] = g.[table])");
         });
}

TEST_P(InterleavingTest, LeavesNoLinkToWhatIsRemoved) {
    unsigned long guests[2] = {};
    const Steps linker{[&] {
                           sides[0].start();
                           sides[0].guest(guests[0])->refresh();
                       },
                       [&] {
                           sides[0].guest(guests[0])->friends.add(sides[0].guest(guests[1]));
                       },
                       [&] { sides[0].commit(); }};
    const Steps remover{[&] {
                            sides[1].start();
                            sides[1].guest(guests[0])->refresh();
                        },
                        [&] { sides[1].guest(guests[1])->remove(); }, [&] { sides[1].commit(); }};
    play({linker, remover},
         [&] {
             for (unsigned long& guest : guests)
                 guest = make(&HistoryModel::guestClass);
         },
         [&] {
             for (const std::string role : {"[friends]", "[friendOf]"})
                 expectNone("links to nobody",
                            "[Friendship] f WHERE NOT EXISTS (SELECT 1 FROM [Guest] g WHERE "
                            "g.[KesObjectID] = f." + role + ")");
         });
}

TEST_P(InterleavingTest, GivesASeatToOneGuest) {
    unsigned long seat = 0, guests[2] = {};
    const auto script = [&](Side& side, unsigned long& mine) {
        return Steps{[&] {
                         side.start();
                         side.guest(mine)->refresh();
                         side.seat(seat)->refresh();
                     },
                     [&] { side.guest(mine)->seat = side.seat(seat); }, [&] { side.commit(); }};
    };
    play({script(sides[0], guests[0]), script(sides[1], guests[1])},
         [&] {
             seat = make(&HistoryModel::seatClass);
             for (unsigned long& guest : guests)
                 guest = make(&HistoryModel::guestClass);
         },
         [&] {
             expectSoundSeats();
             const bool isTaken = !stored("[guest] FROM [Seat]", seat).empty();
             EXPECT_EQ(sides[0].committed || sides[1].committed, isTaken);
         });
}

TEST_P(InterleavingTest, KeepsANewPairWhenTheFormerOneParts) {
    unsigned long seat = 0, former = 0, next = 0;
    const Steps taker{[&] {
                          sides[0].start();
                          sides[0].guest(next)->refresh();
                          sides[0].seat(seat)->refresh();
                      },
                      [&] { sides[0].guest(next)->seat = sides[0].seat(seat); },
                      [&] { sides[0].commit(); }};
    // As the message of a conflict demands: refresh, and once more.
    const auto part = [&](bool byRemoval) {
        const Pointer<Guest> guest(sides[1].guest(former));
        if (byRemoval)
            guest->remove();
        else
            guest->seat = nullptr;
    };
    for (const bool byRemoval : {false, true}) {
        const Steps leaver{[&] {
                               sides[1].start();
                               sides[1].guest(former)->refresh();
                           },
                           [&] { part(byRemoval); },
                           [&] {
                               try {
                                   sides[1].commit();
                               } catch (const Exception&) {
                                   sides[1].guest(former)->refresh();
                                   sides[1].start();
                                   part(byRemoval);
                                   sides[1].commit();
                               }
                           }};
        play({taker, leaver},
             [&] {
                 seat = make(&HistoryModel::seatClass);
                 former = make(&HistoryModel::guestClass);
                 next = make(&HistoryModel::guestClass);
                 maker.startTransaction();
                 static_cast<Guest*>(maker.getInstance(former, maker.guestClass))->seat =
                     static_cast<Seat*>(maker.getInstance(seat, maker.seatClass));
                 maker.commit();
             },
             [&] {
                 expectSoundSeats();
                 if (sides[0].committed) {
                     EXPECT_EQ(std::to_string(next), stored("[guest] FROM [Seat]", seat));
                 } else if (sides[1].committed) {
                     EXPECT_EQ("", stored("[guest] FROM [Seat]", seat));
                 }
             });
    }
}

TEST_P(InterleavingTest, MovesAMemberToOnePlace) {
    unsigned long guest = 0, tables[3] = {};
    const auto script = [&](Side& side, unsigned long& to) {
        return Steps{[&] {
                         side.start();
                         side.guest(guest)->refresh();
                     },
                     [&] {
                         side.table(to)->guests.add(side.guest(guest));
                         side.table(tables[2])->guests.remove(side.guest(guest));
                     },
                     [&] { side.commit(); }};
    };
    play({script(sides[0], tables[0]), script(sides[1], tables[1])},
         [&] {
             for (unsigned long& table : tables)
                 table = makeTable(0);
             guest = make(&HistoryModel::guestClass);
             maker.startTransaction();
             static_cast<Guest*>(maker.getInstance(guest, maker.guestClass))->table =
                 static_cast<Table*>(maker.getInstance(tables[2], maker.tableClass));
             maker.commit();
         },
         [&] {
             const std::string at = stored("[table] FROM [Guest]", guest);
             std::set<std::string> places;
             if (sides[0].committed)
                 places.insert(std::to_string(tables[0]));
             if (sides[1].committed)
                 places.insert(std::to_string(tables[1]));
             if (places.empty())
                 places.insert(std::to_string(tables[2]));
             EXPECT_EQ(1U, places.count(at)) << at;
         });
}

// A collection that is read behind a counter is no older than the counter.
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
    play({writer, reader},
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

INSTANTIATE_TEST_SUITE_P(Levels, InterleavingTest, ::testing::ValuesIn(levelsOf(driver())),
                         shownName);

}  // namespace Kes::testing
