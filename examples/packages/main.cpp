// packages: a package catalogue in a database.

#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "packages/Browse.h"
#include "packages/Catalogue.h"
#include "packages/CatalogueSource.h"
#include "packages/ControlParser.h"
#include "packages/Importer.h"
#include "packages/PackageModel.h"
#include "packages/Report.h"
#include "packages/Text.h"
#include "packages/Try.h"
#include "packages/Upgrade.h"

namespace packages {

namespace {

struct Arguments {
    std::string driver = "sqlite";
    std::string source = "packages.db";
    std::string user;
    std::string options;
    std::string passwordFile;
    bool trace = false;

    std::string file;
    bool replace = false;
    bool allMessages = false;
    std::string name;
};

// Passwords come neither from the command line, which everybody on the machine
// can read, nor from a default.
std::string readPassword(const Arguments& arguments) {
    if (arguments.passwordFile.empty()) {
        const char* const password = std::getenv("KES_PASSWORD");
        return password != nullptr ? password : "";
    }
    std::ifstream file(arguments.passwordFile);
    std::string password;
    if (!file.is_open())
        throw std::runtime_error("cannot read the password file " + arguments.passwordFile);
    std::getline(file, password);
    return password;
}

std::unique_ptr<PackageModel> openVersion(const Arguments& arguments, int version) {
    auto model = std::make_unique<PackageModel>(version);
    if (arguments.trace)
        model->traceSQLTo(std::cerr);
    model->open(arguments.driver.c_str(), arguments.source.c_str(), readPassword(arguments).c_str(),
                arguments.user.c_str(), arguments.options.c_str());
    return model;
}

// Opens the database with the version of the model that it has.
std::unique_ptr<PackageModel> openModel(const Arguments& arguments) {
    std::unique_ptr<PackageModel> model = openVersion(arguments, PackageModel::firstVersion);
    const int stored = model->storedVersion();
    if (stored > PackageModel::latestVersion)
        throw std::runtime_error("the database was made by a newer version of this program");
    if (stored == PackageModel::firstVersion)
        return model;
    model->close();
    return openVersion(arguments, stored);
}

std::unique_ptr<PackageModel> openFilled(const Arguments& arguments) {
    std::unique_ptr<PackageModel> model = openModel(arguments);
    if (!holdsCatalogue(*model))
        throw std::runtime_error("the database holds no catalogue; run `packages import` first");
    return model;
}

// Writes messages as they come, up to a limit, and counts the others.
class Messages {
public:
    Messages(std::string ofWhat, bool all) : kind(std::move(ofWhat)), unlimited(all) {}
    ~Messages() {
        if (count > shown && !unlimited)
            std::cerr << "packages: and " << grouped(count - shown) << " more " << kind
                      << "; --all-messages shows them\n";
    }
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;

