#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>

#include "tests/drivers/PlainSqlite.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class FaultyDriverTest : public ::testing::Test {
protected:
    void open(StaffModel& model, const std::string& faults) {
        const std::string text = "faulty.driver=sqlite;" + faults;
        model.openWith("faulty", file.c_str(), text.c_str());
    }

    void storeAnn(StaffModel& model) {
        model.startTransaction();
        model.newPerson("Ann", 30);
        model.commit();
    }

    std::string count() { return PlainSqlite(file).ask("SELECT count(*) FROM Person"); }

    std::string readLog() {
        std::ostringstream text;
        text << std::ifstream(folder.path("log")).rdbuf();
        return text.str();
    }

    // How a process ends that stores Ann under these faults.
    int statusOfAChild(const std::string& faults) {
        const pid_t child = fork();
        if (child == 0) {
            StaffModel model;
            open(model, faults);
            storeAnn(model);
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return status;
    }

    TemporaryFolder folder;
    std::string file = folder.path("staff.db");
};

TEST_F(FaultyDriverTest, PassesEverythingOnWithoutAFault) {
    StaffModel model;
    open(model, "");
    storeAnn(model);

    ASSERT_NE(nullptr, model.findPerson("Ann"));
    EXPECT_EQ(30, model.findPerson("Ann")->age);
    EXPECT_EQ("1", count());
}

TEST_F(FaultyDriverTest, NeedsADriver) {
    StaffModel model;

    const std::string message =
        messageRaisedBy([&] { model.openWith("faulty", file.c_str(), "faulty.at=1"); });

    EXPECT_EQ("faulty: no driver is named; write faulty.driver=NAME", message);
}

TEST_F(FaultyDriverTest, SaysWhichDriverIsMissing) {
    StaffModel model;

    const std::string message = messageRaisedBy(
        [&] { model.openWith("faulty", file.c_str(), "faulty.driver=nosuchdriver"); });

    EXPECT_EQ("faulty: there is no driver \"nosuchdriver\"", message);
}

TEST_F(FaultyDriverTest, ListsItsOptionsForAnUnknownOne) {
    StaffModel model;

    const std::string message = messageRaisedBy([&] { open(model, "faulty.slots=insert"); });

    EXPECT_NE(std::string::npos, message.find("unknown option \"faulty.slots\"")) << message;
    EXPECT_NE(std::string::npos, message.find("faulty.slot,")) << message;
}

TEST_F(FaultyDriverTest, RefusesValuesThatItDoesNotKnow) {
    StaffModel model;

    EXPECT_RAISES("DBOPENERR", open(model, "faulty.fault=explode"));
    EXPECT_RAISES("DBOPENERR", open(model, "faulty.at=-1"));
    EXPECT_RAISES("DBOPENERR", open(model, "faulty.at"));
}

TEST_F(FaultyDriverTest, PassesTheOtherOptionsOn) {
    StaffModel model;

    const std::string message =
        messageRaisedBy([&] { open(model, "create=false; faulty.at=0; busy_timeout=10"); });

    EXPECT_NE(std::string::npos, message.find("does not exist; open it with create=true"))
        << message;
}

TEST_F(FaultyDriverTest, FailsTheChosenCallOfASlotAndNoOther) {
    StaffModel model;
    open(model, "faulty.slot=commit; faulty.at=2");  // the first ends the open

    const std::string message = messageRaisedBy([&] { storeAnn(model); });
    EXPECT_NE(std::string::npos, message.find("commit, was told to fail")) << message;
    EXPECT_EQ("0", count());

    storeAnn(model);
    EXPECT_EQ("1", count());
}

TEST_F(FaultyDriverTest, GoesOnFailingWhenItIsToldTo) {
    StaffModel model;
    open(model, "faulty.slot=insert; faulty.at=2; faulty.repeat=on");
    storeAnn(model);

    EXPECT_RAISES("COMFAIL", storeAnn(model));
    EXPECT_RAISES("COMFAIL", storeAnn(model));
    EXPECT_EQ("1", count());
}

TEST_F(FaultyDriverTest, CountsTheCallsOfAllSlotsWithoutAChosenOne) {
    StaffModel model;

    EXPECT_RAISES("DBOPENERR", open(model, "faulty.at=1"));
}

TEST_F(FaultyDriverTest, ThrowsWhenItIsToldTo) {
    StaffModel model;
    open(model, "faulty.slot=insert; faulty.at=1; faulty.fault=throw");

    const std::string message = messageRaisedBy([&] { storeAnn(model); });

    EXPECT_NE(std::string::npos, message.find("insert, was told to throw")) << message;
    EXPECT_EQ("0", count());
}

TEST_F(FaultyDriverTest, WaitsWhenItIsToldTo) {
    StaffModel model;
    open(model, "faulty.slot=insert; faulty.at=1; faulty.fault=delay; faulty.delay=30");
    const auto begin = std::chrono::steady_clock::now();

    storeAnn(model);

    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
    EXPECT_EQ("1", count());
}

TEST_F(FaultyDriverTest, KillsItsProcessBeforeTheCall) {
    const int status = statusOfAChild("faulty.slot=commit; faulty.at=2; faulty.fault=kill");

    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(SIGKILL, WTERMSIG(status));
    EXPECT_EQ("0", count());
}

TEST_F(FaultyDriverTest, KillsItsProcessBehindTheCallWhenItIsToldTo) {
    const int status =
        statusOfAChild("faulty.slot=commit; faulty.at=2; faulty.fault=kill; faulty.when=after");

    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ("1", count());
}

TEST_F(FaultyDriverTest, FailsBehindTheCallWhenItIsToldTo) {
    StaffModel model;
    open(model, "faulty.slot=commit; faulty.at=2; faulty.when=after");

    EXPECT_RAISES("COMFAIL", storeAnn(model));
    EXPECT_EQ("1", count());
}

TEST_F(FaultyDriverTest, EndsACursorThatFails) {
    StaffModel model;
    open(model, "faulty.slot=cursor.next; faulty.at=2");
    storeAnn(model);
    storeAnn(model);
    Selection people(model.personClass);
    ASSERT_TRUE(people.next());

    EXPECT_RAISES("SELERR", people.next());
    EXPECT_FALSE(people.next());
}

TEST_F(FaultyDriverTest, LetsAFailedSetVersionFailTheCommit) {
    StaffModel model;
    EXPECT_RAISES("ROLLFAIL", open(model, "faulty.slot=setVersion; faulty.at=1"));

    EXPECT_EQ("0", PlainSqlite(file).ask("SELECT count(*) FROM sqlite_schema"));
}

TEST_F(FaultyDriverTest, CountsOnThroughTheDriversOfARun) {
    const std::string faults = "faulty.run=shared; faulty.slot=open; faulty.at=2";
    StaffModel first;
    open(first, faults);
    StaffModel second;

    EXPECT_RAISES("DBOPENERR", open(second, faults));
    open(second, faults);
}

TEST_F(FaultyDriverTest, LogsEveryCall) {
    StaffModel model;
    open(model, "faulty.slot=insert; faulty.at=1; faulty.log=" + folder.path("log"));
    EXPECT_RAISES("COMFAIL", storeAnn(model));

    const std::string log = readLog();

    EXPECT_EQ(0U, log.find("1 open " + file + "\n")) << log;
    EXPECT_NE(std::string::npos, log.find(" insert Person 1 v0 FAULT\n")) << log;
    EXPECT_NE(std::string::npos, log.find(" rollback\n")) << log;
}

}  // namespace Kes::testing
