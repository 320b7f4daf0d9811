// Folding the writes of a transaction, without a database.

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <vector>

#include "drivers/common/Dialect.h"
#include "drivers/common/WriteQueue.h"
#include "tests/support/StaffModel.h"

namespace Kes::sql {

namespace {

using testing::Company;
using testing::Person;

class PlainDialect final : public Dialect {
public:
    std::string name() const override { return "plain"; }
};

// Nothing may be prepared: folding is memory's business.
class NoConnection final : public Connection {
public:
    std::unique_ptr<Statement> prepare(const std::string& text) override {
        throw std::logic_error("prepared: " + text);
    }
    void execute(const std::string& text) override { throw std::logic_error("executed: " + text); }
    void begin() override {}
    void commit() override {}
    void rollback() override {}
    bool inTransaction() override { return true; }
    void traceTo(std::ostream*) override {}
};

class DeclaredStaff final : public testing::StaffModel {
public:
    DeclaredStaff() { declareModel(); }
};

class WriteQueueTest : public ::testing::Test {
protected:
    // Stored with version 1, as if it was loaded.
    Person* person(unsigned long id) { return keep<Person>(model.personClass, id); }
    Company* company(unsigned long id) { return keep<Company>(model.companyClass, id); }

    // What the library does before it tells of an action.
    static Instance* raised(Instance* instance) {
        instance->nextVersion();
        instance->setInTransaction(true);
        return instance;
    }

    void employ(bool made, Instance* who, Instance* by, bool raisedBefore) {
        queue.link(made, who, employer, by, staff, works(), raisedBefore);
    }
    void marry(bool made, Instance* one, Instance* other) {
        one->nextVersion();
        queue.link(made, one, "spouse", other, "marriedTo", model.getAssociation("Marriage"),
                   false);
    }

    // Memory shows the employer of the end.
    void insertWith(Person* who, Company* by, bool asInMemory) {
        who->employer.setInstance(by);
        who->employer.setFetched(true);
        who->setInTransaction(true);
        queue.noteInserted(who, asInMemory);
    }

    Association* works() { return model.getAssociation("Works"); }

    std::vector<std::size_t> rows(bool (*isWanted)(WriteQueue::Kind)) {
        return queue.all(isWanted);
    }
    int column(Instance* of, const char* name) { return tables.of(of->getClass()).find(name); }

    const String employer{"employer"};
    const String staff{"staff"};
    DeclaredStaff model;
    PlainDialect dialect;
    NoConnection connection;
    StatementCache statements{connection};
    ModelMapping tables{dialect, statements};
    WriteQueue queue{tables, 4};

private:
    template <class T>
    T* keep(Class* cls, unsigned long id) {
        kept.emplace_back(cls->getDummy());
        kept.back()->setObjectID(id);
        kept.back()->nextVersion();
        return static_cast<T*>(kept.back().get());
    }

