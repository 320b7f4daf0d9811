#include <gtest/gtest.h>

#include <memory>

#include <kes/DBDriver.h>
#include <kes/DBDriverManager.h>

#include "tests/support/Raises.h"

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

    const std::string message =
        messageRaisedBy([] { DBDriverManager::getDBDriver("hollow"); });

    EXPECT_EQ("Dynamic library hollow.dll is corrupt please download the newest from the shelf",
              message);
}

}  // namespace Kes::testing
