#include <unistd.h>

#include "tests/drivers/Engines.h"
#include "tests/drivers/PlainMariadb.h"

namespace Kes::testing {

namespace {

// A database of its own on the server or the cluster that all tests share.
class MariadbEngine final : public Engine {
public:
    explicit MariadbEngine(const std::string& itsServer) : server(itsServer) {
        static int made = 0;
        database = "test_" + std::to_string(getpid()) + "_" + std::to_string(++made);
        plain.run("DROP DATABASE IF EXISTS " + database);
        plain.run("CREATE DATABASE " + database);
        plain.run("USE " + database);
        if (isCluster())
            waitForNodes();
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
        const std::string all = serverSays(server, "source");
        std::string hosts = all.substr(0, all.find('/'));
        for (int turns = isCluster() ? opened++ % Nodes : 0; turns > 0; --turns) {
            const std::size_t comma = hosts.find(',');
            hosts = hosts.substr(comma + 1) + "," + hosts.substr(0, comma);
        }
        return hosts + "/" + database;
    }
    std::string user() const override { return serverSays(server, "user"); }
    std::string password() const override { return serverSays(server, "password"); }

    std::vector<std::string> tables() override {
        return plain.askAll(
            "SELECT table_name FROM information_schema.tables WHERE "
            "table_schema = DATABASE() AND table_type = 'BASE TABLE' AND "
            "table_name NOT LIKE 'kes|_%' ESCAPE '|'");
    }

    std::vector<std::string> contents() override {
        return plain.askAll(
            "SELECT table_name FROM information_schema.tables WHERE table_schema = DATABASE()");
    }

    std::vector<std::string> columnsOf(const std::string& table) override {
        return plain.askAll(
            "SELECT column_name FROM information_schema.columns WHERE "
            "table_schema = DATABASE() AND extra NOT LIKE '%INVISIBLE%' AND "
            "table_name = '" +
            table + "' ORDER BY ordinal_position");
    }

    std::size_t indexesOf(const std::string& table) override {
        return plain
            .askAll(
                "SELECT DISTINCT index_name FROM information_schema.statistics WHERE "
                "table_schema = DATABASE() AND table_name = '" +
                table + "'")
            .size();
    }

    std::string waitingAtMost(int limit) const override {
        return "lock_timeout=" + std::to_string(limit);
    }
    // Whole seconds, or not at all.
    std::string hardlyWaiting() const override { return waitingAtMost(0); }
    bool foldsTableNames() const override { return false; }
    std::size_t mostBytes() const override { return 16777216; }
    std::string sizeLimit() const override { return "max_allowed_packet of 16777216"; }
    std::size_t mostColumns() const override { return 1016; }
    std::vector<std::string> tableNamesOfItsOwn() const override { return {}; }

protected:
    void execute(const std::string& text) override { plain.run(text); }
    std::string query(const std::string& text) override { return plain.ask(text); }

private:
    static constexpr int Nodes = 3;

    bool isCluster() const { return server == "galera"; }

    // The database is there on all of them.
    void waitForNodes() {
        for (int node = 1; node <= Nodes; ++node) {
            const std::string file = "node" + std::to_string(node) + "/source";
            PlainMariadb(serverSays(server, file), user(), password()).catchUp();
        }
        plain.catchUp();
    }

    const std::string server;
    PlainMariadb plain{serverSays(server, "node1/source"), user(), password()};
    std::string database;
    mutable int opened = 0;
};

}  // namespace

std::unique_ptr<Engine> makeMariadbEngine() {
    return std::make_unique<MariadbEngine>("mariadb");
}

std::unique_ptr<Engine> makeGaleraEngine() {
    return std::make_unique<MariadbEngine>("galera");
}

}  // namespace Kes::testing
