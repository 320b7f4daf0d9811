// Several threads, each with a model of its own, on one database file.

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/drivers/PlainSqlite.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/session/ManyThreads.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

namespace {

constexpr int ThreadCount = 8;

bool isConflict(const Exception& raised) {
    return std::strcmp(raised.getCode(), "COMFAIL") == 0;
}

bool isRefusal(const Exception& raised) {
    return std::strcmp(raised.getCode(), "Transaction::undo/redo") == 0;
}

}  // namespace

class ThreadsTest : public ::testing::Test {
protected:
    // Makes the tables and `count` persons, named by their numbers.
    void fill(int count, int age) {
        StaffModel model;
        open(model);
        model.startTransaction();
        for (int i = 0; i < count; ++i)
            model.newPerson(std::to_string(i).c_str(), age);
        model.commit();
    }

    void open(StaffModel& model) {
        model.openWith("sqlite", file.c_str(), "busy_timeout=60000;synchronous=off");
    }

    std::string ask(const std::string& question) { return PlainSqlite(file).ask(question); }

    // Does a transaction again and again, with the stored state of what it
    // touches, until nobody comes in between. The number of attempts.
    template <class Change>
    static int persist(StaffModel& model, const std::vector<Person*>& touched, Change change) {
        for (int attempt = 1;; ++attempt) {
            model.startTransaction();
            change();
            try {
                model.commit();
                return attempt;
            } catch (const Exception& raised) {
                if (!isConflict(raised) || attempt == 10000)
                    throw;
            }
            for (Person* person : touched)
                person->refresh();
        }
    }

    TemporaryFolder folder;
    std::string file = folder.path("staff.db");
};

TEST_F(ThreadsTest, LoseNoUpdateOfOneObject) {
    constexpr int each = 500;
    fill(1, 0);

    onThreads(ThreadCount, [&](int) {
        StaffModel model;
        open(model);
        const Pointer<Person> counter(model.findPerson("0"));
        for (int i = 0; i < each; ++i)
            persist(model, {counter}, [&] {
                counter->change();
                ++counter->age;
            });
    });

    const std::string expected = std::to_string(ThreadCount * each);
    EXPECT_EQ(expected, ask("SELECT age FROM Person"));
    EXPECT_EQ(expected, ask("SELECT KesVersion FROM Person"));
}

TEST_F(ThreadsTest, MoveAmountsWithoutLosingOrMakingAny) {
    constexpr int accounts = 10;
    constexpr int start = 1000;
    constexpr int each = 400;
    fill(accounts, start);
    std::vector<std::vector<int>> moved(ThreadCount, std::vector<int>(accounts));

    onThreads(ThreadCount, [&](int number) {
        StaffModel model;
        open(model);
        std::vector<Pointer<Person>> persons;
        for (int i = 0; i < accounts; ++i)
            persons.emplace_back(model.findPerson(std::to_string(i).c_str()));
        std::mt19937 random(100U + static_cast<unsigned>(number));
        for (int i = 0; i < each; ++i) {
            const std::size_t from = random() % accounts;
            const std::size_t to = (from + 1 + random() % (accounts - 1)) % accounts;
            persist(model, {persons[from], persons[to]}, [&] {
                persons[from]->change();
                persons[to]->change();
                --persons[from]->age;
                ++persons[to]->age;
            });
            --moved[static_cast<std::size_t>(number)][from];
            ++moved[static_cast<std::size_t>(number)][to];
        }
    });

    for (std::size_t i = 0; i < accounts; ++i) {
        int expected = start;
        for (const std::vector<int>& by : moved)
            expected += by[i];
        EXPECT_EQ(std::to_string(expected),
                  ask("SELECT age FROM Person WHERE name = '" + std::to_string(i) + "'"));
    }
}

TEST_F(ThreadsTest, ReadWholeTransactionsWhileOthersWrite) {
    constexpr int accounts = 10;
    constexpr int start = 1000;
    fill(accounts, start);

    onThreads(ThreadCount, [&](int number) {
        StaffModel model;
        open(model);
        std::mt19937 random(static_cast<unsigned>(number));
        for (int i = 0; i < 200; ++i) {
            int sum = 0;
            std::vector<Pointer<Person>> persons;
            for (Person* person : SelectionOf<Person>(model.personClass)) {
                persons.emplace_back(person);
                sum += person->age;
            }
            ASSERT_EQ(accounts * start, sum);
            if (number % 2 == 0)
                continue;
            Person* from = persons[random() % accounts];
            Person* to = persons[random() % accounts];
            persist(model, {from, to}, [&] {
                from->change();
                to->change();
                --from->age;
                ++to->age;
            });
        }
    });
}

