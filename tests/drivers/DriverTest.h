// What the tests of the driver suite have in common.

#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/drivers/Engine.h"

namespace Kes::testing {

/// Each test has a fresh database; models that are members of a derived fixture
/// are gone before it is.
class DriverTest : public ::testing::Test {
protected:
    void open(Model& model, const std::string& more = "") { engine->open(model, more); }
    void run(const std::string& text) { engine->run(text); }
    std::string ask(const std::string& text) { return engine->ask(text); }

    static bool says(const std::string& message, const std::string& words) {
        return message.find(words) != std::string::npos;
    }

    const std::unique_ptr<Engine> engine = Engine::make();
};

}  // namespace Kes::testing
