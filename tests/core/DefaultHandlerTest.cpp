#include <kes/Exception.h>

#include <gtest/gtest.h>

#include <string>

namespace Kes {
namespace {

void raise(Exception::Severity severity) {
    Exception(severity, "CODE", "Class::operation", "What happened").handle();
}

TEST(DefaultHandlerTest, PrintsAWarningAndReturns) {
    ::testing::internal::CaptureStderr();

    EXPECT_NO_THROW(raise(Exception::WARNING));

    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "WARNING IN Class::operation [CODE] What happened\n");
}

TEST(DefaultHandlerTest, ThrowsACopyOfEverythingElse) {
    for (const auto severity : {Exception::ERROR, Exception::FATAL}) {
        ::testing::internal::CaptureStderr();
        try {
            raise(severity);
            ADD_FAILURE() << "handle() returned";
        } catch (Exception& e) {
            EXPECT_EQ(e.getSeverity(), severity);
            EXPECT_STREQ(e.getCode(), "CODE");
            EXPECT_STREQ(e.getContext(), "Class::operation");
            EXPECT_STREQ(e.getMessage(), "What happened");
        }
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    }
}

TEST(DefaultHandlerTest, KeepsALongMessageWhole) {
    const std::string message(5000, 'm');
    try {
        Exception(Exception::ERROR, "CODE", "context", message.c_str()).handle();
        ADD_FAILURE() << "handle() returned";
    } catch (const Exception& e) {
        EXPECT_EQ(e.getMessage(), message);
    }
}

}  // namespace
}  // namespace Kes
