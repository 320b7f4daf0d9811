#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <kes/Kes.h>

#include "tests/drivers/Engines.h"
#include "tests/drivers/ParcelModel.h"
#include "tests/drivers/PlainMariadb.h"
#include "tests/support/Child.h"
#include "tests/support/Raises.h"

namespace Kes::testing {

class MariadbUpgradeTest : public ::testing::Test {
protected:
    static bool says(const std::string& message, const std::string& words) {
        return message.find(words) != std::string::npos;
    }

    void make(int parcels) {
        ParcelModel model(1);
        engine->open(model);
        model.fill(parcels);
    }

    std::string refusal(int version) {
        ParcelModel model(version);
        return messageRaisedBy([&] { engine->open(model); });
    }

    // Tables and triggers of upgrades, without the one that tells the turn.
    std::vector<std::string> leftovers() {
        return admin.askAll(
            "SELECT table_name FROM information_schema.tables WHERE "
            "table_schema = '" +
            database + "' AND table_name REGEXP '^kes_(new|old)' UNION ALL " +
            "SELECT trigger_name FROM information_schema.triggers WHERE "
            "trigger_schema = '" +
            database + "'");
    }

    const std::unique_ptr<Engine> engine = makeMariadbEngine();
    PlainMariadb admin{Engine::serverSays("mariadb", "source"), engine->user(), engine->password()};
    const std::string database = engine->source().substr(engine->source().find('/') + 1);
};

TEST_F(MariadbUpgradeTest, KeepsRowsAndLeavesNothingElse) {
    make(1000);

    EXPECT_EQ("", refusal(2));

    EXPECT_EQ("499500", engine->ask("SELECT sum([number]) FROM [Parcel] WHERE [weight] = 7"));
    EXPECT_TRUE(leftovers().empty());
}

TEST_F(MariadbUpgradeTest, LeavesTheOldTablesWholeWhenItIsRefused) {
    make(100);
    engine->run("UPDATE [Parcel] SET [text] = 'no number' WHERE [number] = 70");

    EXPECT_TRUE(says(refusal(3), "no number"));

    EXPECT_TRUE(leftovers().empty());
    EXPECT_EQ("1", engine->ask("SELECT version FROM kes_versions WHERE kind = 'MODEL'"));
    engine->run("UPDATE [Parcel] SET [text] = '70' WHERE [number] = 70");
    EXPECT_EQ("", refusal(3));
    EXPECT_EQ("4950", engine->ask("SELECT sum([text]) FROM [Parcel]"));
}

TEST_F(MariadbUpgradeTest, ClearsAwayWhatOneThatWasCutOffLeft) {
    make(10);
    engine->run("CREATE TABLE kes_new_7_0 (id INTEGER PRIMARY KEY)");
    engine->run("CREATE TABLE kes_old_7_1 (id INTEGER PRIMARY KEY)");
    engine->run(
        "CREATE TRIGGER kes_stop_7_0_1 BEFORE INSERT ON [Parcel] FOR EACH ROW "
        "SIGNAL SQLSTATE '45000' SET MESSAGE_TEXT = 'stop'");

    EXPECT_EQ("", refusal(2));

    EXPECT_TRUE(leftovers().empty());
    engine->run("INSERT INTO [Parcel] VALUES (100, 0, 1, 'new', 1)");
}

TEST_F(MariadbUpgradeTest, IsDoneOnceByTwoAtTheSameTime) {
    make(5000);
    const auto upgrade = [&](const Child::Report&) {
        ParcelModel model(2);
        return codeRaisedBy([&] { engine->open(model); }).empty();
    };

    Child one(upgrade);
    Child other(upgrade);

    EXPECT_TRUE(one.succeeds());
    EXPECT_TRUE(other.succeeds());
    EXPECT_EQ("5000", engine->ask("SELECT count(*) FROM [Parcel] WHERE [weight] = 7"));
    EXPECT_EQ("2", engine->ask("SELECT version FROM kes_versions WHERE kind = 'MODEL'"));
    EXPECT_TRUE(leftovers().empty());
}

TEST_F(MariadbUpgradeTest, SurvivesDeathAtAnyMoment) {
    const auto upgrade = [&](const Child::Report&) {
        ParcelModel model(2);
        engine->open(model);
        return true;
    };
    for (int moment = 0; moment < 20; ++moment) {
        for (const std::string& table : engine->tables())
            engine->run("DROP TABLE [" + table + "]");
        engine->run("DROP TABLE IF EXISTS kes_versions");
        make(3000);

        Child child(upgrade);
        std::this_thread::sleep_for(std::chrono::milliseconds(5 * moment));
        child.kill();

        // From then on nobody upgrades, and the old tables wait for the next who does.
        const bool wasDone =
            engine->ask("SELECT version FROM kes_versions WHERE kind = 'MODEL'") == "2";
        EXPECT_EQ("4498500", engine->ask("SELECT sum([number]) FROM [Parcel]")) << moment;
        EXPECT_EQ("", refusal(2)) << moment;
        EXPECT_EQ("4498500", engine->ask("SELECT sum([number]) FROM [Parcel] WHERE [weight] = 7"));
        EXPECT_TRUE(wasDone || leftovers().empty()) << moment;
    }
}

TEST_F(MariadbUpgradeTest, LosesNoWriteOfAProgramThatGoesOn) {
    make(3000);
    Child writer([&](const Child::Report& report) {
        ParcelModel model(1);
        engine->open(model);
        report(std::to_string(model.writeFor(std::chrono::seconds(2))));
        return true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));

    const std::string said = refusal(2);

    const std::string length = writer.says();
    ASSERT_TRUE(writer.succeeds());
    EXPECT_EQ("", said);
    EXPECT_EQ(length, engine->ask("SELECT length([text]) FROM [Parcel] WHERE [number] = 0"));
    EXPECT_LT(10, std::atoi(length.c_str()));
}

}  // namespace Kes::testing
