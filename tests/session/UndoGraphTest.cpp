#include <gtest/gtest.h>

#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/UndoProgram.h"

namespace Kes::testing {

namespace {

#if defined(KES_SANITIZED_ADDRESS) || defined(KES_SANITIZED_THREAD)
constexpr unsigned Seeds = 50;
#else
constexpr unsigned Seeds = 200;
#endif

}  // namespace

class UndoGraphTest : public ::testing::TestWithParam<bool> {};

TEST_P(UndoGraphTest, UndoesAndRedoesEveryRandomProgram) {
    const TemporaryFolder folder;
    for (unsigned seed = 1; seed <= (GetParam() ? Seeds / 5 : Seeds); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const std::string file = folder.path(std::to_string(seed));
        const auto open = [&](Model& model) {
            model.open("sqlite", file.c_str(), "", "", "synchronous=off");
        };
        try {
            UndoProgram(seed, open, GetParam()).run();
        } catch (const std::exception& failure) {
            FAIL() << failure.what();
        }
        std::filesystem::remove(file);
    }
}

INSTANTIATE_TEST_SUITE_P(PoliteAndRude, UndoGraphTest, ::testing::Bool());

}  // namespace Kes::testing
