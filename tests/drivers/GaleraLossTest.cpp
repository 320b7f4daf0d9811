#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include "tests/drivers/GaleraTest.h"
#include "tests/support/Child.h"

namespace Kes::testing {

class GaleraLossTest : public GaleraTest {
protected:
    static constexpr int Killed = 3;

    // What a process saw while it added one to an age again and again.
    struct Tally {
        long done = 0;        // additions that were reported as stored
        long unknown = 0;     // additions of which it is not known
        long losses = 0;      // of the connection
        long afterwards = 0;  // additions since the last loss
        std::string strange;  // the first error that was neither a loss nor a conflict

        void note(const std::string& said) {
            if (said.empty()) {
                ++done;
                ++afterwards;
            } else if (says(said, "open again")) {
                ++losses;
                afterwards = 0;
                if (says(said, "it is not known whether"))
                    ++unknown;
            } else if (!says(said, "somebody else") && strange.empty()) {
                strange = said;
            }
        }
        std::string text() const {
            std::string all;
            for (const long count : {done, unknown, losses, afterwards})
                all += std::to_string(count) + " ";
            return all + strange;
        }
    };

    static Tally tallyOf(const std::string& text) {
        Tally tally;
        int read = 0;
        EXPECT_EQ(4, std::sscanf(text.c_str(), "%ld %ld %ld %ld %n", &tally.done, &tally.unknown,
                                 &tally.losses, &tally.afterwards, &read))
            << text;
        tally.strange = text.substr(static_cast<std::size_t>(read));
        return tally;
    }

    static void add(StaffModel& model, const Pointer<Person>& person) {
        person->refresh();
        model.startTransaction();
        ++person->age;
        person->change();
        model.commit();
    }

    // Adds on the first of the nodes that answers, until time is over.
    bool addUntilTheEnd(const std::vector<int>& nodes, const Child::Report& report) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(12);
        Tally tally;
        StaffModel model;
        Pointer<Person> person;
        while (std::chrono::steady_clock::now() < end) {
            if (!model.isOpen()) {
                codeRaisedBy([&] { open(model, nodes); });
                person = model.isOpen() ? model.findPerson("0") : nullptr;
                continue;
            }
            const std::string said = messageRaisedBy([&] { add(model, person); });
            tally.note(said);
            if (says(said, "open again")) {
                person = nullptr;
                model.close();
            }
        }
        report(tally.text());
        return true;
    }

    // A child that prefers the node.
    std::unique_ptr<Child> adderOn(int node) const {
        return std::make_unique<Child>([this, node](const Child::Report& report) {
            return addUntilTheEnd({node, node % Nodes + 1, (node + 1) % Nodes + 1}, report);
        });
    }
};

TEST_F(GaleraLossTest, KeepsWhatWasReportedAndGoesOnElsewhereWhenANodeIsKilled) {
    make(1);
    std::vector<std::unique_ptr<Child>> children;
    for (int node = 1; node <= Nodes; ++node)
        children.push_back(adderOn(node));
    std::this_thread::sleep_for(std::chrono::seconds(2));
    ASSERT_TRUE(runScript("kill", std::to_string(Killed)));

    long least = 0;
    long most = 0;
    for (int node = 1; node <= Nodes; ++node) {
        Child& child = *children[static_cast<std::size_t>(node - 1)];
        const Tally tally = tallyOf(child.says());
        EXPECT_TRUE(child.succeeds()) << node;
        EXPECT_EQ("", tally.strange) << node;
        EXPECT_LT(5, tally.afterwards) << node;
        EXPECT_LE(node == Killed ? 1 : 0, tally.losses) << node;
        RecordProperty("seen_on_node_" + std::to_string(node), tally.text());
        least += tally.done;
        most += tally.done + tally.unknown;
    }
    const long stored = std::atol(ask(1, "SELECT sum(age) FROM Person").c_str());
    ASSERT_TRUE(runScript("start"));

    EXPECT_LE(least, stored);
    EXPECT_GE(most, stored);
    EXPECT_EQ(std::to_string(stored), ask(Killed, "SELECT sum(age) FROM Person"));
}

}  // namespace Kes::testing
