#include <kes/ThreadCheck.h>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include <kes/Exception.h>

#include "tests/support/Raises.h"

namespace Kes {
namespace {

using testing::codeRaisedBy;
using testing::onAnotherThread;
using testing::ReturningHandler;

TEST(ThreadCheckTest, AcceptsItsOwnerEverAfter) {
    ThreadCheck check;

    check.doit();

    EXPECT_NO_THROW(check.doit());
}

TEST(ThreadCheckTest, AdoptsTheFirstThreadThatCalls) {
    ThreadCheck check;

    onAnotherThread([&] { check.doit(); });

    EXPECT_RAISES("MTERR", check.doit());
}

TEST(ThreadCheckTest, RaisesAFatalErrorOnAnotherThread) {
    ThreadCheck check;
    check.doit();

    try {
        onAnotherThread([&] { check.doit(); });
        ADD_FAILURE() << "the other thread passed";
    } catch (Exception& e) {
        EXPECT_EQ(e.getSeverity(), Exception::FATAL);
        EXPECT_STREQ(e.asString(),
                     "FATAL ERROR IN ThreadCheck::doit [MTERR] "
                     "You used your model in two different thread. That is illegal");
    }
}

TEST(ThreadCheckTest, KeepsItsOwnerAfterAnotherThreadFailed) {
    ThreadCheck check;
    check.doit();

    EXPECT_RAISES("MTERR", onAnotherThread([&] { check.doit(); }));

    EXPECT_NO_THROW(check.doit());
}

TEST(ThreadCheckTest, AcceptsAnotherThreadAfterReset) {
    ThreadCheck check;
    check.doit();

    check.reset();

    EXPECT_NO_THROW(onAnotherThread([&] { check.doit(); }));
    EXPECT_RAISES("MTERR", check.doit());
}

TEST(ThreadCheckTest, AdoptsOneOfTheThreadsThatComeAtOnce) {
    for (int round = 0; round < 20; ++round) {
        ThreadCheck check;
        std::atomic<int> waiting{4};
        std::atomic<int> adopted{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&] {
                for (--waiting; waiting > 0;)
                    std::this_thread::yield();
                if (codeRaisedBy([&] { check.doit(); }).empty())
                    ++adopted;
            });
        for (std::thread& thread : threads)
            thread.join();

        ASSERT_EQ(adopted, 1);
    }
}

TEST(ThreadCheckTest, HoldsA32BitIdentifierOnly) {
    EXPECT_EQ(sizeof(ThreadCheck), 4u);
}

TEST(ThreadCheckTest, TellsApartThreadsThatFollowEachOther) {
    ThreadCheck check;
    onAnotherThread([&] { check.doit(); });

    for (int i = 0; i < 20; ++i)
        EXPECT_RAISES("MTERR", onAnotherThread([&] { check.doit(); }));
}

TEST(ThreadCheckDeathTest, EndsTheProcessWhenTheHandlerReturns) {
    const auto misuse = [] {
        const ReturningHandler handler;
        ThreadCheck check;
        check.doit();
        onAnotherThread([&] { check.doit(); });
    };

    EXPECT_EXIT(misuse(), ::testing::ExitedWithCode(1), "");
}

void breakTheRule() {
    const ReturningHandler handler;
    ThreadCheck check;
    check.doit();
    onAnotherThread([&] { check.doit(); });
}

// They, like the destructors of static objects, would run under the feet of the
// other threads.
TEST(ThreadCheckDeathTest, RunsNoExitHandlerInTheEnd) {
    const auto misuse = [] {
        std::atexit([] { std::_Exit(42); });
        breakTheRule();
    };

    EXPECT_EXIT(misuse(), ::testing::ExitedWithCode(1), "");
}

// A process whose standard output goes to the test, which is all that it wrote.
std::string outputOf(void (*work)()) {
    int ends[2];
    if (pipe(ends) != 0)
        return "no pipe";
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        alarm(20);
        work();
        std::_Exit(0);
    }
    close(ends[1]);
    std::string all;
    char part[64];
    for (ssize_t size = 1; size > 0;) {
        size = read(ends[0], part, sizeof part);
        if (size > 0)
            all.append(part, static_cast<std::size_t>(size));
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return all +
           (WIFEXITED(status) ? ", status " + std::to_string(WEXITSTATUS(status)) : ", killed");
}

TEST(ThreadCheckDeathTest, WritesOutWhatTheStandardStreamsHoldInTheEnd) {
    EXPECT_EQ("one, two, status 1", outputOf([] {
                  std::printf("one, ");
                  std::cout << "two";
                  breakTheRule();
              }));
}

// As one that waits for the reader of a full pipe.
TEST(ThreadCheckDeathTest, DoesNotWaitForAThreadThatHoldsTheOutput) {
    EXPECT_EQ(", status 1", outputOf([] {
                  onAnotherThread([] { flockfile(stdout); });
                  breakTheRule();
              }));
}

}  // namespace
}  // namespace Kes
