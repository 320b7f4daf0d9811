#include "tests/drivers/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "tests/support/Child.h"

namespace Kes::testing {

namespace fs = std::filesystem;

TEST(TemporaryFolderTest, IsRemovedLaterWhenItsProcessWasKilled) {
    const TemporaryFolder place;
    Child child([&](const Child::Report& report) {
        setenv("TMPDIR", place.path("").c_str(), 1);
        const TemporaryFolder folder;
        folder.write("file", "text");
        report("made " + folder.path(""));
        pause();
    });
    ASSERT_TRUE(child.awaitLines("made", 1));
    const fs::path made = fs::path(child.last("made")).parent_path();
    const auto removeWhatIsOld = [&] {
        fs::last_write_time(made, fs::file_time_type::clock::now() - std::chrono::hours(2));
        return Child([&](const Child::Report&) {
                   setenv("TMPDIR", place.path("").c_str(), 1);
                   TemporaryFolder::removeAbandoned();
               })
            .succeeds();
    };
    ASSERT_TRUE(fs::exists(made / "file"));

    EXPECT_TRUE(removeWhatIsOld());
    EXPECT_TRUE(fs::exists(made));

    child.kill();
    EXPECT_TRUE(removeWhatIsOld());
    EXPECT_FALSE(fs::exists(made));
}

}  // namespace Kes::testing
