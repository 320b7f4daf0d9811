#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include <kes/DBDriver.h>
#include <kes/DBDriverManager.h>

#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

using DriverPointer = std::unique_ptr<DBDriver>;

TEST(DriverLoadingTest, FindsADriverByItsPlainName) {
    EXPECT_NE(nullptr, DriverPointer(DBDriverManager::getDBDriver("sqlite")));
}

TEST(DriverLoadingTest, TakesANameThatEndsInDllAsItStands) {
    EXPECT_NE(nullptr, DriverPointer(DBDriverManager::getDBDriver("sqlite.dll")));
}

TEST(DriverLoadingTest, LooksForAFileOfAnyMixOfCases) {
    // The file system knows "sqlite.dll" only, so the name was not completed.
    EXPECT_EQ(nullptr, DriverPointer(DBDriverManager::getDBDriver("sqlite.Dll")));
}

TEST(DriverLoadingTest, AppendsTheSuffixToAnotherExtension) {
    EXPECT_EQ(nullptr, DriverPointer(DBDriverManager::getDBDriver("sqlite.so")));
}

TEST(DriverLoadingTest, TakesTheBareSuffixForAName) {
    EXPECT_EQ(nullptr, DriverPointer(DBDriverManager::getDBDriver("DLL")));
}

TEST(DriverLoadingTest, ReturnsNullForAnAbsentLibrary) {
    EXPECT_EQ(nullptr, DriverPointer(DBDriverManager::getDBDriver("nosuchdriver")));
}

TEST(DriverLoadingTest, MakesANewObjectForEachCall) {
    const DriverPointer first(DBDriverManager::getDBDriver("sqlite"));
    const DriverPointer second(DBDriverManager::getDBDriver("sqlite"));

    EXPECT_NE(first, second);
}

TEST(DriverLoadingTest, RaisesForALibraryThatIsNoDriver) {
    EXPECT_RAISES("LOADDRIV", DBDriverManager::getDBDriver("hollow"));
}

TEST(DriverLoadingTest, RaisesForItAtEveryCall) {
    EXPECT_RAISES("LOADDRIV", DBDriverManager::getDBDriver("hollow"));
    EXPECT_RAISES("LOADDRIV", DBDriverManager::getDBDriver("hollow"));
}

TEST(DriverLoadingTest, ReturnsNullForItWhenTheHandlerReturns) {
    const ReturningHandler handler;

    EXPECT_EQ(nullptr, DBDriverManager::getDBDriver("hollow"));

    EXPECT_EQ(std::vector<std::string>{"LOADDRIV"}, handler.codes());
}

TEST(DriverLoadingTest, SaysWhereAnIntactDriverIsToBeHad) {
    DBDriverManager::setDownloadLocation("the shelf");

    const std::string message = messageRaisedBy([] { DBDriverManager::getDBDriver("hollow"); });

    EXPECT_EQ("Dynamic library hollow.dll is corrupt please download the newest from the shelf",
              message);
}

TEST(DriverLoadingTest, SaysWhereItHasLookedAndWhatTheSystemSaid) {
    DBDriverManager::getDBDriver("nosuchdriver");

    const std::string failure(DBDriverManager::getFailure());

    const std::string beside = "/kes/nosuchdriver.dll: ";
    EXPECT_EQ('/', failure.front()) << failure;
    EXPECT_NE(std::string::npos, failure.find(beside)) << failure;
    EXPECT_NE(std::string::npos, failure.find("; nosuchdriver.dll: ")) << failure;
    EXPECT_NE(std::string::npos, failure.find("No such file")) << failure;
}

TEST(DriverLoadingTest, KeepsTheReasonBehindTheErrorOfAnOpen) {
    StaffModel model;

    EXPECT_EQ("Driver with name: nosuchdriver does not exist.",
              messageRaisedBy([&] { model.openWith("nosuchdriver"); }));

    EXPECT_TRUE(DBDriverManager::getFailure().contains("nosuchdriver.dll"));
}

TEST(DriverLoadingTest, SaysWhichLibraryIsNoDriver) {
    EXPECT_RAISES("LOADDRIV", DBDriverManager::getDBDriver("hollow"));

    EXPECT_TRUE(
        DBDriverManager::getFailure().contains("/kes/hollow.dll: it exports no function gdd"));
}

TEST(DriverLoadingTest, HasNoReasonBehindADriverThatWasFound) {
    DBDriverManager::getDBDriver("nosuchdriver");
    const DriverPointer found(DBDriverManager::getDBDriver("sqlite"));

    EXPECT_EQ("", DBDriverManager::getFailure());
}

TEST(DriverLoadingTest, LoadsAPathUnlessTheApplicationForbidsIt) {
    const std::filesystem::path kept =
        std::filesystem::temp_directory_path() / ("kes-path-" + std::to_string(getpid()) + ".dll");
    std::filesystem::copy_file(
        std::filesystem::read_symlink("/proc/self/exe").parent_path() / "../lib/kes/sqlite.dll",
        kept);

    DBDriverManager::setPathsAllowed(false);
    const DriverPointer forbidden(DBDriverManager::getDBDriver(kept.c_str()));
    const std::string failure(DBDriverManager::getFailure());
    DBDriverManager::setPathsAllowed(true);
    const DriverPointer loaded(DBDriverManager::getDBDriver(kept.c_str()));
    std::filesystem::remove(kept);

    EXPECT_EQ(nullptr, forbidden);
    EXPECT_EQ(kept.string() + " is a path, which the application does not allow", failure);
    EXPECT_NE(nullptr, loaded);
}

}  // namespace Kes::testing
