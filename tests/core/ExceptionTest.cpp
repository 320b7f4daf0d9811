#include <kes/Exception.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Raises.h"

namespace Kes {
namespace {

using testing::onAnotherThread;
using testing::ReturningHandler;

Exception sample(Exception::Severity severity = Exception::ERROR) {
    return Exception(severity, "CODE", "Class::operation", "What happened");
}

TEST(ExceptionTest, NumbersItsSeverities) {
    EXPECT_EQ(Exception::FATAL, 0);
    EXPECT_EQ(Exception::ERROR, 1);
    EXPECT_EQ(Exception::WARNING, 2);
}

TEST(ExceptionTest, KeepsCopiesOfItsTexts) {
    char code[] = "CODE";
    const Exception e(Exception::ERROR, code, "context", "message");

    code[0] = 'X';

    EXPECT_EQ(e.getSeverity(), Exception::ERROR);
    EXPECT_STREQ(e.getCode(), "CODE");
    EXPECT_STREQ(e.getContext(), "context");
    EXPECT_STREQ(e.getMessage(), "message");
}

TEST(ExceptionTest, TakesNullForAnEmptyText) {
    Exception e(Exception::ERROR, nullptr, nullptr, nullptr);

    EXPECT_STREQ(e.getCode(), "");
    EXPECT_STREQ(e.getContext(), "");
    EXPECT_STREQ(e.getMessage(), "");
    EXPECT_STREQ(e.asString(), "ERROR IN  [] ");
}

TEST(ExceptionTest, BeginsItsTextWithTheSeverity) {
    EXPECT_STREQ(sample(Exception::FATAL).asString(),
                 "FATAL ERROR IN Class::operation [CODE] What happened");
    EXPECT_STREQ(sample(Exception::ERROR).asString(),
                 "ERROR IN Class::operation [CODE] What happened");
    EXPECT_STREQ(sample(Exception::WARNING).asString(),
                 "WARNING IN Class::operation [CODE] What happened");
}

TEST(ExceptionTest, GivesTheSameTextTwice) {
    Exception e = sample();
    const std::string first = e.asString();

    EXPECT_EQ(e.asString(), first);
}

TEST(ExceptionTest, CutsItsTextAndKeepsItsMessage) {
    const std::string prefix = "ERROR IN context [CODE] ";
    for (const std::size_t size : {998u, 999u, 1000u, 1024u, 100000u}) {
        const std::string message(size, 'm');
        Exception e(Exception::ERROR, "CODE", "context", message.c_str());

        EXPECT_EQ(e.asString(), (prefix + message).substr(0, 1023)) << size;
        EXPECT_EQ(e.getMessage(), message) << size;
    }
}

TEST(ExceptionTest, SurvivesTheObjectItWasCopiedFrom) {
    Exception copy(Exception::FATAL, "other", "other", "other");
    {
        const Exception e = sample();
        copy = e;
    }

    EXPECT_EQ(copy.getSeverity(), Exception::ERROR);
    EXPECT_STREQ(copy.asString(), "ERROR IN Class::operation [CODE] What happened");
}

TEST(ExceptionTest, SurvivesItsOwnAssignment) {
    Exception e = sample();
    const Exception& same = e;

    e = same;

    EXPECT_STREQ(e.asString(), "ERROR IN Class::operation [CODE] What happened");
}

TEST(ExceptionTest, ReturnsFromHandlingWhenTheHandlerDoes) {
    const ReturningHandler handler;

    sample(Exception::FATAL).handle();
    sample(Exception::ERROR).handle();
    sample(Exception::WARNING).handle();

    EXPECT_EQ(handler.codes(), (std::vector<std::string>{"CODE", "CODE", "CODE"}));
}

TEST(ExceptionTest, IsHandledItselfAndNotACopy) {
    static const Exception* seen = nullptr;
    const ReturningHandler restores;
    Exception::setExceptionHandler([](Exception& error) { seen = &error; });
    Exception e = sample();

    e.handle();

    EXPECT_EQ(seen, &e);
}

TEST(ExceptionTest, MayBeRaisedInsideAHandler) {
    static std::vector<std::string> handled;
    const ReturningHandler restores;
    Exception::setExceptionHandler([](Exception& error) {
        handled.emplace_back(error.getCode());
        if (handled.size() == 1)
            Exception(Exception::WARNING, "SECOND", "handler", "").handle();
    });

    sample().handle();

    EXPECT_EQ(handled, (std::vector<std::string>{"CODE", "SECOND"}));
}

TEST(ExceptionTest, LetsAnotherThreadRaiseAfterAHandlerThrew) {
    const ReturningHandler restores;
    Exception::setExceptionHandler([](Exception& error) { throw Exception(error); });

    EXPECT_RAISES("CODE", sample().handle());

    EXPECT_RAISES("CODE", onAnotherThread([] { sample().handle(); }));
}

TEST(ExceptionTest, HandsErrorsToTheHandlerThatWasSetLast) {
    const ReturningHandler first;
    sample().handle();
    const auto before = first.codes().size();

    Exception::setExceptionHandler([](Exception&) {});
    sample().handle();

    EXPECT_EQ(before, 1u);
    EXPECT_EQ(first.codes().size(), 1u);
}

TEST(ExceptionTest, KeepsItsHandlerUntilItHasReturned) {
    static std::atomic<bool> replaced;
    static bool replacedInside;
    replaced = false;
    const ReturningHandler restores;
    Exception::setExceptionHandler([](Exception&) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        replacedInside = replaced;
    });
    std::thread handling([] { sample().handle(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(30));

    Exception::setExceptionHandler([](Exception&) {});
    replaced = true;
    handling.join();

    EXPECT_FALSE(replacedInside);
}

TEST(ExceptionTest, IsHandledOneThreadAtATime) {
    static int inside = 0;
    static int most = 0;
    static int handled = 0;
    const ReturningHandler restores;
    Exception::setExceptionHandler([](Exception&) {
        most = ++inside > most ? inside : most;
        std::this_thread::yield();
        ++handled;
        --inside;
    });

    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            for (int n = 0; n < 50; ++n)
                sample().handle();
        });
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(handled, 200);
    EXPECT_EQ(most, 1);
}

}  // namespace
}  // namespace Kes
