// The checker is shown one history of each kind, and the guide's table is held
// against the one that the checker goes by.

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/histories/History.h"

namespace Kes::testing {

namespace {

Transaction transaction(std::vector<ListRead> reads, std::vector<Append> appends,
                        Transaction::Outcome outcome = Transaction::Done) {
    Transaction made;
    made.outcome = outcome;
    made.reads = std::move(reads);
    made.appends = std::move(appends);
    made.ended = 1;
    return made;
}

Transaction selection(std::vector<ListRead> reads) {
    Transaction made = transaction(std::move(reads), {});
    made.isSelection = true;
    return made;
}

const Level strict{"", "", {}};

std::string found(const std::vector<Transaction>& history, const Lists& stored,
                  const Level& level = strict) {
    const std::vector<Finding> findings = findAnomalies(history, stored, level);
    return findings.empty() ? "" : nameOf(findings.front().anomaly);
}

}  // namespace

TEST(HistoryCheckerTest, PassesWhatHasASerialOrder) {
    EXPECT_EQ("", found({transaction({{1, {}}}, {{1, 10}, {2, 11}}),
                         transaction({{1, {10}}, {2, {11}}}, {{1, 12}}),
                         selection({{1, {10, 12}}, {2, {11}}}),
                         transaction({{1, {10}}}, {{1, 13}}, Transaction::Refused),
                         transaction({{1, {10, 12}}}, {{1, 14}}, Transaction::Unknown),
                         transaction({}, {{2, 15}}, Transaction::Unknown)},
                        {{1, {10, 12, 14}}, {2, {11}}}));
}

TEST(HistoryCheckerTest, FindsACommitThatIsLost) {
    EXPECT_EQ("lost commit", found({transaction({}, {{1, 10}})}, {}));
    EXPECT_EQ("lost commit", found({transaction({}, {{1, 10}, {2, 11}})}, {{1, {10}}}));
}

TEST(HistoryCheckerTest, FindsWhatIsStoredThoughItWasRefused) {
    EXPECT_EQ("stored refusal",
              found({transaction({}, {{1, 10}}, Transaction::Refused)}, {{1, {10}}}));
}

TEST(HistoryCheckerTest, FindsHalfOfACommitWhoseOutcomeIsUnknown) {
    EXPECT_EQ("stored refusal",
              found({transaction({}, {{1, 10}, {2, 11}}, Transaction::Unknown)}, {{1, {10}}}));
}

TEST(HistoryCheckerTest, FindsWhatIsStoredTwice) {
    EXPECT_EQ("stored refusal", found({transaction({}, {{1, 10}})}, {{1, {10, 10}}}));
}

TEST(HistoryCheckerTest, FindsAReadOfWhatWasNeverStored) {
    EXPECT_EQ("dirty read", found({transaction({}, {{1, 10}}, Transaction::Refused),
                                   transaction({{1, {10}}}, {})},
                                  {}));
}

TEST(HistoryCheckerTest, FindsAReadOfWhatATransactionWroteOver) {
    EXPECT_EQ("intermediate read",
              found({transaction({}, {{1, 10}, {1, 11}}), transaction({{1, {10}}}, {})},
                    {{1, {10, 11}}}));
}

TEST(HistoryCheckerTest, FindsALostUpdate) {
    EXPECT_EQ("lost update", found({transaction({}, {{1, 10}}), transaction({}, {{1, 11}}),
                                    transaction({{1, {11}}}, {})},
                                   {{1, {10, 11}}}));
}

TEST(HistoryCheckerTest, FindsTransactionsThatHaveSeenEachOther) {
    EXPECT_EQ("circular flow",
              found({transaction({{2, {20}}}, {{1, 10}}), transaction({{1, {10}}}, {{2, 20}})},
                    {{1, {10}}, {2, {20}}}));
}

TEST(HistoryCheckerTest, FindsWritesInTwoOrders) {
    EXPECT_EQ("circular flow",
              found({transaction({}, {{1, 10}, {2, 20}}), transaction({}, {{2, 21}, {1, 11}})},
                    {{1, {10, 11}}, {2, {21, 20}}}));
}

TEST(HistoryCheckerTest, FindsATornSelection) {
    const std::vector<Transaction> history{transaction({}, {{1, 10}, {2, 20}}),
                                           selection({{1, {10}}, {2, {}}})};
    const Lists stored{{1, {10}}, {2, {20}}};

    EXPECT_EQ("torn selection", found(history, stored));
    EXPECT_EQ("torn selection", found(history, stored, levelsOf("sqlite").front()));
}

TEST(HistoryCheckerTest, FindsAReadSkewWhereItIsForbidden) {
    const std::vector<Transaction> history{transaction({}, {{1, 10}, {2, 20}}),
                                           transaction({{1, {10}}, {2, {}}}, {})};
    const Lists stored{{1, {10}}, {2, {20}}};

    EXPECT_EQ("read skew", found(history, stored));
    EXPECT_EQ("", found(history, stored, levelsOf("sqlite").front()));
}

TEST(HistoryCheckerTest, FindsAReadSkewOverAThirdTransaction) {
    EXPECT_EQ("read skew", found({transaction({}, {{1, 10}}), transaction({{1, {10}}}, {{2, 20}}),
                                  transaction({{2, {20}}, {1, {}}}, {})},
                                 {{1, {10}}, {2, {20}}}));
}

TEST(HistoryCheckerTest, FindsAWriteSkewWhereItIsForbidden) {
    const std::vector<Transaction> history{transaction({{1, {}}, {2, {}}}, {{1, 10}}),
                                           transaction({{1, {}}, {2, {}}}, {{2, 20}})};
    const Lists stored{{1, {10}}, {2, {20}}};

    EXPECT_EQ("write skew", found(history, stored));
    EXPECT_EQ("", found(history, stored, levelsOf("galera").back()));
}

TEST(HistoryCheckerTest, FindsAReadThatIsOlderThanACommitBefore) {
    Transaction late = transaction({{1, {}}}, {});
    late.begun = 2;

    EXPECT_EQ("stale read", found({transaction({}, {{1, 10}}), late}, {{1, {10}}}));
    late.begun = 0;
    EXPECT_EQ("", found({transaction({}, {{1, 10}}), late}, {{1, {10}}}));
}

TEST(HistoryCheckerTest, ReadsWhatItWrites) {
    Transaction made =
        transaction({{1, {10, 12}}, {2, {}}}, {{3, 13}, {3, 14}}, Transaction::Unknown);
    made.process = 4;
    made.isSelection = true;
    made.begun = 1234567890123;

    EXPECT_EQ("4 2 1 1234567890123 1 2 1 2 10 12 2 0 2 3 13 3 14", made.text());
    EXPECT_EQ(made.text(), Transaction::parse(made.text()).text());
    EXPECT_ANY_THROW(Transaction::parse("4 2 1 12 1 2 1"));
}

TEST(IsolationPageTest, SaysWhatTheTestsPermit) {
    std::vector<std::string> expected;
    for (const auto& [engine, name] : {std::pair{"sqlite", "SQLite"},
                                       {"postgres", "PostgreSQL"},
                                       {"mariadb", "MariaDB"},
                                       {"galera", "Galera"}}) {
        bool isDefault = true;
        for (const Level& level : levelsOf(engine)) {
            std::string row = std::string("| ") + name + " |";
            if (!level.option.empty())
                row += " `" + level.option + "`" + (isDefault ? " (default)" : "");
            for (const Anomaly anomaly : {Anomaly::ReadSkew, Anomaly::WriteSkew})
                row += level.permits(anomaly) ? " | yes" : " | no";
            expected.push_back(row + " |");
            isDefault = false;
        }
    }

    std::ifstream page(KES_DOCS "/isolation.md");
    std::vector<std::string> rows;
    for (std::string line; std::getline(page, line);)
        if (line.find("| yes |") != std::string::npos || line.find("| no |") != std::string::npos)
            rows.push_back(line);

    EXPECT_EQ(expected, rows);
}

}  // namespace Kes::testing
