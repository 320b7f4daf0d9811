#include "packages/Importer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>

#include <unistd.h>

#include "packages/Browse.h"
#include "packages/Digest.h"
#include "packages/Report.h"
#include "packages/Upgrade.h"

namespace packages {
namespace {

using testing::HasSubstr;
using testing::Not;

// A circle, a virtual package and a dependency that nothing satisfies.
constexpr const char* smallCatalogue =
    "Package: app\nVersion: 1\nMaintainer: Ada <ada@example.org>\nSection: games\n"
    "Installed-Size: 1500\nDepends: lib, shell, nowhere\nEssential: yes\n\n"
    "Package: lib\nVersion: 2\nMaintainer: Ben <ben@example.org>\nSection: libs\n"
    "Installed-Size: 300\nDepends: data\nSHA256: "
    "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1eff\n\n"
    "Package: data\nVersion: 3\nMaintainer: Ben <ben@example.org>\nSection: libs\n"
    "Installed-Size: 20\nDepends: lib\n\n"
    "Package: dash\nVersion: 4\nMaintainer: Ada <ada@example.org>\nProvides: shell\n\n";

// Takes no byte.
class Refusing : public std::streambuf {};

class ImportTest : public testing::Test {
protected:
    void TearDown() override { std::filesystem::remove(database); }

    std::unique_ptr<PackageModel> open(int version = PackageModel::firstVersion) {
        auto model = std::make_unique<PackageModel>(version);
        model->open("sqlite", database.c_str(), "", "", "");
        return model;
    }

    ImportResult import(const std::string& text, bool replace = false,
                        int version = PackageModel::firstVersion) {
        std::istringstream input(text);
        ControlParser parser(input, [](const Problem&) {});
        Catalogue catalogue;
        for (PackageRecord record; parser.next(record);)
            catalogue.add(record);
        catalogue.resolve([](const Problem&) {});
        return importCatalogue(*open(version), catalogue, replace, progress, false);
    }

    std::string report() {
        std::ostringstream out;
        writeReport(*open(), out);
        return out.str();
    }

    std::string needs(const std::string& name) {
        std::ostringstream out;
        showNeeds(*open(), name, out);
        return out.str();
    }

