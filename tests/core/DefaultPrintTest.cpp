#include <kes/Test.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <string>

namespace Kes {
namespace {

class Greeting : public Kes::Test {
public:
    Greeting() : Kes::Test("greeting") {}

    void run() override {
        startTest("words");
        verify(true);
        endTest();
    }
};

TEST(DefaultPrintTest, WritesToStandardOutput) {
    ::testing::internal::CaptureStdout();

    const bool passed = Greeting().start();

    const std::string text = ::testing::internal::GetCapturedStdout();
    EXPECT_TRUE(passed);
    std::string expected(40, '*');
    expected += "\nSTART TEST: greeting\nwords + PASSED\nPASSED TEST: greeting\n";
    EXPECT_EQ(text.substr(0, text.find("Test lasted")), expected);
}

TEST(DefaultPrintTest, WritesEachMarkAtOnce) {
    std::FILE* file = std::tmpfile();
    std::fflush(stdout);
    const int standardOutput = dup(STDOUT_FILENO);
    dup2(fileno(file), STDOUT_FILENO);

    Greeting().verify(true);
    const auto written = lseek(fileno(file), 0, SEEK_END);  // what a crash would leave

    dup2(standardOutput, STDOUT_FILENO);
    close(standardOutput);
    std::fclose(file);
    EXPECT_EQ(written, 1);
}

}  // namespace
}  // namespace Kes
