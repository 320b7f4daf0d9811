// What the tests of the PostgreSQL driver have in common.

#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/drivers/Engines.h"
#include "tests/drivers/PlainPostgres.h"
#include "tests/support/DelayingProxy.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

/// A schema of the test's own on the server that ctest starts.
class PostgresTest : public ::testing::Test {
protected:
    PostgresTest() {
        const std::size_t colon = tcp.rfind(':');
        const std::size_t at = tcp.rfind('@');
        const std::size_t start = tcp.find(':', tcp.find("//")) + 1;
        password = tcp.substr(start, at - start);
        port = std::stoi(tcp.substr(colon + 1));
    }

    /// The URL of the database on that port of this machine, with the password.
    std::string urlAt(int itsPort) const {
        return "postgresql://kes:" + password + "@127.0.0.1:" + std::to_string(itsPort) + "/kes";
    }

    void open(Model& model, const std::string& more = "") { engine->open(model, more); }

    /// Through a proxy, which can read along.
    void openAt(const DelayingProxy& proxy, Model& model, const std::string& more = "") {
        model.open("postgres", urlAt(proxy.port()).c_str(), "", "",
                   (engine->options() + ";sslmode=disable;gssencmode=disable" +
                    (more.empty() ? "" : ";" + more))
                       .c_str());
    }

    std::string ask(const std::string& text) { return engine->ask(text); }
    void run(const std::string& text) { engine->run(text); }

    static bool says(const std::string& message, const std::string& words) {
        return message.find(words) != std::string::npos;
    }

    const std::string tcp = Engine::serverSays("postgres", "tcp");
    std::string password;
    int port = 0;
    const std::unique_ptr<Engine> engine = makePostgresEngine();
};

}  // namespace Kes::testing
