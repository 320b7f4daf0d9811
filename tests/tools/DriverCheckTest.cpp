#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "tests/drivers/TemporaryFolder.h"

namespace Kes::testing {

struct Outcome {
    int status = -1;
    std::string output;

    // Names of the checks whose lines begin so.
    std::set<std::string> checks(const std::string& outcome) const {
        std::set<std::string> found;
        std::istringstream lines(output);
        for (std::string line; std::getline(lines, line);)
            if (line.starts_with(outcome + " ")) {
                const std::size_t from = line.find_first_not_of(' ', outcome.size());
                found.insert(line.substr(from, line.find_first_of(": (", from) - from));
            }
        return found;
    }
};

// The program's own arguments are quoted by the caller.
Outcome runSuite(const std::string& arguments) {
    Outcome run;
    FILE* pipe = popen((std::string(KES_DRIVER_CHECK) + " " + arguments + " 2>&1").c_str(), "r");
    char buffer[4096];
    for (std::size_t size; (size = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        run.output.append(buffer, size);
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

struct Defect {
    const char* name;
    const char* arguments;
    std::set<std::string> failing;
    std::set<std::string> passing;
};

void PrintTo(const Defect& defect, std::ostream* out) {
    *out << defect.name;
}

class DefectTest : public ::testing::TestWithParam<Defect> {};

// What each defect breaks, and what it leaves alone.
TEST_P(DefectTest, FailsExactlyTheChecksThatItConcerns) {
    const TemporaryFolder folder;
    const Defect& defect = GetParam();

    const Outcome run =
        runSuite("broken '" + folder.path("check.db") + "' '' 'broken.driver=sqlite;" +
                 "broken.defect=" + defect.name + ";busy_timeout=2000' " + defect.arguments);

    EXPECT_EQ(defect.failing, run.checks("FAILED")) << run.output;
    EXPECT_EQ(defect.passing, run.checks("ok")) << run.output;
    EXPECT_EQ(defect.failing.empty() ? 0 : 1, run.status);
}

const Defect AllDefects[] = {
    {"none",
     "--only 'refresh.*' --only values.bool.true",
     {},
     {"refresh.changed", "refresh.in-a-transaction", "refresh.pending", "refresh.removed",
      "refresh.unchanged", "values.bool.true"}},
    {"update-lost",
     "--only 'values.bool.*'",
     {"values.bool.changed-again-and-again", "values.bool.refreshed", "values.bool.true"},
     {"values.bool.false"}},
    {"order-swapped",
     "--only 'order.int.*' --only order.ties --only order.by-id",
     {"order.by-id", "order.int.down", "order.int.down-over-classes", "order.int.up",
      "order.int.up-over-classes"},
     {"order.ties"}},
    {"version-unchecked",
     "--only conflicts.in-the-middle --only conflicts.update --only conflicts.remove "
     "--only conflicts.different-objects",
     {"conflicts.in-the-middle", "conflicts.update-update", "conflicts.update-update-overlapping"},
     {"conflicts.different-objects", "conflicts.remove-removed", "conflicts.remove-updated",
      "conflicts.update-removed"}},
    {"removal-lost",
     "--only transactions.removed --only transactions.empty --only refresh.removed",
     {"refresh.removed", "transactions.removed"},
     {"transactions.empty", "transactions.removed-and-rolled-back"}},
    {"text-cut",
     "--only 'values.text.*-declared' --only values.text.umlauts",
     {"values.text.blanks-beyond-declared", "values.text.longer-than-declared"},
     {"values.text.umlauts"}},
    {"nan-is-zero",
     "--only 'values.double.nan*' --only values.double.tenth --only 'values.float.nan'",
     {"values.double.nan", "values.double.nan-with-payload"},
     {"values.double.tenth", "values.float.nan", "values.float.nan-with-payload"}},
    {"refresh-blind",
     "--only 'refresh.*' --only slots.refresh-status",
     {"refresh.changed", "refresh.in-a-transaction", "refresh.removed", "slots.refresh-status"},
     {"refresh.pending", "refresh.unchanged"}},
    {"lock-ignored",
     "--only 'lock.*'",
     {"lock.against-others-committed", "lock.against-others-rolled-back", "lock.of-changed",
      "lock.of-removed"},
     {"lock.and-change"}},
    {"ids-again",
     "--only slots.object-ids --only slots.versions",
     {"slots.object-ids"},
     {"slots.versions", "slots.versions-of-odd-names", "slots.versions-rolled-back"}},
    {"condition-ignored",
     "--only 'conditions.int.*equal' --only order.by-id",
     {"conditions.int.equal", "conditions.int.greater-equal", "conditions.int.less-equal",
      "conditions.int.not-equal", "order.by-id"},
     {}},
    {"row-twice", "--only cursors.nested --only cursors.end", {"cursors.nested"}, {"cursors.end"}},
    {"upgrade-left-out",
     "--only upgrades.added-field.int --only upgrades.unchanged-class",
     {"upgrades.added-field.int"},
     {"upgrades.unchanged-class"}},
    {"words-missing",
     "--only slots.error-text --only slots.definition-refused --only slots.versions-rolled-back",
     {"slots.definition-refused", "slots.error-text"},
     {"slots.versions-rolled-back"}},
    {"link-lost",
     "--only '*-one.between-stored-objects' --only '*-to-many.between-stored-objects'",
     {"associations.many-to-many.between-stored-objects",
      "associations.self-many-to-many.between-stored-objects"},
     {"associations.many-to-one.between-stored-objects",
      "associations.one-to-many.between-stored-objects",
      "associations.one-to-one.between-stored-objects",
      "associations.self-many-to-one.between-stored-objects",
      "associations.self-one-to-many.between-stored-objects",
      "associations.self-one-to-one.between-stored-objects"}},
    {"rollback-fails",
     "--only conflicts.update-update --only conflicts.different-objects",
     {"conflicts.update-update", "conflicts.update-update-overlapping"},
     {"conflicts.different-objects"}},
    {"lock-crashes", "--only lock.and-change --only lock.of-changed", {"lock.and-change"}, {}},
};

INSTANTIATE_TEST_SUITE_P(All, DefectTest, ::testing::ValuesIn(AllDefects));

class DriverCheckTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    std::string source = "'" + folder.path("check.db") + "'";
};

TEST_F(DriverCheckTest, EndsWhenACheckTakesTooLong) {
    const Outcome run =
        runSuite("broken " + source + " '' 'broken.driver=sqlite;broken.defect=commit-hangs' " +
                 "--only slots.versions --only slots.trace --timeout 2");

    EXPECT_EQ(1, run.status) << run.output;
    EXPECT_NE(std::string::npos, run.output.find("FAILED slots.versions: it takes more than 2"))
        << run.output;
}

TEST_F(DriverCheckTest, CannotRunWhenTheDatabaseDoesNotAnswer) {
    const Outcome run =
        runSuite("broken " + source + " '' 'broken.driver=sqlite;broken.defect=open-hangs' " +
                 "--only slots.versions --timeout 1");

    EXPECT_EQ(2, run.status) << run.output;
}

TEST_F(DriverCheckTest, CannotRunWithAnUnknownDriver) {
    EXPECT_EQ(2, runSuite("nosuchdriver " + source).status);
}

TEST_F(DriverCheckTest, CannotRunWithAnUnknownCheck) {
    EXPECT_EQ(2, runSuite("sqlite " + source + " --only nothing.like-this").status);
}

TEST_F(DriverCheckTest, CannotRunWithAnUnknownProperty) {
    EXPECT_EQ(2, runSuite("sqlite " + source + " --refuses everything").status);
}

TEST_F(DriverCheckTest, RefusesADatabaseThatWasUsedUnlessForced) {
    EXPECT_EQ(0, runSuite("sqlite " + source + " --only values.bool.true").status);

    EXPECT_EQ(2, runSuite("sqlite " + source + " --only values.bool.true").status);
    EXPECT_EQ(0, runSuite("sqlite " + source + " --only values.bool.true --force").status);
}

TEST_F(DriverCheckTest, FailsWhatIsDeclaredAsRefusedAndKept) {
    const Outcome run =
        runSuite("sqlite " + source + " --refuses negative-zero --only negative-zero");

    EXPECT_EQ(1, run.status);
    EXPECT_EQ((std::set<std::string>{"conditions.double.constant-negative-zero",
                                     "conditions.float.constant-negative-zero"}),
              run.checks("ok"));
    EXPECT_EQ((std::set<std::string>{"values.double.negative-zero", "values.float.negative-zero"}),
              run.checks("FAILED"));
}

TEST_F(DriverCheckTest, FailsWhatIsRefusedAndNotDeclared) {
    const Outcome run =
        runSuite("sqlite " + source + " --refuses nothing --only values.double.nan");

    EXPECT_EQ((std::set<std::string>{"values.double.nan", "values.double.nan-with-payload"}),
              run.checks("FAILED"));
}

TEST_F(DriverCheckTest, WritesAReport) {
    const std::string file = folder.path("report.json");

    runSuite("sqlite " + source + " --only values.bool.true --only values.float.nan --json '" +
             file + "'");

    const nlohmann::json report = nlohmann::json::parse(std::ifstream(file));
    EXPECT_EQ("sqlite", report["driver"]);
    EXPECT_EQ(3, report["passed"]);
    EXPECT_EQ(0, report["failed"]);
    EXPECT_EQ(nlohmann::json({"nan"}), report["refuses"]);
    EXPECT_EQ("values.bool.true", report["checks"][0]["name"]);
    EXPECT_EQ(true, report["checks"][1]["refused"]);
}

TEST_F(DriverCheckTest, ListsTheChecksThatMatch) {
    const Outcome run = runSuite("--list --only 'values.bool.*'");

    EXPECT_EQ(
        "values.bool.false\nvalues.bool.true\nvalues.bool.changed-again-and-again\n"
        "values.bool.refreshed\n",
        run.output);
    EXPECT_EQ(0, run.status);
}

}  // namespace Kes::testing