TEST_F(ThreadsTest, UndoAndRedoWhatTheyDidThemselves) {
    constexpr int each = 100;
    fill(ThreadCount, 0);

    onThreads(ThreadCount, [&](int number) {
        StaffModel model;
        open(model);
        const Pointer<Person> own(model.findPerson(std::to_string(number).c_str()));
        const auto add = [&](int years) {
            persist(model, {own}, [&] {
                own->change();
                own->age += years;
            });
        };
        for (int i = 0; i < each; ++i) {
            add(1);
            add(1000);
            model.undo();
            model.redo();
            model.undo();
        }
    });

    EXPECT_EQ(std::to_string(ThreadCount),
              ask("SELECT count(*) FROM Person WHERE age = " + std::to_string(each)));
}

// What another thread came to in between is not taken back.
TEST_F(ThreadsTest, UndoNothingThatOthersHaveBuiltOn) {
    constexpr int each = 200;
    fill(1, 0);
    std::vector<int> added(ThreadCount);

    onThreads(ThreadCount, [&](int number) {
        StaffModel model;
        open(model);
        const Pointer<Person> counter(model.findPerson("0"));
        for (int i = 0; i < each; ++i) {
            persist(model, {counter}, [&] {
                counter->change();
                ++counter->age;
            });
            try {
                model.undo();
            } catch (const Exception& raised) {
                ASSERT_TRUE(isConflict(raised) || isRefusal(raised)) << raised.getCode();
                ++added[static_cast<std::size_t>(number)];
                counter->refresh();
            }
        }
    });

    const int expected = std::accumulate(added.begin(), added.end(), 0);
    RecordProperty("refused", expected);
    EXPECT_EQ(std::to_string(expected), ask("SELECT age FROM Person"));
    EXPECT_EQ(std::to_string(2 * ThreadCount * each - expected),
              ask("SELECT KesVersion FROM Person"));
}

TEST_F(ThreadsTest, GiveEveryObjectAnIdOfItsOwn) {
    constexpr int each = 500;
    fill(0, 0);
    std::vector<std::vector<unsigned long>> ids(ThreadCount);

    onThreads(ThreadCount, [&](int number) {
        StaffModel model;
        open(model);
        for (int i = 0; i < each; ++i) {
            model.startTransaction();
            ids[static_cast<std::size_t>(number)].push_back(
                model.newPerson("Somebody", number)->getObjectID());
            model.commit();
        }
    });

    std::set<unsigned long> all;
    for (const std::vector<unsigned long>& some : ids)
        all.insert(some.begin(), some.end());
    EXPECT_EQ(static_cast<std::size_t>(ThreadCount * each), all.size());
    EXPECT_EQ(std::to_string(ThreadCount * each),
              ask("SELECT count(DISTINCT KesObjectID) FROM Person"));
}

TEST_F(ThreadsTest, LeaveNoLinkToARemovedObject) {
    fill(8, 0);
    {
        StaffModel model;
        open(model);
        model.startTransaction();
        for (const char* name : {"Coal", "Steel", "Oil", "Wood"})
            model.newCompany(name);
        model.commit();
    }

    onThreads(ThreadCount, [&](int number) {
        StaffModel model;
        open(model);
        std::mt19937 random(static_cast<unsigned>(number));
        for (int i = 0; i < 150; ++i) {
            try {
                model.startTransaction();
                const Pointer<Company> fresh(model.newCompany("Fresh"));
                const Pointer<Person> person(
                    model.findPerson(std::to_string(random() % 8).c_str()));
                SelectionOf<Company> firms(model.companyClass);
                const Pointer<Company> firm(firms.nextValue());
                if (i % 2 == 0) {
                    person->employer = fresh;
                } else {
                    person->employer = firm;
                    if (random() % 2 == 0)
                        firm->remove();
                }
                model.commit();
            } catch (const Exception& raised) {
                ASSERT_TRUE(isConflict(raised)) << raised.getCode() << ": " << raised.getMessage();
                for (Person* stale : SelectionOf<Person>(model.personClass))
                    stale->refresh();
            }
        }
    });

    EXPECT_EQ("0", ask("SELECT count(*) FROM Person WHERE employer IS NOT NULL AND employer NOT "
                       "IN (SELECT KesObjectID FROM Company)"));
}

