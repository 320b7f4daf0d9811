#include <gtest/gtest.h>

#include <kes/Kes.h>

#include "drivers/common/TableMapping.h"

namespace Kes::testing {

namespace {

// Counts those that are prepared at the moment.
class CountedStatement final : public sql::Statement {
public:
    explicit CountedStatement(int& all) : count(all) { ++count; }
    CountedStatement(const CountedStatement&) = delete;
    CountedStatement& operator=(const CountedStatement&) = delete;
    ~CountedStatement() override { --count; }

    Kind kind(int) override { return Null; }
    std::int64_t integer(int) override { return 0; }
    double real(int) override { return 0; }
    const char* text(int, std::size_t& size) override {
        size = 0;
        return "";
    }
    const void* bytes(int, std::size_t& size) override {
        size = 0;
        return nullptr;
    }
    void bindNull(int) override {}
    void bind(int, std::int64_t) override {}
    void bind(int, double) override {}
    void bindText(int, const char*, std::size_t) override {}
    void bindBytes(int, const void*, std::size_t) override {}
    bool step() override { return false; }
    void reset() noexcept override {}
    long run() override { return 0; }

private:
    int& count;
};

class CountingConnection final : public sql::Connection {
public:
    std::unique_ptr<sql::Statement> prepare(const std::string&) override {
        if (isFull)
            throw std::bad_alloc();
        return std::make_unique<CountedStatement>(prepared);
    }
    void execute(const std::string&) override {}
    void awaitPosts() override { preparedAtWait = prepared; }
    void begin() override {}
    void commit() override {}
    void rollback() override {}
    bool inTransaction() override { return false; }
    void traceTo(std::ostream*) override {}

    int prepared = 0;
    int preparedAtWait = 0;
    bool isFull = false;
};

class PlainDialect final : public sql::Dialect {
public:
    std::string name() const override { return "plain"; }
};

class Wide final : public Instance {
public:
    explicit Wide(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        for (int i = 0; i < 16; ++i)
            h->handleInt(String("field") + String(i), fields[i]);
    }

    int fields[16]{};
};

class StatementTest : public ::testing::Test {
protected:
    static constexpr int Many = 2000;

    Class cls{"Wide", 1, nullptr, [](Class* c) -> Instance* { return new Wide(c); }};
    CountingConnection connection;
    PlainDialect dialect;
    sql::StatementCache statements{connection};
    sql::TableMapping table{&cls, dialect, statements};
};

}  // namespace

// A program that changes any of its fields at a time has thousands of sets of them.
TEST_F(StatementTest, KeepsNoMoreUpdatesThanAFewHundred) {
    for (std::uint64_t set = 4; set < Many; ++set)
        table.update({set << 2});

    EXPECT_LE(connection.prepared, 500);
    EXPECT_GT(connection.prepared, 0);
}

TEST_F(StatementTest, SettlesWhatUpdatesHavePostedBeforeTheyGo) {
    for (std::uint64_t set = 4; set < Many; ++set)
        table.update({set << 2});

    EXPECT_EQ(500, connection.preparedAtWait);
}

TEST_F(StatementTest, PreparesAnUpdateAgainThatCouldNotBePrepared) {
    connection.isFull = true;
    EXPECT_THROW(table.update({4}), std::bad_alloc);
    connection.isFull = false;

    table.update({4});

    EXPECT_EQ(1, connection.prepared);
}

TEST_F(StatementTest, ForgetsQueriesWhenThereAreManyOthers) {
    sql::SharedPool pool = table.pool(" WHERE t.field1 = 0");
    pool->push_back(table.take(*pool, " WHERE t.field1 = 0", false));
    const std::weak_ptr<sql::StatementPool> kept = pool;
    pool.reset();
    ASSERT_FALSE(kept.expired());

    for (int i = 1; i < Many; ++i)
        table.pool(" WHERE t.field1 = " + std::to_string(i));

    EXPECT_TRUE(kept.expired());
    EXPECT_EQ(0, connection.prepared);
}

TEST_F(StatementTest, KeepsThePoolOfACursorUntilItIsDone) {
    const sql::SharedPool pool = table.pool(" WHERE t.field1 = 0");
    std::unique_ptr<sql::Statement> used = table.take(*pool, " WHERE t.field1 = 0", false);
    for (int i = 1; i < Many; ++i)
        table.pool(" WHERE t.field1 = " + std::to_string(i));

    pool->push_back(std::move(used));

    EXPECT_EQ(1, connection.prepared);
}

}  // namespace Kes::testing
