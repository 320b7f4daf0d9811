// What random programs over links leave, on every driver.
//
// KES_ORACLE_SECONDS makes it go on with further seeds for so long; a failure
// names its seed, which KES_ORACLE_SEED runs alone. KES_ORACLE_CASES makes it play so
// many cases of LinkOrders; a failure names its case, for KES_ORACLE_CASE.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

#include "tests/drivers/DriverTest.h"
#include "tests/support/LinkOrders.h"
#include "tests/support/LinkProgram.h"

namespace Kes::testing {

namespace {

unsigned numberIn(const char* variable, unsigned otherwise) {
    const char* text = std::getenv(variable);
    return text != nullptr ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

class OracleTest : public ::testing::Test {
protected:
    static void runSeed(unsigned seed) {
        const std::unique_ptr<Engine> engine = Engine::make();
        try {
            LinkProgram(seed, [&](Model& model) { engine->open(model); }).run(40);
        } catch (const std::exception& failure) {
            FAIL() << "seed " << seed << ": " << failure.what();
        }
    }
};

}  // namespace

TEST_F(OracleTest, FindsInMemoryWhatIsStoredWheneverItWasFirstRead) {
    const std::unique_ptr<Engine> engine = Engine::make();
    LinkOrders orders([&](Model& model) { engine->open(model); });
    const char* only = std::getenv("KES_ORACLE_CASE");
    if (only != nullptr) {
        orders.trace();
        return orders.run(std::strtoull(only, nullptr, 10));
    }
    const std::uint64_t first = numberIn("KES_ORACLE_FIRST", 1);
    const std::uint64_t last = first + numberIn("KES_ORACLE_CASES", 300);
    for (std::uint64_t i = first; i < last && !HasFatalFailure(); ++i) {
        try {
            orders.run(LinkOrders::spread(i));
        } catch (const std::exception& failure) {
            FAIL() << failure.what();
        }
    }
}

TEST_F(OracleTest, FindsInMemoryAndDatabaseWhatTheCallsSay) {
    const unsigned only = numberIn("KES_ORACLE_SEED", 0);
    if (only != 0)
        return runSeed(only);
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::seconds(numberIn("KES_ORACLE_SECONDS", 0));
    const unsigned first = numberIn("KES_ORACLE_FIRST", 1);
    unsigned seed = first;
    for (; (seed < first + 6 || Clock::now() < end) && !HasFatalFailure(); ++seed)
        runSeed(seed);
    std::cout << "seeds " << first << " to " << seed - 1 << '\n';
}

}  // namespace Kes::testing
