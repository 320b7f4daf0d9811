// What applications throw, of whatever type, passes through the model, and finds
// it as before the transaction.

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/QuietDriver.h"

namespace Kes::testing {

namespace {

struct Own {};

/// Objects whose handle operation throws at its n-th call.
class Row : public Instance {
public:
    explicit Row(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        if (fuse > 0 && --fuse == 0) {
            fuse = goesOn ? 1 : 0;
            burn();
        }
        Instance::handle(h);
        h->handleString("text", text, 100);
        h->handleInt("n", n);
        h->handleOneAssociated("Chain", "next", &next, Association::Unlink);
        h->handleManyAssociated("Chain", "previous", &previous);
        h->handleManyAssociated("Web", "to", &to);
        h->handleManyAssociated("Web", "from", &from);
    }

    String text;
    int n = 0;
    One<Row> next{this};
    Many<Row> previous{this};
    Many<Row> to{this};
    Many<Row> from{this};

    static inline long fuse = 0;
    static inline bool goesOn = false;
    static inline std::function<void()> burn;
};

Instance* makeRow(Class* c) {
    return new Row(c);
}

class RowModel : public Model {
public:
    RowModel() : Model("rows", 100000) {}

    Row* newRow(const char* text) {
        auto* row = static_cast<Row*>(rows->newInstance());
        row->text = text;
        return row;
    }

    Class* rows = nullptr;

protected:
    void declareModel() override {
        setVersion(1);
        rows = addClass("Row", 1, makeRow);
    }
};

std::string textOf(const Row* row) {
    return row != nullptr ? std::string(static_cast<const char*>(row->text)) : "-";
}

std::string textOf(Many<Row>& many) {
    std::string all;
    for (Row* each : many)
        all += textOf(each);
    return all;
}

std::string stateOf(Row* row) {
    return textOf(row) + " " + std::to_string(row->n) + " v" + std::to_string(row->getVersion()) +
           " >" + textOf(row->next.get()) + " <" + textOf(row->previous) + " to " +
           textOf(row->to) + " from " + textOf(row->from) +
           (row->isRemoved() ? " removed; " : "; ");
}

int myTold = 0;

// How a handler ends: by the type that it throws.
enum class Throws { Exception, Standard, Own };
Throws myThrows = Throws::Exception;

void handler(Exception& error) {
    ++myTold;
    switch (myThrows) {
    case Throws::Exception: throw Exception(error);
    case Throws::Standard: throw std::runtime_error("by the handler");
    case Throws::Own: throw Own();
    }
}

void ordinaryHandler(Exception& error) {
    throw Exception(error);
}

class OwnExceptionTest : public ::testing::Test {
protected:
    OwnExceptionTest() {
        myTold = 0;
        myThrows = Throws::Exception;
        Exception::setExceptionHandler(handler);
        model.open("sqlite", folder.path("rows").c_str(), "", "", "");
        a = model.newRow("a");
        b = model.newRow("b");
        c = model.newRow("c");
        b->next = c;
        a->to.add(c);
        model.commit();
        settled = stateInMemory();
    }
    ~OwnExceptionTest() override {
        Row::fuse = 0;
        Row::goesOn = false;
        Exception::setExceptionHandler(ordinaryHandler);
    }

    void changeEverything() {
        model.startTransaction();
        a->n = 10;
        a->change();  // after the assignment: what is stored is read
        b->change();
        b->n = 20;
        Row* d = model.newRow("d");
        d->next = a;
        a->next = b;
        b->to.add(a);
        c->remove();
    }

    std::string stateInMemory() { return stateOf(a) + stateOf(b) + stateOf(c); }

    // As another session finds it.
    std::string stored() {
        RowModel other;
        other.open("sqlite", folder.path("rows").c_str(), "", "", "");
        SelectionOf<Row> all(other.rows);
        std::string found;
        for (all.orderBy(all["text"]); Row* each = all.nextValue();)
            found += stateOf(each);
        return found;
    }

    void expectAsBefore(const std::string& where) {
        EXPECT_FALSE(model.transactionStarted()) << where;
        for (const Pointer<Row>& each : {a, b, c})
            EXPECT_FALSE(model.isPending(each) || each->inTransaction()) << where;
        EXPECT_EQ(settled, stateInMemory()) << where;
        EXPECT_EQ(settled, stored()) << where;
    }

    // Lets each call of handle throw in turn, within what `work` does; `caught`
    // tells whether what came out is what it should be.
    void tryEachCall(const std::function<void()>& work,
                     const std::function<bool(std::exception_ptr)>& isRight) {
        long at = 1;
        for (; at < 1000; ++at) {
            const std::string where = "call " + std::to_string(at);
            myTold = 0;
            std::exception_ptr caught;
            Row::fuse = at;
            try {
                work();
            } catch (...) {
                caught = std::current_exception();
            }
            const bool hasBurnt = Row::fuse == 0 || Row::goesOn;
            const bool isOver = Row::fuse > 0 && !(Row::goesOn && caught != nullptr);
            Row::fuse = 0;
            if (isOver)
                break;
            ASSERT_TRUE(hasBurnt && caught != nullptr) << where;
            EXPECT_TRUE(isRight(caught)) << where;
            if (model.transactionStarted())
                model.rollback();
            if (Row::goesOn)
                for (const Pointer<Row>& each : {a, b, c})
                    each->refresh();
            expectAsBefore(where);
            if (HasFailure())
                return;
        }
        EXPECT_GT(at, 10);
        EXPECT_LT(at, 1000);
    }

