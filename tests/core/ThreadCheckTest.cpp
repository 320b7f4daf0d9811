#include <kes/ThreadCheck.h>

#include <gtest/gtest.h>

#include <atomic>
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

}  // namespace
}  // namespace Kes
