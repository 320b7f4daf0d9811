#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>

#include "tests/drivers/GaleraTest.h"
#include "tests/drivers/ParcelModel.h"
#include "tests/support/Child.h"

namespace Kes::testing {

class GaleraUpgradeTest : public GaleraTest {
protected:
    void fillParcels(int parcels = 100) const {
        ParcelModel model(1);
        open(model, {1});
        model.fill(parcels);
    }

    // "" when the upgrade comes to its end.
    std::string upgradeSays(int version, int node) const {
        ParcelModel model(version);
        return messageRaisedBy([&] { open(model, {node}); });
    }
};

TEST_F(GaleraUpgradeTest, StaysAliveWhenTwoNodesGiveUpgradesUp) {
    fillParcels();
    PlainMariadb(hostOf(1) + "/" + database, user, password)
        .run("UPDATE Parcel SET text = 'no number' WHERE number = 70");
    std::vector<std::unique_ptr<Child>> children;
    for (const int node : {1, 2})
        children.push_back(std::make_unique<Child>([this, node](const Child::Report&) {
            for (int round = 0; round < 10; ++round) {
                ParcelModel model(3);
                if (codeRaisedBy([&] { open(model, {node}); }).empty())
                    return false;
            }
            return true;
        }));

    for (const auto& child : children)
        EXPECT_TRUE(child->succeeds());

    EXPECT_EQ("", upgradeSays(2, 3));
    EXPECT_EQ("100", ask(1, "SELECT count(*) FROM Parcel WHERE weight = 7"));
    EXPECT_EQ("0", ask(2,
                       "SELECT count(*) FROM information_schema.triggers WHERE trigger_schema = "
                       "DATABASE()"));
}

TEST_F(GaleraUpgradeTest, WaitsForAnUpgradeThatClearsAwayOnAnotherNode) {
    fillParcels();
    PlainMariadb other(hostOf(1) + "/" + database, user, password);
    const std::string turn = other.ask("SHOW TABLES LIKE 'kes_turn_%'");
    other.run("RENAME TABLE " + turn + " TO kes_turn_5_clearing");
    Child upgrading([&](const Child::Report&) { return upgradeSays(2, 2).empty(); });
    std::this_thread::sleep_for(std::chrono::seconds(1));

    const std::string kept = other.ask("SHOW TABLES LIKE 'kes_turn_%'");
    other.run("RENAME TABLE kes_turn_5_clearing TO kes_turn_5");

    EXPECT_EQ("kes_turn_5_clearing", kept);
    EXPECT_TRUE(upgrading.succeeds());
    EXPECT_EQ("100", ask(1, "SELECT count(*) FROM Parcel WHERE weight = 7"));
}

TEST_F(GaleraUpgradeTest, TakesTheTurnOfAnUpgradeThatHasDiedOnAnotherNode) {
    fillParcels();
    PlainMariadb other(hostOf(1) + "/" + database, user, password);
    const std::string turn = other.ask("SHOW TABLES LIKE 'kes_turn_%'");
    other.run("RENAME TABLE " + turn + " TO kes_turn_5_running");
    ParcelModel model(2);

    EXPECT_EQ("", messageRaisedBy([&] { open(model, {2}, "lock_timeout=500"); }));

    EXPECT_EQ("100", ask(1, "SELECT count(*) FROM Parcel WHERE weight = 7"));
    EXPECT_EQ("kes_turn_7", ask(1, "SHOW TABLES LIKE 'kes_turn_%'"));
}

TEST_F(GaleraUpgradeTest, LosesNothingWhenTwoNodesUpgradeWhileAThirdOneWrites) {
    fillParcels(3000);
    Child writer([&](const Child::Report& report) {
        ParcelModel model(1);
        open(model, {3});
        report(std::to_string(model.writeFor(std::chrono::seconds(4))));
        return true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    const auto upgradeOn = [&](int node) {
        return [this, node](const Child::Report&) { return upgradeSays(2, node).empty(); };
    };
    Child one(upgradeOn(1));
    Child other(upgradeOn(2));

    const bool oneIsDone = one.succeeds();
    const bool otherIsDone = other.succeeds();
    const std::string length = writer.says();
    ASSERT_TRUE(writer.succeeds());

    EXPECT_TRUE(oneIsDone || otherIsDone);
    EXPECT_EQ("", upgradeSays(2, 3));
    EXPECT_EQ("4498500", ask(2, "SELECT sum(number) FROM Parcel WHERE weight = 7"));
    EXPECT_EQ(length, ask(2, "SELECT length(text) FROM Parcel WHERE number = 0"));
    EXPECT_LT(10, std::atoi(length.c_str()));
}

}  // namespace Kes::testing
