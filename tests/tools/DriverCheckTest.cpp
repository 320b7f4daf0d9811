#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "tests/drivers/TemporaryFolder.h"
#include "tests/tools/ToolRun.h"

namespace Kes::testing {

// Names of the checks whose lines begin so.
std::set<std::string> checks(const ToolRun& run, const std::string& outcome) {
    std::set<std::string> found;
    std::istringstream lines(run.output);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(outcome + " ")) {
            const std::size_t from = line.find_first_not_of(' ', outcome.size());
            found.insert(line.substr(from, line.find_first_of(": (", from) - from));
        }
    return found;
}

// The program's own arguments are quoted by the caller.
ToolRun runSuite(const std::string& arguments) {
    return runTool(KES_DRIVER_CHECK " " + arguments);
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

    const ToolRun run =
        runSuite("broken '" + folder.path("check.db") + "' '' 'broken.driver=sqlite;" +
                 "broken.defect=" + defect.name + ";busy_timeout=2000' " + defect.arguments);

    EXPECT_EQ(defect.failing, checks(run, "FAILED")) << run.output;
    EXPECT_EQ(defect.passing, checks(run, "ok")) << run.output;
    EXPECT_EQ(defect.failing.empty() ? 0 : 1, run.status);
}

const Defect AllDefects[] = {
    {"none",
     "--only 'refresh.*' --only values.bool.true",
     {},
     {"refresh.behind-a-query", "refresh.changed", "refresh.in-a-transaction",
      "refresh.interrupted", "refresh.interrupted-query", "refresh.pending", "refresh.removed",
      "refresh.unchanged", "values.bool.true"}},
    {"update-lost",
     "--only 'values.bool.*' --only structure.every-kind --only undo",
     {"structure.every-kind", "undo.and-redo", "undo.conflict",
      "values.bool.changed-again-and-again", "values.bool.refreshed", "values.bool.true"},
     {"undo.links", "values.bool.false"}},
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
     "--only transactions.removed --only transactions.empty --only refresh.removed "
     "--only undo.links",
     {"refresh.removed", "transactions.removed", "undo.links"},
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
     {"refresh.changed", "refresh.in-a-transaction", "refresh.interrupted", "refresh.removed",
      "slots.refresh-status"},
     {"refresh.behind-a-query", "refresh.interrupted-query", "refresh.pending",
      "refresh.unchanged"}},
    {"refresh-by-halves",
     "--only 'refresh.*'",
     {"refresh.interrupted"},
     {"refresh.behind-a-query", "refresh.changed", "refresh.in-a-transaction",
      "refresh.interrupted-query", "refresh.pending", "refresh.removed", "refresh.unchanged"}},
    {"lock-ignored",
     "--only 'lock.*'",
     {"lock.against-others-committed", "lock.against-others-rolled-back", "lock.of-changed",
      "lock.of-locked", "lock.of-removed"},
     {"lock.and-change"}},
    {"ids-again",
     "--only slots.object-ids --only slots.versions --only transactions.ids-never-again",
     {"slots.object-ids", "transactions.ids-never-again"},
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
    {"commits-early",
     "--only values.double.nan --only values.double.tenth --only conflicts.in-the-middle",
     {"conflicts.in-the-middle", "values.double.nan", "values.double.nan-with-payload"},
     {"values.double.tenth"}},
    {"rollback-commits",
     "--only slots.versions-rolled-back --only transactions.empty",
     {"slots.versions-rolled-back"},
     {"transactions.empty"}},
    {"end-commits",
     "--only slots.ended-without-close --only slots.closed-in-the-middle",
     {"slots.ended-without-close"},
     {"slots.closed-in-the-middle"}},
    {"failures-ignored",
     "--only conflicts.update --only conflicts.remove --only conflicts.different-objects "
     "--only conflicts.links.one-to-one --only conflicts.links.many-to-many",
     {"conflicts.links.many-to-many.with-removed-owner",
      "conflicts.links.many-to-many.with-removed-thing",
      "conflicts.links.one-to-one.of-removed-owner", "conflicts.links.one-to-one.of-removed-thing",
      "conflicts.links.one-to-one.rivals", "conflicts.links.one-to-one.with-removed-owner",
      "conflicts.links.one-to-one.with-removed-thing", "conflicts.remove-updated",
      "conflicts.update-removed", "conflicts.update-update", "conflicts.update-update-overlapping"},
     {"conflicts.different-objects", "conflicts.links.many-to-many.made-twice",
      "conflicts.links.many-to-many.of-removed-owner",
      "conflicts.links.many-to-many.of-removed-thing", "conflicts.links.many-to-many.others",
      "conflicts.links.many-to-many.rivals", "conflicts.links.one-to-one.made-twice",
      "conflicts.links.one-to-one.others", "conflicts.remove-removed"}},
    {"kinds-alike",
     "--only slots.versions --only values.bool.true",
     {"slots.versions"},
     {"slots.versions-of-odd-names", "slots.versions-rolled-back", "values.bool.true"}},
    {"removed-is-changed",
     "--only 'refresh.*' --only slots.refresh-status",
     {"refresh.removed", "slots.refresh-status"},
     {"refresh.behind-a-query", "refresh.changed", "refresh.in-a-transaction",
      "refresh.interrupted", "refresh.interrupted-query", "refresh.pending", "refresh.unchanged"}},
    {"trace-goes-on",
     "--only slots.trace --only slots.nothing-to-end",
     {"slots.trace"},
     {"slots.nothing-to-end"}},
    {"models-mixed",
     "--only models.interleaved --only transactions.added-and-rolled-back",
     {"models.interleaved"},
     {"transactions.added-and-rolled-back"}},
    {"unlink-lost",
     "--only 'associations.one-to-many.*dissolved*' --only associations.cascade",
     {"associations.one-to-many.dissolved",
      "associations.one-to-many.dissolved-from-the-other-side",
      "associations.one-to-many.made-and-dissolved-at-once"},
     {"associations.cascade", "associations.one-to-many.dissolved-and-made-at-once"}},
#if !defined(KES_SANITIZED_ADDRESS)  // with which the suite does not look at memory
    {"rows-hoarded",
     "--only cursors.large.all-rows --only cursors.large.given-up --only cursors.end "
     "--rows 200000",
     {"cursors.large.all-rows", "cursors.large.given-up"},
     {"cursors.end"}},
#endif
    {"cursor-ends-at-commit",
     "--only 'cursors.*s-inside' --only cursors.changes-from-outside --only cursors.nested",
     {"cursors.additions-inside", "cursors.changes-from-outside", "cursors.commits-inside",
      "cursors.removals-inside"},
     {"cursors.nested", "cursors.references-inside", "cursors.rollbacks-inside"}},
    {"cursor-goes-on",
     "--only cursors.end --only slots.cursor-after-close --only slots.definition",
     {"cursors.end", "slots.cursor-after-close", "slots.definition-deleted-first"},
     {"slots.definition-refused"}},
    {"leaf-classes-lost",
     "--only inheritance --only structure.no-fields --only order.own-field --only order.by-id",
     {"inheritance.200-wide", "inheritance.20-deep", "inheritance.4-deep", "inheritance.class-kept",
      "inheritance.conditions", "inheritance.each-level-selected", "inheritance.every-level-stored",
      "inheritance.links", "inheritance.one-state", "order.by-id", "order.own-field",
      "structure.no-fields"},
     {}},
    {"or-is-and",
     "--only 'conditions.trees.*-3-from-left' --only 'conditions.trees.*-10-from-right' "
     "--only conditions.trees.depth-3 --only '*.alternating-10'",
     {"conditions.trees.alternating-10", "conditions.trees.depth-3",
      "conditions.trees.or-10-from-right", "conditions.trees.or-3-from-left"},
     {"conditions.trees.and-10-from-right", "conditions.trees.and-3-from-left"}},
    {"no-partner-is-any",
     "--only conditions.roles --only conditions.trees.nested-4 --only conditions.text.equal",
     {"conditions.roles.Broader-broader", "conditions.roles.Broader-narrower",
      "conditions.roles.Sequel-after", "conditions.roles.Sequel-before",
      "conditions.roles.Tagged-tagged", "conditions.roles.Tagged-tags",
      "conditions.roles.Wrote-works", "conditions.roles.Wrote-writer", "conditions.trees.nested-4"},
     {"conditions.roles.moved-condition", "conditions.roles.unknown", "conditions.text.equal"}},
    {"like-is-equal",
     "--only conditions.text.like --only conditions.text.equal",
     {"conditions.text.like"},
     {"conditions.text.equal"}},
    {"numbers-are-real",
     "--only 'conditions.*.other-numbers'",
     {"conditions.double.other-numbers", "conditions.long.other-numbers",
      "conditions.ulong.other-numbers"},
     {"conditions.bool.other-numbers", "conditions.float.other-numbers",
      "conditions.int.other-numbers", "conditions.uint.other-numbers"}},
    {"misfit-ignored",
     "--only 'upgrades.refused.*-int' --only upgrades.refused.whole "
     "--only upgrades.converted.long-to-int",
     {"upgrades.refused.blank-as-int", "upgrades.refused.blob-as-int",
      "upgrades.refused.empty-text-as-int", "upgrades.refused.half-as-int",
      "upgrades.refused.long-above-int", "upgrades.refused.long-below-int",
      "upgrades.refused.time-as-int", "upgrades.refused.whole", "upgrades.refused.word-as-int"},
     {"upgrades.converted.long-to-int"}},
    {"odd-names-lost",
     "--only 'names.*.blank' --only 'names.*.select' --only names.association.join",
     {"names.association.blank", "names.class.blank", "names.field.blank"},
     {"names.association.join", "names.association.select", "names.class.select",
      "names.field.select"}},
    {"half-made",
     "--only 'names.field.emoji' --only names.field.select",
     {"names.field.emoji"},
     {"names.field.select"}},
    {"lock-crashes", "--only lock.and-change --only lock.of-changed", {"lock.and-change"}, {}},
};

