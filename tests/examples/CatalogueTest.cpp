#include "packages/Catalogue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace packages {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Groups = std::vector<std::vector<std::string>>;

class CatalogueTest : public testing::Test {
protected:
    // Each package stands on a line of its own number.
    void add(const std::string& name, const std::string& depends = "",
             const std::string& provides = "") {
        PackageRecord record;
        record.line = ++lines;
        record.name = name;
        record.version = "1";
        record.depends = depends;
        record.provides = provides;
        catalogue.add(record);
    }

    void resolve() {
        catalogue.resolve([this](const Problem& problem) {
            messages.push_back(std::to_string(problem.line) + ": " + problem.message);
        });
    }

    std::vector<std::string> needsOf(std::size_t package) const {
        std::vector<std::string> names;
        for (const std::size_t entry : catalogue.dependencies()[package])
            names.push_back(catalogue.nameOf(entry));
        return names;
    }

    Catalogue catalogue;
    long lines = 0;
    std::vector<std::string> messages;
};

TEST(RelationTest, DropsVersionsAndArchitectures) {
    EXPECT_EQ(parseRelation("a (>= 1.2) | b:any, c(<< 3),d [amd64]"),
              (Groups{{"a", "b"}, {"c"}, {"d"}}));
}

TEST(RelationTest, IgnoresEmptyGroupsAndAlternatives) {
    EXPECT_EQ(parseRelation(" , a | , ,"), (Groups{{"a"}}));
    EXPECT_EQ(parseRelation(""), Groups{});
}

TEST_F(CatalogueTest, LinksEveryAlternativeThatExists) {
    add("a", "b | missing | c");
    add("b");
    add("c");
    resolve();

    EXPECT_THAT(needsOf(0), ElementsAre("b", "c"));
    EXPECT_EQ(catalogue.unresolved(), 0);
    EXPECT_EQ(catalogue.linkCount(), 2U);
}

TEST_F(CatalogueTest, MakesOneLinkOfSeveralDependenciesOnOneEntry) {
    add("a", "b (>= 1), b (<< 2), c | b");
    add("b");
    resolve();

    EXPECT_THAT(needsOf(0), ElementsAre("b"));
}

TEST_F(CatalogueTest, CountsDependenciesThatNothingSatisfies) {
    add("a", "missing, lost | gone, b");
    add("b");
    resolve();

    EXPECT_EQ(catalogue.unresolved(), 2);
    EXPECT_THAT(needsOf(0), ElementsAre("b"));
    EXPECT_THAT(catalogue.virtualPackages(), IsEmpty());
}

TEST_F(CatalogueTest, MakesVirtualPackagesOfNamesThatAreOnlyProvided) {
    add("a", "shell");
    add("bash", "", "shell (= 5), a");
    add("dash", "", "shell, posix-shell");
    resolve();

    EXPECT_THAT(catalogue.virtualPackages(), ElementsAre("posix-shell", "shell"));
    EXPECT_THAT(needsOf(0), ElementsAre("shell"));
    EXPECT_EQ(catalogue.entryCount(), 5U);
    EXPECT_THAT(catalogue.provided()[1], ElementsAre(4U));
    EXPECT_THAT(catalogue.provided()[2], ElementsAre(3U, 4U));
}

TEST_F(CatalogueTest, KeepsTheFirstOfSeveralVersions) {
    add("a", "b");
    add("a", "missing");
    add("b");
    resolve();

    EXPECT_EQ(catalogue.packages().size(), 2U);
    EXPECT_EQ(catalogue.otherVersions(), 1);
    EXPECT_EQ(catalogue.unresolved(), 0);
}

TEST_F(CatalogueTest, PassesOverWhatIsNotInstalled) {
    PackageRecord record;
    record.name = "a";
    record.status = "deinstall ok config-files";
    catalogue.add(record);
    record.status = "purge ok not-installed";
    catalogue.add(record);
    record.status = "install ok installed";
    catalogue.add(record);

    EXPECT_EQ(catalogue.packages().size(), 1U);
    EXPECT_EQ(catalogue.notInstalled(), 2);
}

TEST_F(CatalogueTest, ReportsACircleAndKeepsItsLinks) {
    add("x");
    add("a", "b");
    add("b", "c, x");
    add("c", "a");
    resolve();

    EXPECT_THAT(messages, ElementsAre("2: a, b and c depend on one another"));
    EXPECT_THAT(needsOf(1), ElementsAre("b"));
    EXPECT_THAT(needsOf(2), ElementsAre("x", "c"));
    EXPECT_THAT(needsOf(3), ElementsAre("a"));
}

TEST_F(CatalogueTest, ListsTheFirstNamesOfALargeCircle) {
    for (int i = 0; i < 7; ++i)
        add("p" + std::to_string(i), "p" + std::to_string((i + 1) % 7));
    resolve();

    EXPECT_THAT(messages, ElementsAre("1: p0, p1, p2, p3, p4 and 2 more depend on one another"));
}

TEST_F(CatalogueTest, LeavesALinkOfAPackageWithItselfOut) {
    add("x");
    add("a", "a, x");
    resolve();

    EXPECT_THAT(messages, ElementsAre("2: a depends on itself; this link is left out"));
    EXPECT_THAT(needsOf(1), ElementsAre("x"));
}

}  // namespace
}  // namespace packages
