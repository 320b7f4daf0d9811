// Undo and redo come to the same on every driver.

#include "tests/drivers/DriverTest.h"
#include "tests/support/UndoProgram.h"

namespace Kes::testing {

namespace {

class UndoTest : public DriverTest, public ::testing::WithParamInterface<unsigned> {};

}  // namespace

TEST_P(UndoTest, UndoesAndRedoesARandomProgram) {
    try {
        UndoProgram(
            GetParam(), [&](Model& model) { open(model); }, false)
            .run();
    } catch (const std::exception& failure) {
        FAIL() << failure.what();
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, UndoTest, ::testing::Range(1U, 11U));

}  // namespace Kes::testing
