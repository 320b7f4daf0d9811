#include "tests/drivers/Engines.h"
#include "tests/drivers/PlainSqlite.h"
#include "tests/drivers/TemporaryFolder.h"

namespace Kes::testing {

namespace {

class SqliteEngine final : public Engine {
public:
    std::string driver() const override { return "sqlite"; }
    std::string source() const override { return folder.path("suite.db"); }

    std::vector<std::string> tables() override {
        return PlainSqlite(source()).askAll(
            "SELECT name FROM sqlite_schema WHERE type = 'table' AND name NOT LIKE 'kes\\_%' "
            "ESCAPE '\\' AND name NOT LIKE 'sqlite\\_%' ESCAPE '\\'");
    }

    std::vector<std::string> contents() override {
        return PlainSqlite(source()).askAll("SELECT name FROM sqlite_schema");
    }

    std::vector<std::string> columnsOf(const std::string& table) override {
        return PlainSqlite(source()).askAll("SELECT name FROM pragma_table_info('" + table + "')");
    }

    std::size_t indexesOf(const std::string& table) override {
        return PlainSqlite(source())
            .askAll("SELECT name FROM pragma_index_list('" + table + "')")
            .size();
    }

    std::string waitingAtMost(int limit) const override {
        return "busy_timeout=" + std::to_string(limit);
    }
    bool opensInheritedFiles() const override { return false; }
    bool foldsTableNames() const override { return true; }
    std::size_t mostColumns() const override { return 2000; }
    std::vector<std::string> tableNamesOfItsOwn() const override { return {"sqlite_thing"}; }

protected:
    void execute(const std::string& text) override { PlainSqlite(source()).run(text); }
    std::string query(const std::string& text) override { return PlainSqlite(source()).ask(text); }

private:
    TemporaryFolder folder;
};

}  // namespace

std::unique_ptr<Engine> makeSqliteEngine() {
    return std::make_unique<SqliteEngine>();
}

}  // namespace Kes::testing
