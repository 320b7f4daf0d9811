#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "tests/drivers/FreeModel.h"
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

// To take rows aside costs what their number costs, so it is done for a reason.
TEST_F(SqliteTest, TakesRowsAsideOnlyWhenOthersHaveCommitted) {
    make(file);
    StaffModel model;
    model.openWith("sqlite", file.c_str());
    model.startTransaction();
    for (int i = 0; i < 100; ++i)
        model.newPerson("somebody");
    model.newCompany("Firm");
    model.commit();
    std::ostringstream trace;
    model.traceSQLTo(trace);
    SelectionOf<Person> people(model.personClass);
    ASSERT_TRUE(people.next());
    for (int i = 0; i < 10; ++i)
        EXPECT_NE(nullptr, model.findCompany("Firm"));

    // A query is traced when it ends.
    EXPECT_EQ(std::string::npos, trace.str().find("\"Person\"")) << trace.str();
    make(file);
    EXPECT_NE(nullptr, model.findCompany("Firm"));
    EXPECT_NE(std::string::npos, trace.str().find("\"Person\""));
    int count = 1;
    while (people.next())
        ++count;
    EXPECT_EQ(101, count);
    model.disableSQLTrace();
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

TEST_F(SqliteTest, RefusesToReadATimeThatIsABlob) {
    FreeModel model(1, [](FreeModel& m) {
        m.declareClass("Event",
                       [](Free& f, Handler* h) { h->handleTimestamp("moment", f.moment); });
    });
    model.open("sqlite", file.c_str(), "", "", "");
    model.make("Event");
    model.commit();
    model.garbageCollect();
    PlainSqlite(file).run("UPDATE Event SET moment = CAST(moment AS BLOB)");
    Selection all(model.getClass("Event"));

    const std::string message = messageRaisedBy([&] { all.next(); });

    EXPECT_TRUE(says(message, "moment")) << message;
}

// It would pass for a very old version, and the tables would be upgraded.
TEST_F(SqliteTest, RefusesAVersionThatIsNone) {
    make(file);
    PlainSqlite(file).run(
        "CREATE TABLE kept AS SELECT * FROM kes_versions; DROP TABLE kes_versions; "
        "CREATE TABLE kes_versions (kind, name, version)");
    for (const char* version : {"'newest'", "0.5", "4294967297", "NULL", "x'31'"})
        for (const char* kind : {"FORMAT", "MODEL", "CLASS"}) {
            PlainSqlite(file).run(std::string("DELETE FROM kes_versions; INSERT INTO kes_versions "
                                              "SELECT * FROM kept; UPDATE kes_versions SET "
                                              "version = ") +
                                  version + " WHERE kind = '" + kind + "'");

            const std::string message = refusal(file);

            EXPECT_TRUE(says(message, "kes_versions")) << kind << ' ' << version << message;
        }
}

TEST_F(SqliteTest, RefusesToWriteWithoutAJournal) {
    make(file);

    const std::string message = refusal(file, "journal_mode=off");

    EXPECT_TRUE(says(message, "journal_mode=off is for readonly=true")) << message;
    EXPECT_TRUE(says(refusal(":memory:", "journal_mode=off"), "journal_mode=off"));
    EXPECT_EQ("", refusal(file, "journal_mode=off; readonly=true"));
}

TEST_F(SqliteTest, RefusesAFileWithAnotherEncoding) {
    for (const char* encoding : {"UTF-16le", "UTF-16be"}) {
        const std::string other = folder.path(encoding);
        PlainSqlite plain(other);
        plain.run(std::string("PRAGMA encoding='") + encoding + "'; CREATE TABLE t (x TEXT)");

        const std::string message = refusal(other);

        EXPECT_TRUE(says(message, encoding)) << message;
    }
}

// What a relative name means.
class SqliteNameTest : public SqliteTest {
protected:
    SqliteNameTest() { std::filesystem::current_path(folder.path("")); }
    ~SqliteNameTest() override { std::filesystem::current_path(before); }

private:
    std::filesystem::path before = std::filesystem::current_path();
};

TEST_F(SqliteNameTest, TakesWhatLooksLikeAURIForAName) {
    for (const char* name :
         {"file:staff.db?mode=memory", "file:other.db?vfs=unix-none", ":staff:"}) {
        make(name);

        EXPECT_TRUE(std::filesystem::exists(name)) << name;
    }
    EXPECT_FALSE(std::filesystem::exists("other.db"));
}

TEST_F(SqliteNameTest, TakesAURIWhenItIsToldTo) {
    StaffModel model;
    model.openWith("sqlite", "file:staff.db?cache=private", "uri=true");
    StaffModel inMemory;
    inMemory.openWith("sqlite", "file:gone.db?mode=memory", "uri=true");

    EXPECT_TRUE(std::filesystem::exists("staff.db"));
    EXPECT_FALSE(std::filesystem::exists("gone.db"));
    EXPECT_TRUE(says(refusal("file:staff.db", "uri=true; mode=0600"), "mode"));
}

TEST_F(SqliteTest, MakesTheFileWithThePermissionsThatItIsTold) {
    using std::filesystem::perms;
    const perms own = perms::owner_read | perms::owner_write;
    StaffModel model;
    model.openWith("sqlite", file.c_str(), "mode=0600");
    StaffModel shared;
    shared.openWith("sqlite", folder.path("shared.db").c_str(), "mode=0666");

    EXPECT_EQ(own, std::filesystem::status(file).permissions());
    EXPECT_EQ(own, std::filesystem::status(file + "-wal").permissions());
    EXPECT_EQ(perms(0666), std::filesystem::status(folder.path("shared.db")).permissions());
}

TEST_F(SqliteTest, MakesNoFileWithOtherPermissionsBehindALink) {
    std::filesystem::create_symlink(folder.path("absent.db"), file);

    EXPECT_TRUE(says(refusal(file, "mode=0600"), "the permissions that mode asks for"));
    EXPECT_FALSE(std::filesystem::exists(folder.path("absent.db")));
}

TEST_F(SqliteTest, LeavesThePermissionsOfAFileThatExists) {
    make(file);
    std::filesystem::permissions(file, std::filesystem::perms(0640));
    StaffModel model;
    model.openWith("sqlite", file.c_str(), "mode=0600");

    EXPECT_EQ(std::filesystem::perms(0640), std::filesystem::status(file).permissions());
}

TEST_F(SqliteTest, RefusesPermissionsThatAreNone) {
    for (const char* options : {"mode=0400", "mode=1777", "mode=608", "mode=private"})
        EXPECT_TRUE(says(refusal(file, options), "mode=0600")) << options;
    EXPECT_FALSE(std::filesystem::exists(file));
}

namespace {

struct Harm {
    const char* name;
    const char* journal;
    const char* ending;  // of the file that is harmed
    void (*todo)(const std::string& file);
    const char* words;
};

void removeIt(const std::string& file) {
    std::filesystem::remove(file);
}

void moveIt(const std::string& file) {
    std::filesystem::rename(file, file + ".moved");
}

void replaceIt(const std::string& file) {
    std::filesystem::copy_file(file, file + ".copy");
    std::filesystem::rename(file + ".copy", file);
}

void emptyIt(const std::string& file) {
    std::filesystem::resize_file(file, 0);
}

void halveIt(const std::string& file) {
    std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
}

// With the log of another database, which is as good as its own.
void overwriteIt(const std::string& file) {
    const std::string other = file + ".other";
    PlainSqlite plain(other);
    plain.run("PRAGMA journal_mode=wal; CREATE TABLE t (x); INSERT INTO t VALUES (1)");
    std::ofstream(file, std::ios::binary)
        << std::ifstream(other + "-wal", std::ios::binary).rdbuf();
}

}  // namespace

class SqliteHarmTest : public SqliteTest, public ::testing::WithParamInterface<Harm> {
protected:
    // A log that another connection keeps open is not written back.
    void SetUp() override {
        StaffModel maker;
        maker.openWith("sqlite", file.c_str(), GetParam().journal);
        maker.startTransaction();
        maker.newPerson("Ann", 30);
        maker.commit();
        maker.close();
        model.openWith("sqlite", file.c_str(), GetParam().journal);
        model.startTransaction();
        model.newPerson("Bob", 40);
        model.commit();
    }

    StaffModel model;
};

TEST_P(SqliteHarmTest, AcknowledgesNoCommitThatIsLost) {
    const Pointer<Person> bob(model.findPerson("Bob"));
    model.startTransaction();
    bob->age = 41;
    bob->change();
    GetParam().todo(file + GetParam().ending);

    const std::string message = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(says(message, GetParam().words)) << message;
    EXPECT_NE(FailureKind::UnknownOutcome, model.getFailureKind());
    EXPECT_EQ(40, bob->age);
    EXPECT_FALSE(model.transactionStarted());
}

// SQLite has looked at the size of the file by then.
TEST_P(SqliteHarmTest, AcknowledgesNoCommitBehindALockThatIsLost) {
    const Pointer<Person> bob(model.findPerson("Bob"));
    model.startTransaction();
    bob->lock();
    bob->age = 41;
    bob->change();
    GetParam().todo(file + GetParam().ending);

    EXPECT_RAISES("COMFAIL", model.commit());

    EXPECT_NE(FailureKind::UnknownOutcome, model.getFailureKind());
    EXPECT_EQ(40, bob->age);
    EXPECT_FALSE(model.transactionStarted());
}

constexpr const char* WithLog = "journal_mode=wal";
constexpr const char* WithoutLog = "journal_mode=delete";

INSTANTIATE_TEST_SUITE_P(
    , SqliteHarmTest,
    ::testing::Values(
        Harm{"Removed", WithLog, "", removeIt, "deleted, moved or replaced"},
        Harm{"Moved", WithLog, "", moveIt, "deleted, moved or replaced"},
        Harm{"Replaced", WithLog, "", replaceIt, "deleted, moved or replaced"},
        Harm{"Emptied", WithLog, "", emptyIt, "truncated from"},
        Harm{"Halved", WithLog, "", halveIt, "truncated from"},
        Harm{"LogRemoved", WithLog, "-wal", removeIt,
             "-wal\", a part of the database, was deleted"},
        Harm{"LogReplaced", WithLog, "-wal", replaceIt, "-wal\", a part of the database, was"},
        Harm{"LogEmptied", WithLog, "-wal", emptyIt, "was truncated or overwritten"},
        Harm{"LogHalved", WithLog, "-wal", halveIt, "was truncated or overwritten"},
        Harm{"LogOverwritten", WithLog, "-wal", overwriteIt, "was truncated or overwritten"},
        Harm{"IndexReplaced", WithLog, "-shm", replaceIt, "-shm\", a part of the database, was"},
        Harm{"IndexRemoved", WithLog, "-shm", removeIt, "-shm\", a part of the database, was"},
        Harm{"RemovedWithoutLog", WithoutLog, "", removeIt, "deleted, moved or replaced"},
        Harm{"ReplacedWithoutLog", WithoutLog, "", replaceIt, "deleted, moved or replaced"},
        Harm{"EmptiedWithoutLog", WithoutLog, "", emptyIt, "no such table"},
        Harm{"HalvedWithoutLog", WithoutLog, "", halveIt, "malformed"}),
    [](const auto& harm) { return harm.param.name; });

TEST_F(SqliteTest, GivesNoObjectIdsOutOfAFileThatIsGone) {
    make(file);
    StaffModel model;
    model.openWith("sqlite", file.c_str());
    std::filesystem::remove(file);
    model.startTransaction();

    EXPECT_RAISES("OIDERR", model.newPerson("Bob", 40));
}

// The last numbers are passed over, and none is given out again.
TEST_F(SqliteTest, GivesNoObjectIdsOutBeyondTheLastOne) {
    make(file);
    PlainSqlite plain(file);
    plain.run("UPDATE kes_ids SET next = 9223372036854775700");
    StaffModel model;
    model.openWith("sqlite", file.c_str());
    model.startTransaction();
    std::string message;
    for (int made = 0; made < 200 && message.empty(); ++made)
        message = messageRaisedBy([&] { model.newPerson("Bob", 40); });
    EXPECT_TRUE(says(message, "all object ids up to 9223372036854775807")) << message;
    EXPECT_RAISES("OIDERR", model.newPerson("Bob", 40));
    model.commit();

    StaffModel next;
    next.openWith("sqlite", file.c_str());
    next.startTransaction();
    EXPECT_RAISES("OIDERR", next.newPerson("Eve", 50));
    EXPECT_EQ("64", plain.ask("SELECT count(*) FROM Person WHERE KesObjectID > 9223372036854775"));
    plain.run("UPDATE kes_ids SET next = 9.3e18");
    message = messageRaisedBy([&] { next.newPerson("Eve", 50); });
    EXPECT_TRUE(says(message, "mend it")) << message;
}

TEST_F(SqliteTest, TakesMoreClassesBelowOneThanAUnionHasRoomFor) {
    constexpr int Classes = 1020;
    FreeModel model(1, [](FreeModel& m) {
        Class* base = m.declareClass("Base", textField);
        base->setAbstract(true);
        for (int i = 0; i < Classes; ++i)
            m.declareClass(("Sub" + std::to_string(i)).c_str(), textField)->subclassOf(base);
    });
    model.open("sqlite", file.c_str(), "", "", "");
    model.startTransaction();
    for (int i = 0; i < Classes; i += 3)
        model.make(("Sub" + std::to_string(i)).c_str())->text = "found";
    model.commit();

    EXPECT_EQ("340", PlainSqlite(file).ask("SELECT count(*) FROM Base_all WHERE text = 'found'"));
    EXPECT_EQ(340U, Selection(model.getClass("Base")).count());
    EXPECT_EQ("Sub519", PlainSqlite(file).ask("SELECT max(KesClass) FROM Base_all WHERE "
                                              "KesClass LIKE 'Sub51%'"));
}

TEST_F(SqliteTest, ReadsAFileWithoutRecordsThatItCannotWrite) {
    make(file);
    PlainSqlite plain(file);
    plain.run("DELETE FROM kes_versions WHERE kind IN ('OWNER', 'FIELD', 'LINK')");

    EXPECT_EQ("", refusal(file, "readonly=true"));
    EXPECT_EQ("0", plain.ask("SELECT count(*) FROM kes_versions WHERE kind = 'FIELD'"));
    plain.run("BEGIN IMMEDIATE");
    EXPECT_EQ("", refusal(file, "busy_timeout=20"));
}

// Other programs may make the file smaller, in each journal mode.
TEST_F(SqliteTest, GoesOnWithAFileThatAnotherProgramHasVacuumed) {
    for (const char* journal : {WithLog, WithoutLog}) {
        const std::string place = folder.path(journal);
        StaffModel model;
        model.openWith("sqlite", place.c_str(), journal);
        model.startTransaction();
        const Pointer<Person> ann(model.newPerson("Ann", 30));
        const Pointer<Person> large(model.newPerson(std::string(400000, 'x').c_str(), 1));
        model.commit();
        model.startTransaction();
        large->remove();
        model.commit();
        PlainSqlite other(place);
        other.run("PRAGMA wal_checkpoint(TRUNCATE); VACUUM; PRAGMA wal_checkpoint(TRUNCATE)");
        ASSERT_GT(100000U, std::filesystem::file_size(place));

        for (int age = 31; age < 34; ++age) {
            model.startTransaction();
            ann->age = age;
            ann->change();
            model.commit();
        }

        EXPECT_EQ("33", other.ask("SELECT age FROM Person"));
    }
}

}  // namespace Kes::testing