    static bool isOwn(const std::exception_ptr& caught) {
        try {
            std::rethrow_exception(caught);
        } catch (const Own&) {
            return true;
        } catch (...) {
            return false;
        }
    }

    static std::string wordsOf(const std::exception_ptr& caught) {
        try {
            std::rethrow_exception(caught);
        } catch (const Exception& error) {
            return std::string(error.getCode()) + ": " + error.getMessage();
        } catch (const std::exception& error) {
            return error.what();
        } catch (...) {
            return "";
        }
    }

    // Ends each round, so that the first one that no fuse stops is undone too.
    void changeAndCommit() {
        changeEverything();
        model.commit();
    }

    const TemporaryFolder folder;
    RowModel model;
    Pointer<Row> a, b, c;
    std::string settled;
};

void raise() {
    Exception(Exception::ERROR, "MINE", "Row::handle", "the row cannot be read").handle();
}

}  // namespace

TEST_F(OwnExceptionTest, OfATypeOfItsOwnPassesThroughACommit) {
    Row::burn = [] { throw Own(); };

    tryEachCall([&] { changeAndCommit(); }, isOwn);
}

TEST_F(OwnExceptionTest, ThatComesAgainAndAgainPassesThroughACommit) {
    Row::burn = [] { throw Own(); };
    Row::goesOn = true;

    tryEachCall([&] { changeAndCommit(); }, isOwn);
}

TEST_F(OwnExceptionTest, OfAStandardTypeComesOutOnce) {
    Row::burn = [] { throw std::runtime_error("cannot be read"); };

    tryEachCall([&] { changeAndCommit(); },
                [](const std::exception_ptr& caught) {
                    return wordsOf(caught).find("cannot be read") != std::string::npos &&
                           myTold <= 1;
                });
}

TEST_F(OwnExceptionTest, ThatWasRaisedIsToldOnce) {
    Row::burn = raise;

    tryEachCall([&] { changeAndCommit(); },
                [](const std::exception_ptr& caught) {
                    return wordsOf(caught) == "MINE: the row cannot be read" && myTold == 1;
                });
}

TEST_F(OwnExceptionTest, OfAHandlerComesOutAsItIsAndOnce) {
    Row::burn = raise;
    myThrows = Throws::Own;
    tryEachCall([&] { changeAndCommit(); },
                [](const std::exception_ptr& caught) { return isOwn(caught) && myTold == 1; });
}

TEST_F(OwnExceptionTest, OfAHandlerOfAStandardTypeComesOutAsItIsAndOnce) {
    Row::burn = raise;
    myThrows = Throws::Standard;

    tryEachCall([&] { changeAndCommit(); },
                [](const std::exception_ptr& caught) {
                    return wordsOf(caught) == "by the handler" && myTold == 1;
                });
}

TEST_F(OwnExceptionTest, BehindARefusedChangeIsNotToldByTheRollback) {
    for (const Throws each : {Throws::Exception, Throws::Standard, Throws::Own}) {
        myThrows = each;
        myTold = 0;
        model.startTransaction();
        a->n = 10;
        Row::burn = raise;
        Row::goesOn = true;
        Row::fuse = 1;
        EXPECT_ANY_THROW(a->change());
        EXPECT_EQ(1, myTold);

        model.rollback();

        Row::fuse = 0;
        EXPECT_EQ(1, myTold);
        a->refresh();
        expectAsBefore("type " + std::to_string(static_cast<int>(each)));
    }
}

TEST_F(OwnExceptionTest, OfARefreshIsToldOnce) {
    for (const Throws each : {Throws::Exception, Throws::Standard, Throws::Own}) {
        RowModel other;
        other.open("sqlite", folder.path("rows").c_str(), "", "", "");
        Row* theirs = static_cast<Row*>(other.getInstance(a->getObjectID(), other.rows));
        theirs->n += 1;
        theirs->change();
        other.commit();
        myThrows = each;
        myTold = 0;
        Row::burn = raise;
        Row::fuse = 1;

        EXPECT_ANY_THROW(a->refresh());

        Row::fuse = 0;
        EXPECT_EQ(1, myTold);
    }
}

namespace {

// As a driver that asks an object which throws.
class ThrowingDriver final : public QuietDriver {
public:
    bool lock(Instance*) override { throw Own(); }
};

}  // namespace

TEST(OwnExceptionOfALockTest, EndsTheTransaction) {
    DrivenModel<RowModel> model;
    model.openWithDriver(new ThrowingDriver);
    const Pointer<Row> row(model.newRow("a"));
    model.commit();
    model.startTransaction();
    row->n = 1;
    row->change();

    EXPECT_THROW(row->lock(), Own);

    EXPECT_FALSE(model.transactionStarted());
    EXPECT_FALSE(model.isPending(row));
}

}  // namespace Kes::testing
