#include <gtest/gtest.h>

#include "tests/drivers/PlainSqlite.h"
#include "tests/drivers/ReadOnly.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class SqliteTest : public ::testing::Test {
protected:
    std::string refusal(const std::string& source, const char* openOptions = "") {
        StaffModel model;
        return messageRaisedBy([&] { model.openWith("sqlite", source.c_str(), openOptions); });
    }

    void make(const std::string& source) {
        StaffModel model;
        model.openWith("sqlite", source.c_str());
        model.startTransaction();
        model.newPerson("Ann", 30);
        model.commit();
    }

    static bool says(const std::string& message, const char* words) {
        return message.find(words) != std::string::npos;
    }

    TemporaryFolder folder;
    std::string file = folder.path("staff.db");
};

TEST_F(SqliteTest, MakesTheFileByDefault) {
    make(file);

    EXPECT_TRUE(std::filesystem::exists(file));
}

TEST_F(SqliteTest, RefusesAnAbsentFileWithoutCreate) {
    EXPECT_TRUE(says(refusal(file, "create=false"), "does not exist"));
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(SqliteTest, RefusesADirectory) {
    EXPECT_TRUE(says(refusal(folder.path("")), "is a directory"));
}

TEST_F(SqliteTest, RefusesAFileInAnAbsentFolder) {
    EXPECT_TRUE(says(refusal(folder.path("nowhere/staff.db")), "folder"));
}

TEST_F(SqliteTest, RefusesAnEmptyName) {
    EXPECT_TRUE(says(refusal(""), "no file is named"));
}

TEST_F(SqliteTest, RefusesAFileThatIsNoDatabase) {
    folder.write("garbage", std::string(5000, 'x'));

    EXPECT_TRUE(says(refusal(folder.path("garbage")), "not a database"));
}

TEST_F(SqliteTest, TakesAnEmptyFileForANewDatabase) {
    folder.write("empty", "");

    EXPECT_EQ("", refusal(folder.path("empty")));
}

TEST_F(SqliteTest, ListsTheOptionsForAnUnknownOne) {
    const std::string message = refusal(file, "journal=wal");

    EXPECT_TRUE(says(message, "unknown option \"journal\"")) << message;
    EXPECT_TRUE(says(message, "busy_timeout")) << message;
}

TEST_F(SqliteTest, RefusesOptionValuesOutOfRange) {
    EXPECT_TRUE(says(refusal(file, "busy_timeout=-1"), "busy_timeout"));
    EXPECT_TRUE(says(refusal(file, "busy_timeout=1s"), "busy_timeout"));
    EXPECT_TRUE(says(refusal(file, "journal_mode=fast"), "journal_mode"));
    EXPECT_TRUE(says(refusal(file, "create"), "no value"));
    EXPECT_TRUE(says(refusal(file, "create=1;create=1"), "twice"));
}

TEST_F(SqliteTest, NeverShowsThePassword) {
    EXPECT_FALSE(says(refusal(folder.path("nowhere/staff.db")), "secret"));
}

TEST_F(SqliteTest, IsDurableByDefault) {
    make(file);

    EXPECT_EQ("wal", PlainSqlite(file).ask("PRAGMA journal_mode"));
}

TEST_F(SqliteTest, UsesTheJournalModeThatItIsTold) {
    StaffModel model;
    model.openWith("sqlite", file.c_str(), "journal_mode=delete; synchronous=extra");

    EXPECT_EQ("delete", PlainSqlite(file).ask("PRAGMA journal_mode"));
}

TEST_F(SqliteTest, ReadsButDoesNotWriteWithReadonly) {
    make(file);
    StaffModel model;
    model.openWith("sqlite", file.c_str(), "readonly=true");
    const Pointer<Person> ann(model.findPerson("Ann"));
    ASSERT_NE(nullptr, ann.getInstance());
    model.startTransaction();
    ann->age = 31;
    ann->change();

    const std::string message = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(says(message, "readonly")) << message;
    EXPECT_EQ(30, ann->age);
}

// What the sources of a test's own models cannot write.
class SqliteReadOnlyTest : public SqliteTest {
protected:
    SqliteReadOnlyTest() {
        if (!readOnly.isPossible())
            return;
        std::filesystem::create_directory(folder.path("place"));
        make(file);
    }

    void SetUp() override {
        if (!readOnly.isPossible())
            GTEST_SKIP() << "this root may make nothing read-only";
    }

    void make(const std::string& source, const char* openOptions = "journal_mode=delete") {
        StaffModel model;
        model.openWith("sqlite", source.c_str(), openOptions);
        model.startTransaction();
        model.newPerson("Ann", 30);
        model.commit();
    }

    void expectToRead(const std::string& source) {
        StaffModel model;
        model.openWith("sqlite", source.c_str(), "readonly=true");
        EXPECT_NE(nullptr, model.findPerson("Ann"));
    }

    ReadOnly readOnly;
    std::string file = folder.path("place/staff.db");
};

TEST_F(SqliteReadOnlyTest, RefusesAFileUnlessItIsOpenedForReading) {
    readOnly.make(file);
    ASSERT_TRUE(readOnly.isPossible());

    for (const char* openOptions : {"", "journal_mode=delete"}) {
        const std::string message = refusal(file, openOptions);
        EXPECT_TRUE(says(message, "staff.db\" cannot be written")) << message;
        EXPECT_TRUE(says(message, "readonly=true")) << message;
    }

    expectToRead(file);
}

TEST_F(SqliteReadOnlyTest, RefusesAFolderUnlessItsFilesAreOpenedForReading) {
    readOnly.make(folder.path("place"));
    ASSERT_TRUE(readOnly.isPossible());

    const std::string message = refusal(file);

    EXPECT_TRUE(says(message, "staff.db\" cannot be written")) << message;
    expectToRead(file);
}

TEST_F(SqliteReadOnlyTest, RefusesANewFileInAFolder) {
    readOnly.make(folder.path("place"));
    ASSERT_TRUE(readOnly.isPossible());

    const std::string message = refusal(folder.path("place/new.db"));

    EXPECT_TRUE(says(message, "cannot be made in the folder")) << message;
}

TEST_F(SqliteReadOnlyTest, RefusesAFolderThatTakesNoJournal) {
    readOnly.make(folder.path("place"), "staff.db");
    ASSERT_TRUE(readOnly.isPossible());

    for (const char* openOptions :
         {"", "journal_mode=delete", "journal_mode=truncate", "journal_mode=persist"}) {
        const std::string message = refusal(file, openOptions);
        EXPECT_TRUE(says(message, "journal")) << message;
        EXPECT_TRUE(says(message, "the folder has to be writable")) << message;
    }

    expectToRead(file);
}

TEST_F(SqliteReadOnlyTest, SaysThatAWriteAheadLogCannotBeMade) {
    make(folder.path("place/log.db"), "journal_mode=wal");
    readOnly.make(folder.path("place"));
    ASSERT_TRUE(readOnly.isPossible());

    const std::string message = refusal(folder.path("place/log.db"), "readonly=true");

    EXPECT_TRUE(says(message, "journal")) << message;
    EXPECT_TRUE(says(message, "the folder has to be writable")) << message;
}

TEST_F(SqliteReadOnlyTest, FindsAJournalsPlaceWhileSomebodyElseWrites) {
    PlainSqlite holder(file);
    holder.run("BEGIN IMMEDIATE");

    EXPECT_EQ("", refusal(file, "journal_mode=delete"));

    holder.run("ROLLBACK");
    EXPECT_EQ("0", holder.ask("PRAGMA user_version"));
}

TEST_F(SqliteTest, NamesTheFileAndTheDriver) {
    const std::string message = refusal(folder.path("nowhere/staff.db"));

    EXPECT_TRUE(says(message, "sqlite: opening"));
    EXPECT_TRUE(says(message, "nowhere/staff.db"));
}

TEST_F(SqliteTest, WaitsForALockNoLongerThanItIsTold) {
    make(file);
    StaffModel model;
    model.openWith("sqlite", file.c_str(), "busy_timeout=50");
    PlainSqlite holder(file);
    holder.run("BEGIN IMMEDIATE");
    model.startTransaction();
    const Pointer<Person> ann(model.findPerson("Ann"));
    ann->age = 31;
    ann->change();

    const std::string message = messageRaisedBy([&] { model.commit(); });
    EXPECT_TRUE(says(message, "busy_timeout")) << message;
    EXPECT_EQ(30, ann->age);

    holder.run("ROLLBACK");
    ann->age = 32;
    ann->change();
    model.commit();
    EXPECT_EQ("32", holder.ask("SELECT age FROM Person"));
}

TEST_F(SqliteTest, SurvivesAFullDatabase) {
    make(file);
    StaffModel model;
    model.openWith("sqlite", file.c_str(), "max_page_count=40");
    model.startTransaction();
    const std::string text(100000, 'x');
    for (int i = 0; i < 20; ++i)
        model.newPerson(text.c_str());

    const std::string message = messageRaisedBy([&] { model.commit(); });
    EXPECT_TRUE(says(message, "full")) << message;

    model.startTransaction();
    model.newPerson("Bob");
    model.commit();
    EXPECT_EQ("2", PlainSqlite(file).ask("SELECT count(*) FROM Person"));
}

TEST_F(SqliteTest, RefusesToReadTextWithANulByte) {
    make(file);
    PlainSqlite(file).run("UPDATE Person SET name = CAST(x'610062' AS TEXT)");
    StaffModel model;
    model.openWith("sqlite", file.c_str());
    Selection all(model.personClass);

    EXPECT_RAISES("SELERR", all.next());
}

}  // namespace Kes::testing
