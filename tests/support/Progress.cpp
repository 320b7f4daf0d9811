// Notes which test runs and how each ended, for run-together.

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

namespace Kes::testing {

namespace {

// A test that hangs takes those behind it along, but not for ever.
constexpr unsigned MostSeconds = 120;

class Progress : public ::testing::EmptyTestEventListener {
public:
    explicit Progress(const char* path)
        : file(::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666)) {}

    void OnTestStart(const ::testing::TestInfo& test) override {
        note("run", test);
        ::alarm(MostSeconds);
    }

    void OnTestEnd(const ::testing::TestInfo& test) override {
        ::alarm(0);
        const ::testing::TestResult& result = *test.result();
        note(result.Failed() ? "failed" : result.Skipped() ? "skipped" : "passed", test);
    }

private:
    // A line at once, for the process may end in the next moment.
    void note(const char* word, const ::testing::TestInfo& test) const {
        const std::string line =
            std::string(word) + " " + test.test_suite_name() + "." + test.name() + "\n";
        if (::write(file, line.data(), line.size()) < 0)
            std::abort();
    }

    int file;
};

const bool isListening = [] {
    const char* path = std::getenv("KES_TEST_PROGRESS");
    if (path != nullptr)
        ::testing::UnitTest::GetInstance()->listeners().Append(new Progress(path));
    return path != nullptr;
}();

}  // namespace

}  // namespace Kes::testing