INSTANTIATE_TEST_SUITE_P(All, DefectTest, ::testing::ValuesIn(AllDefects));

class DriverCheckTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    std::string source = "'" + folder.path("check.db") + "'";
};

TEST_F(DriverCheckTest, EndsWhenACheckTakesTooLong) {
    const ToolRun run =
        runSuite("broken " + source + " '' 'broken.driver=sqlite;broken.defect=commit-hangs' " +
                 "--only slots.versions --only slots.trace --timeout 2");

    EXPECT_EQ(1, run.status) << run.output;
    EXPECT_NE(std::string::npos, run.output.find("FAILED slots.versions: it takes more than 2"))
        << run.output;
}

TEST_F(DriverCheckTest, CannotRunWhenTheDatabaseDoesNotAnswer) {
    const ToolRun run =
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

// A file of somebody else is not even opened.
TEST_F(DriverCheckTest, LeavesAFileAloneThatHoldsSomething) {
    const std::string words = "dear diary";
    std::ofstream(folder.path("check.db")) << words;

    const ToolRun run = runSuite("sqlite " + source + " --only values.bool.true");

    EXPECT_EQ(2, run.status) << run.output;
    std::string left;
    std::getline(std::ifstream(folder.path("check.db")), left);
    EXPECT_EQ(words, left);
}

TEST_F(DriverCheckTest, FailsWhatIsDeclaredAsRefusedAndKept) {
    const ToolRun run =
        runSuite("sqlite " + source + " --refuses negative-zero --only negative-zero");

    EXPECT_EQ(1, run.status);
    EXPECT_EQ((std::set<std::string>{"conditions.double.constant-negative-zero",
                                     "conditions.float.constant-negative-zero"}),
              checks(run, "ok"));
    EXPECT_EQ((std::set<std::string>{"values.double.negative-zero", "values.float.negative-zero"}),
              checks(run, "FAILED"));
}

TEST_F(DriverCheckTest, FailsWhatIsRefusedAndNotDeclared) {
    const ToolRun run =
        runSuite("sqlite " + source + " --refuses nothing --only values.double.nan");

    EXPECT_EQ((std::set<std::string>{"values.double.nan", "values.double.nan-with-payload"}),
              checks(run, "FAILED"));
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

TEST_F(DriverCheckTest, CannotRunWhenTheReportCannotBeWritten) {
    const ToolRun run = runSuite("sqlite " + source + " --only values.bool.true --json '" +
                                 folder.path("no/such/folder.json") + "'");

    EXPECT_EQ(2, run.status);
    EXPECT_EQ(std::set<std::string>(), checks(run, "ok"));
}

// Whatever ends it: a crash, a check that takes for ever, the driver.
TEST_F(DriverCheckTest, WritesAReportAlsoWhenACheckEndsTheRun) {
    const std::string file = folder.path("report.json");
    const char* ends[] = {"lock-crashes", "lock-exits", "commit-hangs"};
    for (const char* defect : ends) {
        const ToolRun run = runSuite(
            "broken " + source + " '' 'broken.driver=sqlite;broken.defect=" + defect +
            "' --only slots.object-ids --only conflicts.update-update --only lock.and-change "
            "--only cursors.end --timeout 2 --force --json '" +
            file + "'");

        EXPECT_EQ(1, run.status) << defect;
        const nlohmann::json report = nlohmann::json::parse(std::ifstream(file));
        EXPECT_EQ(1, report["failed"]) << defect;
        EXPECT_GE(report["passed"], 1) << defect;
        EXPECT_GE(report["notRun"], 1) << defect;
        EXPECT_EQ(false, report["checks"].back()["ok"]) << defect;
    }
}

TEST_F(DriverCheckTest, EndsBehindTheCheckUnderWayWhenItIsInterrupted) {
    const std::string file = folder.path("report.json");
    const ToolRun run = runSuite(
        "sqlite " + source + " --only slots.object-ids --only conditions --only cursors" +
        " --only undo --only values --json '" + file + "' & sleep 1; kill -INT $!; wait $!");

    EXPECT_EQ(130, run.status) << run.output;
    EXPECT_EQ(std::set<std::string>(), checks(run, "FAILED"));
    const nlohmann::json report = nlohmann::json::parse(std::ifstream(file));
    EXPECT_GE(report["passed"], 1);
    EXPECT_GE(report["notRun"], 1);
}

TEST_F(DriverCheckTest, ListsTheChecksThatMatch) {
    const ToolRun run = runSuite("--list --only 'values.bool.*'");

    EXPECT_EQ(
        "values.bool.false\nvalues.bool.true\nvalues.bool.changed-again-and-again\n"
        "values.bool.refreshed\n",
        run.output);
    EXPECT_EQ(0, run.status);
}

}  // namespace Kes::testing