    void operator()(const Problem& problem) {
        if (unlimited || count < shown)
            std::cerr << "packages: line " << problem.line << ": " << problem.message << '\n';
        ++count;
    }

private:
    static constexpr long shown = 20;
    std::string kind;
    bool unlimited;
    long count = 0;
};

Catalogue readCatalogue(const Arguments& arguments) {
    const CatalogueSource source = openCatalogue(arguments.file);
    std::cout << "Reading " << source.description << std::endl;
    Catalogue catalogue;
    {
        Messages faults("faults", arguments.allMessages);
        ControlParser parser(*source.input, [&](const Problem& problem) { faults(problem); });
        for (PackageRecord record; parser.next(record);)
            catalogue.add(std::move(record));
    }
    Messages notes("notes", arguments.allMessages);
    catalogue.resolve([&](const Problem& problem) { notes(problem); });
    if (catalogue.packages().empty())
        throw std::runtime_error("there is no package in " + source.description);
    return catalogue;
}

void describe(const Catalogue& catalogue) {
    std::cout << "Packages: " << grouped(static_cast<long>(catalogue.packages().size()))
              << ", virtual packages: "
              << grouped(static_cast<long>(catalogue.virtualPackages().size()))
              << ", dependencies: " << grouped(static_cast<long>(catalogue.linkCount())) << '\n';
    if (catalogue.otherVersions() != 0)
        std::cout << "Skipped further versions: " << grouped(catalogue.otherVersions()) << '\n';
    if (catalogue.notInstalled() != 0)
        std::cout << "Skipped, not installed: " << grouped(catalogue.notInstalled()) << '\n';
    if (catalogue.unresolved() != 0)
        std::cout << "Unresolved dependencies: " << grouped(catalogue.unresolved()) << '\n';
    std::cout.flush();
}

void runImport(const Arguments& arguments) {
    // Asked first, because reading a whole catalogue in vain takes a while.
    const std::unique_ptr<PackageModel> model = openModel(arguments);
    const bool filled = holdsCatalogue(*model);
    if (filled && !arguments.replace)
        throw std::runtime_error(
            "the database holds a catalogue; --replace puts the new one "
            "in its place");
    const Catalogue catalogue = readCatalogue(arguments);
    describe(catalogue);
    const ImportResult result =
        importCatalogue(*model, catalogue, filled, std::cout, isatty(STDOUT_FILENO) != 0);
    const auto perSecond = [&](std::size_t count) {
        return grouped(static_cast<long>(static_cast<double>(count) / result.seconds));
    };
    std::cout << "Stored " << grouped(static_cast<long>(result.objects)) << " objects ("
              << perSecond(result.objects) << " per second) and "
              << grouped(static_cast<long>(result.links)) << " links (" << perSecond(result.links)
              << " per second)\n";
}

void addOptions(CLI::App& app, Arguments& arguments) {
    app.add_option("--driver", arguments.driver, "Database driver")->capture_default_str();
    app.add_option("--source", arguments.source,
                   "Database, as the driver names it: a file, a URL, ...")
        ->capture_default_str();
    app.add_option("--user", arguments.user, "User of the database");
    app.add_option("--options", arguments.options, "Options of the driver: key=value;...");
    app.add_option("--password-file", arguments.passwordFile,
                   "File whose first line is the password; else $KES_PASSWORD is");
    app.add_flag("--trace", arguments.trace, "Show every statement on the standard error");
}

void addCommands(CLI::App& app, Arguments& arguments) {
    CLI::App* const import = app.add_subcommand("import", "Store a catalogue");
    import->add_option("FILE", arguments.file,
                       "Catalogue, or - for the standard input; without it what apt knows");
    import->add_flag("--replace", arguments.replace, "Remove the catalogue that is there");
    import->add_flag("--all-messages", arguments.allMessages,
                     "Show all messages about the catalogue and not the first 20");
    import->callback([&] { runImport(arguments);
});

app.add_subcommand("report", "Show figures of the catalogue")->callback([&] {
    writeReport(*openFilled(arguments), std::cout);
});

CLI::App* const show = app.add_subcommand("show", "Show one entry");
show->add_option("NAME", arguments.name, "Name of a package")->required();
show->callback([&] { showEntry(*openFilled(arguments), arguments.name, std::cout); });

CLI::App* const needs = app.add_subcommand("needs", "Show all that an entry depends on");
needs->add_option("NAME", arguments.name, "Name of a package")->required();
needs->callback([&] { showNeeds(*openFilled(arguments), arguments.name, std::cout); });

CLI::App* const attempt =
    app.add_subcommand("try", "Change, undo and redo; show the events as they fire");
attempt->add_option("NAME", arguments.name,
                    "Name of a package; without it one that some others need");
attempt->callback([&] {
    tryChanges([&] { return openFilled(arguments); }, arguments.name, std::cout);
});

app.add_subcommand("upgrade", "Take the database to version 2 of the model")->callback([&] {
    upgradeCatalogue([&](int version) { return openVersion(arguments, version); }, std::cout);
});
}  // namespace

int fail(const char* message) {
    std::cout.flush();
    std::cerr << "packages: " << message << '\n';
    return 1;
}

int run(int argc, char** argv) {
    CLI::App app("The package catalogue of a machine, kept in a database.", "packages");
    Arguments arguments;
    app.require_subcommand(1);
    app.fallthrough();
    addOptions(app, arguments);
    addCommands(app, arguments);
    try {
        app.parse(argc, argv);
        std::cout.flush();
        return std::cout ? 0 : fail("cannot write to the standard output");
    } catch (const CLI::ParseError& error) {
        return error.get_exit_code() == 0 ? app.exit(error) : fail(error.what());
    } catch (const Kes::Exception& error) {
        return fail(error.getMessage());
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}

}  // namespace packages

}  // namespace packages

int main(int argc, char** argv) {
    return packages::run(argc, argv);
}
