#include <chrono>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/drivers/GaleraTest.h"
#include "tests/support/Child.h"

namespace Kes::testing {

// The last node hears nothing of the others for some seconds.
class GaleraCutTest : public GaleraTest {
protected:
    static constexpr int Cut = 3;

    ~GaleraCutTest() override {
        try {
            isolate(false);
            for (int i = 0; i < 300 && !isReady(); ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
        } catch (const std::exception& failure) {
            ADD_FAILURE() << "the node does not come back: " << failure.what();
        }
    }

    void isolate(bool is) {
        patiently([&] {
            PlainMariadb(sourceOf(Cut), user, password)
                .run(std::string("SET GLOBAL wsrep_provider_options = 'gmcast.isolate=") +
                     (is ? "1'" : "0'"));
        });
    }

    bool isReady() const {
        return patiently([&] {
            PlainMariadb node(sourceOf(Cut), user, password);
            return node.ask(
                       "SELECT variable_value FROM information_schema.global_status WHERE "
                       "variable_name = 'wsrep_ready'") == "ON";
        });
    }

    // Adds people until time is over, and tells how each addition ended.
    bool addUntilTheEnd(int number, const Child::Report& report) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(7);
        std::unique_ptr<StaffModel> model;
        for (int i = 0; std::chrono::steady_clock::now() < end; ++i) {
            if (model == nullptr) {
                model = std::make_unique<StaffModel>();
                codeRaisedBy([&] { open(*model, {Cut, 1, 2}); });
            }
            if (!model->isOpen()) {
                model.reset();
                continue;
            }
            const std::string name = std::to_string(number) + "-" + std::to_string(i);
            const std::string said = messageRaisedBy([&] {
                model->startTransaction();
                model->newPerson(name.c_str());
                model->commit();
            });
            const FailureKind kind = said.empty() ? FailureKind::None : model->getFailureKind();
            if (kind == FailureKind::Unclassified)
                std::fprintf(stderr, "%s: %s\n", name.c_str(), said.c_str());
            report(name + " " + std::to_string(static_cast<int>(kind)));
            if (kind == FailureKind::UnknownOutcome || kind == FailureKind::LostConnection)
                model.reset();
        }
        return true;
    }

    std::set<std::string> stored() const {
        return patiently([&] {
            PlainMariadb plain(hostOf(1) + "/" + database, user, password);
            plain.catchUp();
            const std::vector<std::string> names = plain.askAll("SELECT name FROM Person");
            return std::set<std::string>(names.begin(), names.end());
        });
    }
};

TEST_F(GaleraCutTest, TellsTheTruthAboutCommitsAndPassesOverTheNode) {
    make(0);
    std::vector<std::unique_ptr<Child>> children;
    for (int number = 0; number < 4; ++number)
        children.push_back(std::make_unique<Child>([this, number](const Child::Report& report) {
            return addUntilTheEnd(number, report);
        }));
    std::this_thread::sleep_for(std::chrono::seconds(2));
    isolate(true);
    for (int i = 0; i < 100 && isReady(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));

    StaffModel passing;
    EXPECT_EQ("", messageRaisedBy([&] { open(passing, {Cut, 1, 2}); }));
    for (const char* options : {"", "causal_reads=off"}) {
        StaffModel alone;
        const std::string said = messageRaisedBy([&] { open(alone, {Cut}, options); });
        EXPECT_TRUE(says(said, "open on another node")) << said;
    }
    isolate(false);

    std::map<FailureKind, int> counts;
    std::vector<std::pair<std::string, FailureKind>> ends;
    for (const auto& child : children) {
        std::istringstream told(child->says());
        std::string name;
        for (int kind = 0; told >> name >> kind;)
            ends.emplace_back(name, static_cast<FailureKind>(kind));
        EXPECT_TRUE(child->succeeds());
    }
    const std::set<std::string> there = stored();
    for (const auto& [name, kind] : ends) {
        ++counts[kind];
        if (kind == FailureKind::UnknownOutcome)
            continue;
        EXPECT_EQ(kind == FailureKind::None ? 1U : 0U, there.count(name))
            << name << " " << static_cast<int>(kind);
    }
    for (const auto& [kind, count] : counts)
        RecordProperty("kind_" + std::to_string(static_cast<int>(kind)), count);
    EXPECT_LT(100, counts[FailureKind::None]);
    EXPECT_EQ(0, counts[FailureKind::Unclassified]);
}

}  // namespace Kes::testing
