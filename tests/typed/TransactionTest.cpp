#include <stdexcept>

#include "tests/typed/Tracker.h"

namespace Kes::testing {

class TypedTransactionTest : public TypedTest {
protected:
    Ref<Ticket> make(Database& in, const std::string& title) {
        return in.transact(
            [&](Transaction& tx) { return tx.make<Ticket>([&](Ticket& t) { t.title = title; }); });
    }

    std::unique_ptr<Database> db = open(trackerSchema());
};

TEST_F(TypedTransactionTest, ReturnsWhatTheWorkReturns) {
    EXPECT_EQ(7, db->transact([](Transaction&) { return 7; }));
}

TEST_F(TypedTransactionTest, IsRepeatedAfterAConflict) {
    const auto other = open(trackerSchema());
    const Ref<Ticket> mine = make(*db, "1");
    const Ref<Ticket> theirs = other->find<Ticket>(mine.getObjectID());

    int attempts = 0;
    db->transact([&](Transaction& tx) {
        Ticket& draft = tx.edit(mine);
        if (++attempts == 1)
            other->transact([&](Transaction& second) { second.edit(theirs).title += "2"; });
        draft.title += "3";
    });

    EXPECT_EQ(2, attempts);
    EXPECT_EQ("123", mine->title);
    EXPECT_EQ("123", open(trackerSchema())->find<Ticket>(mine.getObjectID())->title);
}

TEST_F(TypedTransactionTest, GivesUpAfterSoManyAttemptsAndNamesTheObject) {
    DatabaseOptions few;
    few.attempts = 3;
    const auto impatient = open(trackerSchema(), few);
    const unsigned long id = make(*db, "").getObjectID();
    const Ref<Ticket> theirs = db->find<Ticket>(id);
    const Ref<Ticket> mine = impatient->find<Ticket>(id);

    int attempts = 0;
    const Error error = errorOf([&] {
        impatient->transact([&](Transaction& tx) {
            Ticket& draft = tx.edit(mine);
            db->transact([&](Transaction& second) { second.edit(theirs).title += "x"; });
            draft.title = std::to_string(++attempts);
        });
    });

    EXPECT_EQ(3, attempts);
    EXPECT_EQ(ErrorKind::Conflict, error.getKind()) << error.what();
    EXPECT_TRUE(error.isRetryable());
    EXPECT_EQ("Ticket", error.getClassName());
    EXPECT_EQ(id, error.getObjectID());
    EXPECT_EQ("xxx", mine->title);
}

TEST_F(TypedTransactionTest, MeetsAnObjectThatOthersHaveRemoved) {
    const auto other = open(trackerSchema());
    const Ref<Ticket> mine = make(*db, "1");
    const Ref<Ticket> theirs = other->find<Ticket>(mine.getObjectID());
    other->transact([&](Transaction& tx) { tx.remove(theirs); });

    const Error error =
        errorOf([&] { db->transact([&](Transaction& tx) { tx.edit(mine).title = "2"; }); });

    EXPECT_EQ(ErrorKind::Removed, error.getKind()) << error.what();
    EXPECT_EQ("Ticket", error.getClassName());
}

TEST_F(TypedTransactionTest, TellsAnErrorToItsCallerAlone) {
    static int heard = 0;
    heard = 0;
    Exception::setExceptionHandler([](Exception&) { ++heard; });
    const Error error = errorOf([&] {
        db->transact([&](Transaction& tx) {
            for (int i = 0; i < 2; ++i)
                tx.make<Project>([](Project& p) { p.name = "twice"; });
        });
    });
    Exception::setExceptionHandler([](Exception& raised) { throw Exception(raised); });

    EXPECT_EQ(0, heard);
    EXPECT_STREQ("COMFAIL", error.getCode());
    EXPECT_FALSE(error.isRetryable());
    EXPECT_FALSE(db->query<Project>().first());
    const std::exception& standard = error;
    EXPECT_STREQ(error.getMessage(), standard.what());
}

TEST_F(TypedTransactionTest, IsWholeAgainBehindAnExceptionOfTheApplication) {
    EXPECT_THROW(db->transact([](Transaction&) -> int { throw std::runtime_error("stop"); }),
                 std::runtime_error);

    EXPECT_TRUE(make(*db, "next"));
}

TEST_F(TypedTransactionTest, RollsBackWhenItIsLeft) {
    const Ref<Ticket> ticket = make(*db, "before");
    {
        Transaction tx(*db);
        tx.edit(ticket).title = "after";
    }

    EXPECT_EQ("before", ticket->title);
}

TEST_F(TypedTransactionTest, RefusesWhatComesBehindItsEnd) {
    const Ref<Ticket> ticket = make(*db, "before");
    Transaction tx(*db);
    Ticket& draft = tx.edit(ticket);
    tx.commit();

    EXPECT_TRUE(tx.isOver());
    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { tx.edit(ticket); }).getKind());
    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { tx.make<Ticket>(); }).getKind());
    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { tx.remove(ticket); }).getKind());
    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { tx.commit(); }).getKind());
    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { tx.rollback(); }).getKind());
    const Error error = errorOf([&] { draft.project = nullptr; });
    EXPECT_EQ(ErrorKind::Misuse, error.getKind());
    EXPECT_SAYS(error, "No transaction is open");
}

TEST_F(TypedTransactionTest, IsTheOnlyOneOfItsDatabase) {
    Transaction tx(*db);

    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { Transaction second(*db); }).getKind());
    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { db->transact([](Transaction&) {}); }).getKind());
    EXPECT_TRUE(tx.make<Ticket>());
}

TEST_F(TypedTransactionTest, RefusesObjectsOfAnotherDatabase) {
    const auto other = open(trackerSchema());
    const Ref<Ticket> theirs = make(*other, "theirs");
    const Ref<Project> project = db->transact([](Transaction& tx) { return tx.make<Project>(); });

    Transaction tx(*db);
    const Error edited = errorOf([&] { tx.edit(theirs); });
    EXPECT_EQ(ErrorKind::Misuse, edited.getKind());
    EXPECT_SAYS(edited, "another database");
    EXPECT_EQ("Ticket", edited.getClassName());
    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { tx.remove(theirs); }).getKind());
    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { tx.edit(project).tickets.add(theirs); }).getKind());
    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { tx.edit(Ref<Ticket>()); }).getKind());
}

TEST_F(TypedTransactionTest, OutlivesItsDatabaseWithoutHarm) {
    Transaction tx(*db);
    tx.make<Ticket>();
    db.reset();

    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { tx.make<Ticket>(); }).getKind());
}

TEST_F(TypedTransactionTest, ForgetsWhatWasMadeWhenItRollsBack) {
    Ref<Ticket> made;
    {
        Transaction tx(*db);
        made = tx.make<Ticket>();
    }
    Transaction tx(*db);

    EXPECT_EQ(0U, made.getObjectID());
    EXPECT_EQ(ErrorKind::Removed, errorOf([&] { tx.edit(made); }).getKind());
}

}  // namespace Kes::testing
