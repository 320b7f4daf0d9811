#include <gtest/gtest.h>

#include <string>

#include "tests/tools/ToolRun.h"

namespace Kes::testing {

// The program's own arguments are quoted by the caller.
ToolRun runFaults(const std::string& arguments) {
    return runTool(KES_FAULT_CHECK " " + arguments);
}

TEST(FaultCheckTest, TakesOptionsAlsoBehindTheSource) {
    const ToolRun run = runFaults("sqlite '{folder}/faults.db' --fault delay");

    EXPECT_EQ(0, run.status) << run.output;
    EXPECT_TRUE(run.says("1 runs, 0 failed")) << run.output;
}

TEST(FaultCheckTest, NamesWhatIsWrongWithAnArgument) {
    const std::pair<const char*, const char*> wrong[] = {
        {"", "name a driver"},
        {"sqlite", "name a driver"},
        {"sqlite a b c d", "name a driver"},
        {"sqlite a --nothing 1", "no option --nothing"},
        {"sqlite a --at", "--at needs a value"},
        {"sqlite a --at first", "not \"first\""},
        {"sqlite a --step 0", "not \"0\""},
        {"sqlite a --step 99999999999999999999", "--step takes a number"},
        {"sqlite a --fault crash", "delay, fail, kill, throw"},
        {"sqlite a --repeat never", "on, once"},
        {"sqlite a --handler none", "returns, throws"},
        {"sqlite a --known /no/such/file", "/no/such/file"}};
    for (const auto& [arguments, words] : wrong) {
        const ToolRun run = runFaults(arguments);
        EXPECT_EQ(2, run.status) << arguments;
        EXPECT_TRUE(run.says(words)) << arguments << ": " << run.output;
    }
}

TEST(FaultCheckTest, CannotRunWithoutTheDriverOrTheDatabase) {
    EXPECT_EQ(2, runFaults("nosuchdriver a").status);
    EXPECT_EQ(2, runFaults("sqlite /no/such/folder/faults.db").status);
}

// Nothing that was tried is no success.
TEST(FaultCheckTest, CannotRunWhenNoFaultComesLikeThat) {
    EXPECT_EQ(2, runFaults("--fault delay --repeat once sqlite '{folder}/faults.db'").status);
}

TEST(FaultCheckTest, ShowsItsHelp) {
    const ToolRun run = runFaults("--help");

    EXPECT_EQ(0, run.status);
    EXPECT_TRUE(run.says("Usage: kes-fault-check"));
}

}  // namespace Kes::testing
