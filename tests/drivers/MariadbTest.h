// What the tests of the MariaDB driver have in common.

#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/drivers/Engines.h"
#include "tests/drivers/PlainMariadb.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

/// A database of the test's own on the server that ctest starts.
class MariadbTest : public ::testing::Test {
protected:
    static bool says(const std::string& message, const std::string& words) {
        return message.find(words) != std::string::npos;
    }

    // What an open says; "" when it works.
    std::string refusal(const std::string& source, const std::string& password,
                        const std::string& user, const std::string& options = "") {
        StaffModel model;
        const std::string said = messageRaisedBy([&] {
            model.open("mariadb", source.c_str(), password.c_str(), user.c_str(), options.c_str());
        });
        EXPECT_FALSE(says(said, engine->password())) << said;
        EXPECT_FALSE(says(said, "secret")) << said;
        return said;
    }
    std::string refusal(const std::string& source) {
        return refusal(source, engine->password(), engine->user());
    }

    std::string address() const { return engine->source().substr(0, engine->source().find('/')); }
    std::string database() const { return engine->source().substr(address().size() + 1); }

    // Ends all connections to the test's database but the test's own.
    void cutConnections() {
        for (const std::string& id :
             admin.askAll("SELECT id FROM information_schema.processlist WHERE db = '" +
                          database() + "' AND id <> connection_id()"))
            admin.run("KILL " + id);
    }

    const std::unique_ptr<Engine> engine = makeMariadbEngine();
    PlainMariadb admin{Engine::serverSays("mariadb", "source"), engine->user(), engine->password()};
};

}  // namespace Kes::testing
