// The vocabulary of tests for errors and threads.

#pragma once

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include <kes/Exception.h>

namespace Kes::testing {

/// The code of the exception that the work raises, "" when it raises none.
template <class Work>
std::string codeRaisedBy(Work work) {
    try {
        work();
    } catch (const Exception& raised) {
        return raised.getCode();
    }
    return "";
}

/// The message of the exception that the work raises, "" when it raises none.
template <class Work>
std::string messageRaisedBy(Work work) {
    try {
        work();
    } catch (const Exception& raised) {
        return raised.getMessage();
    }
    return "";
}

/// The whole exception that the work raises, as "severity code | context | message"
/// with the severity's number, "" when it raises none.
template <class Work>
std::string errorRaisedBy(Work work) {
    try {
        work();
    } catch (const Exception& raised) {
        return std::to_string(raised.getSeverity()) + " " + raised.getCode() + " | " +
               raised.getContext() + " | " + raised.getMessage();
    }
    return "";
}

/// Installs a handler that notes errors and returns, for the life of a scope.
class ReturningHandler {
public:
    ReturningHandler() {
        noted().clear();
        Exception::setExceptionHandler(note);
    }
    ReturningHandler(const ReturningHandler&) = delete;
    ReturningHandler& operator=(const ReturningHandler&) = delete;
    ~ReturningHandler() { Exception::setExceptionHandler(rethrow); }

    const std::vector<std::string>& codes() const { return noted(); }

private:
    static std::vector<std::string>& noted() {
        static std::vector<std::string> codes;
        return codes;
    }
    static void note(Exception& error) { noted().push_back(error.getCode()); }

    // Does what the library's own handler does for all but warnings.
    static void rethrow(Exception& error) { throw Exception(error); }
};

/// Runs the work on another thread; what it throws is thrown here.
template <class Work>
void onAnotherThread(Work work) {
    std::exception_ptr thrown;
    std::thread thread([&] {
        try {
            work();
        } catch (...) {
            thrown = std::current_exception();
        }
    });
    thread.join();
    if (thrown)
        std::rethrow_exception(thrown);
}

}  // namespace Kes::testing

#define EXPECT_RAISES(code, statement) \
    EXPECT_EQ(code, Kes::testing::codeRaisedBy([&] { statement; }))
