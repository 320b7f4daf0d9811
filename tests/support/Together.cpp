// Tests that end in every way there is, for the selftest of run-together.

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>

namespace {

TEST(Together, Passes) {
    SUCCEED();
}

TEST(Together, Fails) {
    FAIL() << "as it should";
}

TEST(Together, EndsTheProcess) {
    std::_Exit(0);
}

TEST(Together, Skips) {
    GTEST_SKIP();
}

TEST(Together, IsKilled) {
    std::raise(SIGKILL);
}

TEST(Together, PassesBehindAll) {
    SUCCEED();
}

TEST(Together, FailsTheProcessAtItsEnd) {
    std::atexit([] { std::_Exit(23); });
}

}  // namespace