    std::vector<std::unique_ptr<Instance>> kept;
};

}  // namespace

TEST_F(WriteQueueTest, FoldsALinkIntoTheChangeOfItsRow) {
    Person* anna = person(1);
    queue.update(raised(anna));

    employ(true, anna, company(2), true);

    ASSERT_EQ(1U, queue.size());
    EXPECT_EQ(WriteQueue::Kind::Update, queue[0].kind);
    ASSERT_EQ(1U, queue[0].links.size());
    EXPECT_EQ(column(anna, "employer"), queue[0].links[0].column);
    EXPECT_EQ(2U, queue[0].links[0].partner);
}

TEST_F(WriteQueueTest, RaisesTheVersionOnceForALinkFromTheManySideAndAChange) {
    Person* anna = person(1);

    queue.link(true, company(2), staff, anna, employer, works(), false);
    EXPECT_EQ(2U, anna->getVersion());
    queue.update(raised(anna));

    EXPECT_EQ(2U, anna->getVersion());
    ASSERT_EQ(1U, queue.size());
    EXPECT_EQ(1U, queue[0].expected);
}

TEST_F(WriteQueueTest, RaisesTheVersionOfARowThatOnlyLosesAPartner) {
    Person* anna = person(1);

    queue.link(false, company(2), staff, anna, employer, works(), false);

    EXPECT_EQ(2U, anna->getVersion());
    ASSERT_EQ(1U, queue.size());
    EXPECT_EQ(1U, queue[0].expected);
}

TEST_F(WriteQueueTest, TakesADissolvedLinkOutOnlyWhereItStands) {
    Person* anna = person(1);
    Company* old = company(2);
    anna->nextVersion();
    employ(true, anna, company(3), false);

    employ(false, anna, old, false);

    ASSERT_EQ(1U, queue[0].links.size());
    EXPECT_EQ(3U, queue[0].links[0].partner);
    EXPECT_FALSE(queue[0].links[0].isDissolved);
}

TEST_F(WriteQueueTest, RemembersEachOfSeveralPartnersThatAReferenceLoses) {
    Person* anna = person(1);
    anna->nextVersion();

    employ(false, anna, company(2), false);
    employ(false, anna, company(3), true);

    ASSERT_EQ(1U, queue[0].links.size());
    EXPECT_EQ(2U, queue[0].links[0].partner);
    ASSERT_EQ(1U, queue.getDissolved().size());
    EXPECT_EQ(3, queue.getDissolved()[0].partner);
}

TEST_F(WriteQueueTest, WritesNothingOfARowThatIsRemovedBeforeItIsInserted) {
    Person* anna = person(1);
    queue.insert(anna);

    queue.remove(anna);

    EXPECT_TRUE(rows(WriteQueue::isInsertion).empty());
    EXPECT_TRUE(rows(WriteQueue::isRemoval).empty());
}

TEST_F(WriteQueueTest, RemovesARowWithTheVersionThatItHadBeforeItsChange) {
    Person* anna = person(1);
    queue.update(raised(anna));
    anna->nextVersion();

    queue.remove(anna);

    EXPECT_TRUE(rows(WriteQueue::isUpdate).empty());
    const std::vector<std::size_t> removals = rows(WriteQueue::isRemoval);
    ASSERT_EQ(1U, removals.size());
    EXPECT_EQ(1U, queue[removals[0]].expected);
}

TEST_F(WriteQueueTest, TakesAOneToOnePartnerFromWhoHadItBeforeInTheQueue) {
    Person* anna = person(1);
    Person* bert = person(2);
    Person* carl = person(3);
    marry(true, anna, bert);

    marry(true, carl, bert);

    const WriteQueue::Operation& annas = queue[queue.positionOf(anna)];
    ASSERT_EQ(1U, annas.links.size());
    EXPECT_EQ(0U, annas.links[0].partner);
    EXPECT_EQ(3U, queue[queue.positionOf(bert)].links[0].partner);
}

TEST_F(WriteQueueTest, WritesNoLinkThatARowWasInsertedWith) {
    Person* anna = person(1);
    Company* shop = company(2);
    insertWith(anna, shop, true);

    employ(true, anna, shop, true);

    EXPECT_TRUE(queue.isEmpty());
}

TEST_F(WriteQueueTest, WritesALinkBehindAnotherOneOfARowThatWasInserted) {
    Person* anna = person(1);
    Company* shop = company(2);
    insertWith(anna, shop, true);
    employ(true, anna, company(3), true);
    queue.finish(true);

    employ(true, anna, shop, true);

    ASSERT_EQ(1U, queue.size());
    EXPECT_EQ(2U, queue[0].links[0].partner);
}

TEST_F(WriteQueueTest, WritesALinkOfARowThatWasInsertedWithAnotherOne) {
    Person* anna = person(1);
    Company* shop = company(2);
    insertWith(anna, shop, false);

    employ(true, anna, shop, true);

    ASSERT_EQ(1U, queue.size());
    EXPECT_EQ(2U, queue[0].links[0].partner);
}

TEST_F(WriteQueueTest, EmptiesNoReferenceOfARowThatGoesLater) {
    Person* anna = person(1);
    EXPECT_FALSE(queue.isForgotten(anna, column(anna, "employer")));

    raised(anna)->setRemoved(true);

    EXPECT_TRUE(queue.isForgotten(anna, column(anna, "employer")));
}

TEST_F(WriteQueueTest, IsFullAtItsLength) {
    for (unsigned long id = 1; id <= 4; ++id) {
        EXPECT_FALSE(queue.isFull());
        queue.insert(person(id));
    }

    EXPECT_TRUE(queue.isFull());
    queue.finish(true);
    EXPECT_TRUE(queue.isEmpty());
    EXPECT_FALSE(queue.isFull());
}

}  // namespace Kes::sql
