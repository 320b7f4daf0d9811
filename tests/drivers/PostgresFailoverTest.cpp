#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <list>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/drivers/OwnServer.h"
#include "tests/drivers/PostgresTest.h"
#include "tests/support/Child.h"

namespace Kes::testing {

// A primary and a standby that has each commit before it is acknowledged. Some
// processes store people, and each keeps a log of what it was told.
class PostgresFailoverTest : public ::testing::Test {
protected:
    using Clock = std::chrono::steady_clock;
    static constexpr int Processes = 3;

    PostgresFailoverTest() {
        primary.start();
        standby.start();
        PlainPostgres plain(primary.says("url"));
        plain.run("ALTER SYSTEM SET synchronous_standby_names = '*'");
        plain.run("SELECT pg_reload_conf()");
        const bool follows = comesTrue(
            [&] { return plain.ask("SELECT sync_state FROM pg_stat_replication") == "sync"; });
        if (!follows)
            throw std::runtime_error("the standby does not follow");
        StaffModel model;
        openBoth(model);
    }
    ~PostgresFailoverTest() override {
        for (const OwnServer* server : {&primary, &standby})
            server->signal(SIGKILL);
    }

    static bool comesTrue(const std::function<bool()>& is) {
        const auto end = Clock::now() + std::chrono::seconds(20);
        while (!is()) {
            if (Clock::now() > end)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return true;
    }

    static bool says(const std::string& message, const std::string& words) {
        return message.find(words) != std::string::npos;
    }

    static std::string hostOf(const OwnServer& server) {
        const std::string url = server.says("url");
        const std::size_t start = url.find("host=") + 5;
        return url.substr(start, url.find('&') - start);
    }

    static std::string portOf(const OwnServer& server) {
        const std::string url = server.says("url");
        return url.substr(url.rfind('=') + 1);
    }

    void openBoth(Model& model) const {
        const std::string source = "host=" + hostOf(primary) + "," + hostOf(standby) +
                                   " port=" + portOf(primary) + "," + portOf(standby) +
                                   " user=kes dbname=kes target_session_attrs=read-write";
        model.open("postgres", source.c_str(), "", "", "network_timeout=1;connect_timeout=2");
    }

    std::string logOf(int number) const { return folder.path(std::to_string(number)); }

    // A line for each commit, whatever becomes of the process.
    static void note(int file, const char* what, const std::string& name) {
        const std::string line = std::string(what) + " " + name + "\n";
        if (::write(file, line.data(), line.size()) < 0)
            _exit(2);
    }

    bool hasTime(Clock::time_point end) const {
        return Clock::now() < end && ::access(folder.path("stop").c_str(), F_OK) != 0;
    }

    // Stores people until the end, and opens again when a connection was lost.
    bool storePeople(int number, Clock::time_point end) const {
        const int file = ::open(logOf(number).c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        StaffModel model;
        for (int i = 0; hasTime(end); ++i) {
            if (!model.isOpen() && !codeRaisedBy([&] { openBoth(model); }).empty()) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                continue;
            }
            const std::string name = std::to_string(number) + "-" + std::to_string(i);
            const std::string code = codeRaisedBy([&] {
                model.startTransaction();
                model.newPerson(name.c_str(), number);
                model.commit();
            });
            const FailureKind kind = model.getFailureKind();
            note(file,
                 code.empty()                          ? "stored"
                 : kind == FailureKind::UnknownOutcome ? "unknown"
                 : kind == FailureKind::LostConnection ? "lost"
                                                       : "strange",
                 name);
            if (!code.empty())
                model.close();
        }
        return true;
    }

    std::set<std::string> logged(const std::string& what) const {
        std::set<std::string> names;
        for (int i = 0; i < Processes; ++i) {
            std::ifstream log(logOf(i));
            for (std::string word, name; log >> word >> name;)
                if (word == what)
                    names.insert(name);
        }
        return names;
    }

    static int countOf(const std::set<std::string>& names, const std::set<std::string>& among) {
        int count = 0;
        for (const std::string& name : names)
            count += among.count(name) != 0 ? 1 : 0;
        return count;
    }

    // The load, in which the primary fails in some way and the standby takes over.
    void expectNothingLost(const std::function<void()>& fail) {
        const auto end = Clock::now() + std::chrono::seconds(40);
        std::list<Child> children;
        for (int i = 0; i < Processes; ++i)
            children.emplace_back(
                [this, i, end](const Child::Report&) { return storePeople(i, end); });
        EXPECT_TRUE(comesTrue([&] { return logged("stored").size() > 30; }));
        fail();
        const std::size_t before = logged("stored").size();
        standby.order("promote");
        EXPECT_TRUE(comesTrue([&] { return logged("stored").size() > before + 50; }));
        std::ofstream(folder.path("stop")) << "now";
        for (Child& child : children)
            EXPECT_TRUE(child.succeeds());

        PlainPostgres plain(standby.says("url"));
        std::set<std::string> present;
        for (const std::string& name : plain.askAll("SELECT name FROM \"Person\""))
            EXPECT_TRUE(present.insert(name).second) << name << " is stored twice";
        const std::set<std::string> stored = logged("stored");
        const std::set<std::string> unknown = logged("unknown");
        EXPECT_EQ(static_cast<int>(stored.size()), countOf(stored, present));
        EXPECT_EQ(0, countOf(logged("lost"), present));
        EXPECT_EQ(static_cast<int>(present.size()),
                  static_cast<int>(stored.size()) + countOf(unknown, present));
        EXPECT_LE(unknown.size(), 3U * Processes);
        EXPECT_EQ(std::set<std::string>{}, logged("strange"));
        EXPECT_EQ("0", plain.ask("SELECT count(*) - count(DISTINCT \"KesObjectID\") FROM "
                                 "\"Person\""));
    }

    TemporaryFolder folder;
    OwnServer primary{"postgres"};
    OwnServer standby{"postgres", "KES_PG_STANDBY_OF='" + primary.home() + "'"};
};

TEST_F(PostgresFailoverTest, LosesNothingWhenThePrimaryIsKilled) {
    expectNothingLost([&] { primary.signal(SIGKILL); });
}

TEST_F(PostgresFailoverTest, LosesNothingWhenThePrimaryFreezes) {
    expectNothingLost([&] { primary.signal(SIGSTOP); });
}

TEST_F(PostgresFailoverTest, TellsWhatAStandbyIsAndWhatItLacks) {
    StaffModel model;
    openBoth(model);
    model.startTransaction();
    model.newPerson("Ann", 30);
    model.commit();
    PlainPostgres behind(standby.says("url"));
    // The standby has what was committed before it shows it, the table as well.
    ASSERT_TRUE(comesTrue(
        [&] { return behind.ask("SELECT to_regclass('\"Person\"') IS NOT NULL") == "t"; }));
    EXPECT_TRUE(comesTrue([&] { return behind.ask("SELECT count(*) FROM \"Person\"") == "1"; }));
    StaffModel reader;
    reader.open("postgres", standby.says("url").c_str(), "", "", "");
    const Pointer<Person> ann(reader.findPerson("Ann"));
    ASSERT_NE(nullptr, ann.getInstance());
    ann->change();
    ann->age = 31;

    const std::string written = messageRaisedBy([&] { reader.commit(); });
    reader.close();
    const std::string strict = messageRaisedBy([&] {
        reader.open("postgres", standby.says("url").c_str(), "", "", "isolation=serializable");
    });
    EXPECT_TRUE(says(strict, "open it with isolation=repeatable read")) << strict;
    PlainPostgres plain(primary.says("url"));
    plain.run("UPDATE kes_versions SET version = 0 WHERE kind <> 'FORMAT'");
    EXPECT_TRUE(comesTrue([&] {
        return behind.ask("SELECT max(version) FROM kes_versions WHERE kind <> 'FORMAT'") == "0";
    }));
    const std::string upgraded =
        messageRaisedBy([&] { reader.open("postgres", standby.says("url").c_str(), "", "", ""); });

    for (const std::string& said : {written, upgraded}) {
        EXPECT_TRUE(says(said, "the server is a standby, which can only be read")) << said;
        EXPECT_TRUE(says(said, "target_session_attrs=read-write")) << said;
    }

    // A commit that is acknowledged here, and would be lost with the primary.
    model.close();
    model.open("postgres", primary.says("url").c_str(), "", "", "application_name=waiting");
    model.startTransaction();
    model.newPerson("Bob", 40);
    standby.signal(SIGSTOP);
    std::thread administrator([&] {
        PlainPostgres other(primary.says("url"));
        comesTrue([&] {
            return other.ask(
                       "SELECT pg_cancel_backend(pid) FROM pg_stat_activity WHERE "
                       "application_name = 'waiting' AND wait_event = 'SyncRep'") == "t";
        });
    });

    const std::string said = messageRaisedBy([&] { model.commit(); });
    const FailureKind kind = model.getFailureKind();
    administrator.join();
    standby.signal(SIGCONT);

    EXPECT_TRUE(says(said, "it is not known whether the transaction outlives this server")) << said;
    EXPECT_EQ(FailureKind::UnknownOutcome, kind);
    EXPECT_EQ("2", plain.ask("SELECT count(*) FROM \"Person\""));
}

}  // namespace Kes::testing