    std::string database = testing::TempDir() + "packages-" + std::to_string(getpid()) + ".db";
    std::ostringstream progress;
};

TEST_F(ImportTest, StoresObjectsAndLinks) {
    const ImportResult result = import(smallCatalogue);

    EXPECT_EQ(result.objects, 9U);  // 4 packages, 1 virtual, 2 maintainers, 2 sections
    EXPECT_EQ(result.links, 12U);   // 4 + 3 to maintainers and sections, 4 needs, 1 provides
    EXPECT_TRUE(holdsCatalogue(*open()));
}

TEST_F(ImportTest, LeavesAnUntouchedDatabaseEmpty) {
    EXPECT_FALSE(holdsCatalogue(*open()));
}

TEST_F(ImportTest, ReportsWhatWasStored) {
    import(smallCatalogue);

    EXPECT_EQ(report(),
              "Objects\n"
              "           4  Package\n"
              "           1  VirtualPackage\n"
              "           2  Maintainer\n"
              "           2  Section\n"
              "\nMaintainers with most packages\n"
              "           2  Ada <ada@example.org>\n"
              "           2  Ben <ben@example.org>\n"
              "\nEntries that most packages depend on\n"
              "           2  lib\n"
              "           1  data\n"
              "           1  shell (virtual)\n"
              "\nLargest by installed size, in KiB\n"
              "       1,500  app\n"
              "         300  lib\n"
              "          20  data\n"
              "           0  dash\n"
              "           0  shell\n"
              "\nWho maintains lib\n"
              "  Ben <ben@example.org>\n");
}

TEST_F(ImportTest, ShowsEveryFieldOfAPackage) {
    import(smallCatalogue);
    std::ostringstream out;
    showEntry(*open(), "lib", out);

    EXPECT_THAT(out.str(), HasSubstr("Version:          2\n"));
    EXPECT_THAT(out.str(), HasSubstr("Maintainer:       Ben <ben@example.org>\n"));
    EXPECT_THAT(out.str(), HasSubstr("Section:          libs\n"));
    EXPECT_THAT(out.str(), HasSubstr("Essential:        no\n"));
    EXPECT_THAT(out.str(), HasSubstr("1b1c1d1eff\n"));
    EXPECT_THAT(out.str(), HasSubstr("Depends on:       data\n"));
    EXPECT_THAT(out.str(), HasSubstr("Needed by:        app, data\n"));
    EXPECT_THAT(out.str(), Not(HasSubstr("Homepage")));
}

TEST_F(ImportTest, ShowsTheProvidersOfAVirtualPackage) {
    import(smallCatalogue);
    std::ostringstream out;
    showEntry(*open(), "shell", out);

    EXPECT_THAT(out.str(), HasSubstr("Provided by:      dash\n"));
    EXPECT_THAT(out.str(), HasSubstr("Needed by:        app\n"));
}

TEST_F(ImportTest, FollowsNeedsThroughACircleToTheirEnd) {
    import(smallCatalogue);

    EXPECT_EQ(needs("app"),
              "data\nlib\nshell (virtual; provided by dash)\n"
              "app needs 3 entries, 320 KiB installed\n");
    EXPECT_EQ(needs("lib"), "data\nlib needs 1 entry, 20 KiB installed\n");
}

TEST_F(ImportTest, RefusesANameThatIsNotThere) {
    import(smallCatalogue);

    EXPECT_THROW(needs("nowhere"), std::runtime_error);
}

TEST_F(ImportTest, ReplacesAnEarlierCatalogue) {
    import(smallCatalogue);
    import("Package: lib\nVersion: 9\nMaintainer: Ada <ada@example.org>\nSection: libs\n\n", true);

    EXPECT_THAT(report(), HasSubstr("           1  Package\n"
                                    "           0  VirtualPackage\n"
                                    "           1  Maintainer\n"
                                    "           1  Section\n"));
    EXPECT_EQ(needs("lib"), "lib needs 0 entries, 0 KiB installed\n");
}

TEST_F(ImportTest, KeepsTheOldCatalogueWhenTheImportFails) {
    import(smallCatalogue);
    const std::string before = report();
    Catalogue catalogue;
    PackageRecord record;
    record.name = "lib";
    catalogue.add(record);
    catalogue.resolve([](const Problem&) {});

    {
        // The progress line after the removal cannot be written.
        Refusing refusing;
        std::ostream broken(&refusing);
        broken.exceptions(std::ios::badbit);
        EXPECT_THROW(importCatalogue(*open(), catalogue, true, broken, false), std::ios::failure);
    }

    EXPECT_EQ(report(), before);
}

TEST_F(ImportTest, UpgradesWithoutLoss) {
    import(smallCatalogue);
    const Digest before = digestOf(*open());
    std::ostringstream out;

    upgradeCatalogue([this](int version) { return open(version); }, out);

    EXPECT_THAT(out.str(), HasSubstr("New field Package.dependencies: 4 in 4 packages\n"));
    EXPECT_THAT(out.str(), HasSubstr("from version 1 to 2 with 9 objects\n"));
    const std::unique_ptr<PackageModel> model = open(PackageModel::latestVersion);
    EXPECT_EQ(model->storedVersion(), 2);
    EXPECT_TRUE(digestOf(*model) == before);
    Kes::SelectionOf<Package> app(model->packages());
    app.where(app["name"] == "app");
    ASSERT_TRUE(app.next());
    EXPECT_EQ(app.value()->dependencies, 2U);
}

TEST_F(ImportTest, UpgradesOnlyOnce) {
    import(smallCatalogue);
    std::ostringstream first;
    std::ostringstream second;
    upgradeCatalogue([this](int version) { return open(version); }, first);
    upgradeCatalogue([this](int version) { return open(version); }, second);

    EXPECT_EQ(second.str(), "The database has version 2 of the model already\n");
}

TEST_F(ImportTest, TellsStatesOfACatalogueApart) {
    import(smallCatalogue);
    const Digest before = digestOf(*open());
    {
        const std::unique_ptr<PackageModel> model = open();
        Kes::SelectionOf<Package> app(model->packages());
        app.where(app["name"] == "app");
        Package* const package = app.nextValue();
        ASSERT_NE(package, nullptr);
        model->startTransaction();
        package->essential = false;
        package->change();
        model->commit();
    }

    EXPECT_FALSE(digestOf(*open()) == before);
}

}  // namespace
}  // namespace packages
