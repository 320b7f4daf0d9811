// kes-driver-check: whether a driver keeps its contract.

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

#include <CLI/CLI.hpp>

#include "Properties.h"
#include "Runner.h"
#include "Scratch.h"
#include "Topics.h"
#include "Watchdog.h"

namespace {

using namespace Kes::check;

constexpr const char* Description =
    "Checks that a database driver of Kes keeps its contract.\n"
    "It needs an empty database (a new file, or one of its own on a server), fills it with\n"
    "tables and says in the end what it leaves there, since drivers have no way to remove\n"
    "tables. Never point it at a database that is worth keeping.";

constexpr const char* Examples =
    "A password is taken from the environment variable KES_PASSWORD.\n\n"
    "Examples:\n"
    "  kes-driver-check sqlite /tmp/scratch.db\n"
    "  kes-driver-check postgres 'host=localhost dbname=scratch' tester --rows 100000\n"
    "  kes-driver-check sqlite /tmp/scratch.db --only 'values.*' --json report.json\n"
    "  kes-driver-check sqlite /tmp/scratch.db --refuses nan,infinity,unsigned64\n"
    "  kes-driver-check --list\n\n"
    "Exit status: 0 when all checks passed, 1 when one failed, 2 when they could not run.";

struct Arguments {
    Settings settings;
    std::string json;
    std::vector<std::string> patterns;
    std::string refuses;
    int timeout = 600;
    bool list = false;
    bool properties = false;
    bool force = false;
};

void describe(CLI::App& app, Arguments& given) {
    Settings& settings = given.settings;
    app.footer(Examples);
    app.add_option("driver", settings.driver, "The driver's name, as Model::open takes it");
    app.add_option("source", settings.source, "The database, in the driver's own words");
    app.add_option("user", settings.user, "The user");
    app.add_option("options", settings.options, "The driver's options, key=value;key=value");
    app.add_option("--only", given.patterns, "Run the checks whose names hold or match PATTERN")
        ->type_name("PATTERN")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--refuses", given.refuses,
                   "What the driver refuses, with commas between, or \"nothing\"; see\n"
                   "--properties. Without it that is found out")
        ->type_name("PROPERTIES");
    app.add_option("--rows", settings.rows, "Rows of the large cursors")
        ->capture_default_str()
        ->check(CLI::Range(100L, 100000000L));
    app.add_option("--seed", settings.seed, "Seed of all that is made up")->capture_default_str();
    app.add_option("--timeout", given.timeout, "Seconds that one check may take")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000000));
    app.add_option("--json", given.json, "Write a report to FILE")->type_name("FILE");
    app.add_flag("--list", given.list, "List the checks and end");
    app.add_flag("--properties", given.properties, "List what a driver may refuse and end");
    app.add_flag("--force", given.force, "Use a database that was used before");
}

Suite allChecks() {
    Suite suite;
    addSlotChecks(suite);
    addValueChecks(suite);
    addInheritanceChecks(suite);
    addConditionChecks(suite);
    addTreeChecks(suite);
    addOrderChecks(suite);
    addAssociationChecks(suite);
    addUpgradeChecks(suite);
    addStructureUpgradeChecks(suite);
    addNameChecks(suite);
    addTransactionChecks(suite);
    addConflictChecks(suite);
    addModelChecks(suite);
    addLinkConflictChecks(suite);
    addCursorChecks(suite);
    return suite;
}

std::vector<Suite::Entry> chosen(const Suite& suite, const std::vector<std::string>& patterns) {
    std::vector<Suite::Entry> entries;
    for (const Suite::Entry& entry : suite.entries()) {
        bool isWanted = patterns.empty();
        for (const std::string& pattern : patterns)
            isWanted = isWanted || isSelected(entry.name, pattern);
        if (isWanted)
            entries.push_back(entry);
    }
    return entries;
}

int refuseToRun(const std::string& why) {
    std::cerr << "kes-driver-check: " << why << '\n';
    return 2;
}

// "" when all names are properties.
std::string declareRefusals(const std::string& names, Refusals& refusals) {
    std::set<std::string> properties;
    std::istringstream list(names);
    for (std::string name; std::getline(list, name, ',');) {
        if (name.empty() || name == "nothing")
            continue;
        if (!isProperty(name))
            return "there is no property \"" + name + "\"; --properties lists them";
        properties.insert(name);
    }
    refusals.declare(properties);
    return "";
}

int check(Arguments& given, const std::vector<Suite::Entry>& entries, bool declares) {
    Settings& settings = given.settings;
    Refusals refusals;
    if (declares) {
        const std::string fault = declareRefusals(given.refuses, refusals);
        if (!fault.empty())
            return refuseToRun(fault);
    }
    if (const char* password = std::getenv("KES_PASSWORD"))
        settings.password = password;
    // Better now than after a run that took minutes.
    if (!given.json.empty() && !std::ofstream(given.json, std::ios::app))
        return refuseToRun("the file " + given.json + " cannot be written");
    std::string fault;
    {
        const Watchdog watchdog(
            given.timeout, [] { std::_Exit(refuseToRun("opening the database takes too long")); });
        fault = prepareScratch(settings, given.force);
    }
    if (!fault.empty())
        return refuseToRun(fault);
    return Runner(settings, refusals, given.timeout, given.json).run(entries);
}

int run(int argc, char** argv) {
    Arguments given;
    CLI::App app(Description, "kes-driver-check");
    describe(app, given);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    const std::vector<Suite::Entry> entries = chosen(allChecks(), given.patterns);
    if (given.properties) {
        printProperties(std::cout);
        return 0;
    }
    if (given.list) {
        for (const Suite::Entry& entry : entries)
            std::cout << entry.name << '\n';
        return 0;
    }
    if (given.settings.driver.empty() || given.settings.source.empty())
        return refuseToRun("name a driver and a source; --help tells more");
    if (entries.empty())
        return refuseToRun("no check has such a name; --list lists them");
    return check(given, entries, app.count("--refuses") > 0);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const Kes::Exception& raised) {
        return refuseToRun(std::string(raised.getCode()) + ": " + raised.getMessage());
    } catch (const std::exception& thrown) {
        return refuseToRun(thrown.what());
    }
}
