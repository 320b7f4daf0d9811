#include <unistd.h>

#include "tests/drivers/Engines.h"
#include "tests/drivers/PlainMariadb.h"

namespace Kes::testing {

namespace {

// A database of its own on the server that all tests share.
class MariadbEngine final : public Engine {
public:
    MariadbEngine() {
        static int made = 0;
        database = "test_" + std::to_string(getpid()) + "_" + std::to_string(++made);
        plain.run("DROP DATABASE IF EXISTS " + database);
        plain.run("CREATE DATABASE " + database);
        plain.run("USE " + database);
    }
    ~MariadbEngine() override {
        try {
            plain.run("DROP DATABASE " + database);
        } catch (const std::exception&) {
            // The server goes soon, with everything in it.
        }
    }

    std::string driver() const override { return "mariadb"; }
    std::string source() const override {
        return server.substr(0, server.find('/') + 1) + database;
    }
    std::string user() const override { return serverSays("mariadb", "user"); }
    std::string password() const override { return serverSays("mariadb", "password"); }

    std::vector<std::string> tables() override {
        return plain.askAll(
            "SELECT table_name FROM information_schema.tables WHERE "
            "table_schema = DATABASE() AND table_type = 'BASE TABLE' AND "
            "table_name NOT LIKE 'kes|_%' ESCAPE '|'");
    }

    std::vector<std::string> columnsOf(const std::string& table) override {
        return plain.askAll(
            "SELECT column_name FROM information_schema.columns WHERE "
            "table_schema = DATABASE() AND extra NOT LIKE '%INVISIBLE%' AND "
            "table_name = '" +
            table + "' ORDER BY ordinal_position");
    }

    std::string waitingAtMost(int limit) const override {
        return "lock_timeout=" + std::to_string(limit);
    }
    bool foldsTableNames() const override { return false; }
    bool foldsColumnNames() const override { return true; }
    bool keepsNegativeZeros() const override { return false; }
    std::size_t mostColumns() const override { return 1016; }
    std::vector<std::string> tableNamesOfItsOwn() const override { return {"kes_new_thing"}; }

protected:
    void execute(const std::string& text) override { plain.run(text); }
    std::string query(const std::string& text) override { return plain.ask(text); }

private:
    std::string server = serverSays("mariadb", "source");
    PlainMariadb plain{server, user(), password()};
    std::string database;
};

}  // namespace

std::unique_ptr<Engine> makeMariadbEngine() {
    return std::make_unique<MariadbEngine>();
}

}  // namespace Kes::testing
