#include <unistd.h>

#include "tests/drivers/Engines.h"
#include "tests/drivers/PlainPostgres.h"

namespace Kes::testing {

namespace {

// A schema of its own in the database that all tests share.
class PostgresEngine : public Engine {
public:
    PostgresEngine() {
        static int made = 0;
        schema = "test_" + std::to_string(getpid()) + "_" + std::to_string(++made);
        plain.run("DROP SCHEMA IF EXISTS " + schema + " CASCADE");
        plain.run("CREATE SCHEMA " + schema);
        plain.run("SET search_path TO " + schema);
    }
    ~PostgresEngine() override {
        try {
            plain.run("SET lock_timeout = 5000; DROP SCHEMA " + schema + " CASCADE");
        } catch (const std::exception&) {
            // The server goes soon, with everything in it.
        }
    }

    std::string driver() const override { return "postgres"; }
    std::string source() const override { return url; }
    std::string options() const override { return "schema=" + schema; }

    std::vector<std::string> tables() override {
        return plain.askAll("SELECT tablename FROM pg_tables WHERE schemaname = '" + schema +
                            "' AND tablename NOT LIKE 'kes\\_%'");
    }

    std::vector<std::string> contents() override {
        return plain.askAll("SELECT relname FROM pg_class WHERE relnamespace = '" + schema +
                            "'::regnamespace");
    }

    std::vector<std::string> columnsOf(const std::string& table) override {
        return plain.askAll(
            "SELECT column_name FROM information_schema.columns WHERE "
            "table_schema = '" +
            schema + "' AND table_name = '" + table + "' ORDER BY ordinal_position");
    }

    std::size_t indexesOf(const std::string& table) override {
        return plain
            .askAll("SELECT indexname FROM pg_indexes WHERE schemaname = '" + schema +
                    "' AND tablename = '" + table + "'")
            .size();
    }

    std::string waitingAtMost(int limit) const override {
        return "lock_timeout=" + std::to_string(limit);
    }
    bool foldsTableNames() const override { return false; }
    bool indexesLongTexts() const override { return false; }
    std::size_t mostColumns() const override { return 1000; }
    std::vector<std::string> tableNamesOfItsOwn() const override { return {"pg_thing"}; }

protected:
    void execute(const std::string& text) override { plain.run(text); }
    std::string query(const std::string& text) override { return plain.ask(text); }

private:
    std::string url = serverSays("postgres", "url");
    PlainPostgres plain{url};
    std::string schema;
};

// The models' way leads through the pooler, and the second one past it.
class PgbouncerEngine final : public PostgresEngine {
public:
    std::string source() const override { return serverSays("pgbouncer", "url"); }
    std::string options() const override {
        return PostgresEngine::options() + ";pooler=transaction";
    }
};

}  // namespace

std::unique_ptr<Engine> makePostgresEngine() {
    return std::make_unique<PostgresEngine>();
}

std::unique_ptr<Engine> makePgbouncerEngine() {
    return std::make_unique<PgbouncerEngine>();
}

}  // namespace Kes::testing