TEST_F(ThreadsTest, OpenANewDatabaseAllAtOnce) {
    onThreads(16, [&](int number) {
        StaffModel model;
        open(model);
        model.startTransaction();
        model.newPerson(std::to_string(number).c_str(), number);
        model.commit();
    });

    EXPECT_EQ("16", ask("SELECT count(*) FROM Person"));
}

TEST_F(ThreadsTest, HaveModelsInMemoryThatKnowNothingOfEachOther) {
    onThreads(64, [&](int number) {
        StaffModel model;
        model.openWith();
        model.startTransaction();
        model.newPerson("Somebody", number);
        model.commit();
        const Person* person = model.findPerson("Somebody");
        ASSERT_NE(nullptr, person);
        EXPECT_EQ(number, person->age);
    });
}

TEST_F(ThreadsTest, ShareTheParkedDrivers) {
    fill(1, 0);
    Model::setDriverCacheSize(3);

    onThreads(ThreadCount, [&](int) {
        for (int i = 0; i < 100; ++i) {
            StaffModel model;
            open(model);
            const Pointer<Person> counter(model.findPerson("0"));
            persist(model, {counter}, [&] {
                counter->change();
                ++counter->age;
            });
            model.close();
        }
    });

    Model::setDriverCacheSize(0);
    EXPECT_EQ(std::to_string(ThreadCount * 100), ask("SELECT age FROM Person"));
}

// The sanitizer for threads sees who looks at the number without the lock.
TEST_F(ThreadsTest, MayChangeTheNumberOfParkedDriversAtAnyTime) {
    fill(1, 0);

    onThreads(ThreadCount, [&](int number) {
        for (int i = 0; i < 20; ++i) {
            if (number == 0)
                Model::setDriverCacheSize(i % 3);
            StaffModel model;
            open(model);
            const Pointer<Person> locked(model.findPerson("0"));
            model.close();
            EXPECT_FALSE(model.isOpen());
        }
    });

    Model::setDriverCacheSize(0);
}

// Programs keep the names of their model in constants, which all threads see.
TEST_F(ThreadsTest, MaySeeTheSameNames) {
    fill(1, 5);
    const String driver("sqlite"), source(file.c_str()), nobody,
        options("busy_timeout=60000;synchronous=off");
    const String people("Person"), ageField("age"), works("Works"), staff("staff");

    onThreads(ThreadCount, [&](int) {
        for (int i = 0; i < 20; ++i) {
            StaffModel model;
            model.open(driver, source, nobody, nobody, options);
            SelectionOf<Person> found(model.getClass(people));
            found.where(found[ageField] == 5);
            found.orderBy(found[ageField]);
            EXPECT_NE(nullptr, found.nextValue());
            SelectionOf<Company> empty(model.companyClass);
            empty.where(empty(works, staff) == nullptr);
            EXPECT_EQ(nullptr, empty.nextValue());
        }
    });
}

TEST_F(ThreadsTest, RaiseErrorsOfTheirOwn) {
    onThreads(ThreadCount, [&](int number) {
        for (int i = 0; i < 50; ++i) {
            StaffModel model;
            const std::string missing = "missing" + std::to_string(number);
            const std::string message = messageRaisedBy([&] { model.openWith(missing.c_str()); });
            EXPECT_EQ("Driver with name: " + missing + " does not exist.", message);
        }
    });
}

// The mutex of the handler is held while it runs, and no longer.
TEST_F(ThreadsTest, TakeTurnsInTheExceptionHandler) {
    const ReturningHandler handler;

    onThreads(ThreadCount, [](int) {
        for (int i = 0; i < 50; ++i)
            Exception(Exception::ERROR, "CODE", "context", "message").handle();
    });

    EXPECT_EQ(static_cast<std::size_t>(ThreadCount * 50), handler.codes().size());
}

}  // namespace Kes::testing
