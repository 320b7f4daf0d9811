#include "packages/Try.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>

#include <unistd.h>

#include "packages/Digest.h"
#include "packages/Importer.h"

namespace packages {
namespace {

using testing::HasSubstr;

// Two packages need lib, and thirty need base.
std::string catalogueText() {
    std::string text =
        "Package: app\nVersion: 1\nMaintainer: Ada <ada@example.org>\nInstalled-Size: 1500\n"
        "Depends: lib\n\n"
        "Package: lib\nVersion: 2\nMaintainer: Ben <ben@example.org>\nSection: libs\n"
        "Installed-Size: 300\nDepends: data\n\n"
        "Package: data\nVersion: 3\nMaintainer: Ben <ben@example.org>\nSection: libs\n"
        "Installed-Size: 20\nDepends: lib\n\n"
        "Package: base\nVersion: 4\n\n";
    for (int i = 0; i < 30; ++i)
        text += "Package: user" + std::to_string(i) + "\nVersion: 5\nDepends: base\n\n";
    return text;
}

// Takes a number of lines and then no more.
class Narrow : public std::streambuf {
public:
    explicit Narrow(int most) : lines(most) {}

protected:
    int overflow(int c) override {
        if (c == '\n')
            --lines;
        return lines > 0 ? c : traits_type::eof();
    }

private:
    int lines;
};

class TryTest : public testing::Test {
protected:
    TryTest() {
        std::istringstream input(catalogueText());
        ControlParser parser(input, [](const Problem&) {});
        Catalogue catalogue;
        for (PackageRecord record; parser.next(record);)
            catalogue.add(record);
        catalogue.resolve([](const Problem&) {});
        std::ostringstream progress;
        importCatalogue(*open(), catalogue, false, progress, false);
    }
    ~TryTest() override { std::filesystem::remove(database); }

    std::unique_ptr<PackageModel> open() {
        auto model = std::make_unique<PackageModel>(PackageModel::firstVersion);
        model->open("sqlite", database.c_str(), "", "", "");
        return model;
    }

    std::string tried(const std::string& name) {
        std::ostringstream out;
        tryChanges([this] { return open(); }, name, out);
        return out.str();
    }

    std::string database = testing::TempDir() + "try-" + std::to_string(getpid()) + ".db";
};

TEST_F(TryTest, ShowsTheEventsOfEachStep) {
    const std::string text = tried("lib");

    EXPECT_THAT(text, HasSubstr("    added    Package        kes-example\n"
                                "    linked   Depends        kes-example, lib\n"
                                "    linked   Maintains      kes-example, Ben\n"
                                "    changed  Maintainer     Ben\n"
                                "    changed  Package        lib\n"));
    EXPECT_THAT(text, HasSubstr("    unlinked Depends        kes-example, lib\n"));
    EXPECT_THAT(text, HasSubstr("    removed  Package        kes-example\n"));
    EXPECT_THAT(text, HasSubstr("    added    Package        lib\n"));
}

TEST_F(TryTest, ShowsTheFirstTwentyEventsOfACommit) {
    const std::string text = tried("base");

    // 31 packages need it by then: so many changes, lost links and a removal.
    EXPECT_THAT(text, HasSubstr("\n    and 43 more; in all 31 changed, 1 removed, 31 unlinked\n"
                                "  base is not there\n"));
}

TEST_F(TryTest, ShowsWhatIsStoredAfterEachStep) {
    const std::string text = tried("lib");
    std::string states;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("  lib") || line.starts_with("  kes-example"))
            states += line.substr(2) + '\n';

    EXPECT_EQ(states,
              "lib has version 2 and is needed by 2\n"
              "lib has version 2+changed and is needed by 3\n"
              "kes-example has version 1 and is needed by 0\n"
              "lib has version 2 and is needed by 2\n"
              "kes-example is not there\n"
              "lib has version 2+changed and is needed by 3\n"
              "kes-example has version 1 and is needed by 0\n"
              "lib is not there\n"
              "kes-example has version 1 and is needed by 0\n"
              "lib has version 2+changed and is needed by 3\n"
              "kes-example has version 1 and is needed by 0\n"
              "lib has version 2 and is needed by 2\n"
              "kes-example is not there\n");
    EXPECT_THAT(text, HasSubstr("The 37 objects and 38 links are as before.\n"));
}

TEST_F(TryTest, TakesAPackageThatSomeOthersNeed) {
    EXPECT_EQ(tried("lib"), tried(""));
}

TEST_F(TryTest, CanBeDoneAgain) {
    EXPECT_EQ(tried("lib"), tried("lib"));
}

TEST_F(TryTest, RefusesAPackageThatIsNotThere) {
    EXPECT_THROW(tried("nowhere"), std::runtime_error);
}

TEST_F(TryTest, LeavesTheCatalogueAsItWasWhereverTheOutputFails) {
    const Digest before = digestOf(*open());
    const std::string whole = tried("lib");
    const auto lines = std::count(whole.begin(), whole.end(), '\n');

    for (int most = 1; most <= lines; ++most) {
        Narrow narrow(most);
        std::ostream out(&narrow);
        out.exceptions(std::ios::badbit);
        EXPECT_THROW(tryChanges([this] { return open(); }, "lib", out), std::ios::failure);

        EXPECT_TRUE(digestOf(*open()) == before) << "after " << most << " lines";
    }
}

}  // namespace
}  // namespace packages
