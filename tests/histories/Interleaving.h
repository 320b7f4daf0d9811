// Sessions that take turns in every order of their steps, or in many orders that
// are evenly chosen from all.

#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/drivers/Engine.h"
#include "tests/histories/Anomaly.h"
#include "tests/histories/HistoryModel.h"

namespace Kes::testing {

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
            engine->open(side.model, level + (level.empty() ? "" : ";") + engine->hardlyWaiting());
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
        engine->run(
            "UPDATE [Table] SET [number] = " + std::to_string(number) +
            ", [KesVersion] = [KesVersion] + 1 WHERE [KesObjectID] = " + std::to_string(id));
        return id;
    }
    std::string stored(const std::string& what, unsigned long id) {
        return engine->ask("SELECT " + what + " WHERE [KesObjectID] = " + std::to_string(id));
    }
    int storedNumber(unsigned long table) {
        return std::stoi(stored("[number] FROM [Table]", table));
    }

    static constexpr std::size_t MostOrders = 20;

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
        SCOPED_TRACE("in the order " + shown +
                     ", committed: " + std::to_string(sides[0].committed) +
                     std::to_string(sides[1].committed) + std::to_string(sides[2].committed));
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
    // nowhere else. On a cluster it depends on how fast the nodes hear of commits.
    void expectAsPermitted(Anomaly anomaly) const {
        const bool isPermitted = GetParam().permits(anomaly);
        if (!isPermitted || GetParam().engine != "galera") {
            EXPECT_EQ(isPermitted, seen.count(anomaly) != 0) << nameOf(anomaly);
        }
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

}  // namespace Kes::testing
