// The described classes that the tests of this folder use.

#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include <kes/Kes.h>

#include "tests/drivers/Engine.h"

namespace Kes::testing {

enum class State { Open, Doing, Done };

struct Ticket;
struct Label;

struct Project : Object<Project> {
    std::string name;
    Many<Ticket> tickets;
    static void describe(Description<Project>& d);
};

struct Ticket : Object<Ticket> {
    std::string title;
    State state = State::Open;
    std::optional<std::chrono::year_month_day> due;
    Decimal<2> estimate;
    One<Project> project;
    Many<Label> labels;
    static void describe(Description<Ticket>& d);
};

struct Bug : Object<Bug, Ticket> {
    int severity = 3;
    static void describe(Description<Bug>& d) { d.field("severity", &Bug::severity); }
};

struct Label : Object<Label> {
    std::string word;
    Many<Ticket> tickets;
    static void describe(Description<Label>& d) { d.field("word", &Label::word); }
};

inline void Project::describe(Description<Project>& d) {
    d.field("name", &Project::name).unique();
    d.many("tickets", &Project::tickets, &Ticket::project).cascades();
}

inline void Ticket::describe(Description<Ticket>& d) {
    d.field("title", &Ticket::title);
    d.field("state", &Ticket::state).indexed();
    d.field("due", &Ticket::due);
    d.field("estimate", &Ticket::estimate);
    d.many("labels", &Ticket::labels, &Label::tickets);
}

inline Schema trackerSchema() {
    return schema<Project, Ticket, Bug, Label>("tracker", 1);
}

/// Each test has a fresh database of the driver under test.
class TypedTest : public ::testing::Test {
protected:
    std::unique_ptr<Database> open(const Schema& schema, DatabaseOptions options = {}) {
        options.user = engine->user();
        options.password = engine->password();
        const std::string more = options.options;
        options.options = engine->options();
        if (!more.empty())
            options.options += (options.options.empty() ? "" : ";") + more;
        return std::make_unique<Database>(engine->driver(), engine->source(), schema, options);
    }

    const std::unique_ptr<Engine> engine = Engine::make();
};

/// What the work throws, or of kind Unclassified and without a code.
template <class Work>
Error errorOf(Work work) {
    try {
        work();
    } catch (const Error& raised) {
        return raised;
    }
    return Error(ErrorKind::Unclassified, "", "", "nothing was thrown");
}

inline bool says(const Error& error, const std::string& words) {
    return std::string(error.what()).find(words) != std::string::npos;
}

}  // namespace Kes::testing

#define EXPECT_SAYS(error, words) EXPECT_TRUE(Kes::testing::says(error, words)) << (error).what()
