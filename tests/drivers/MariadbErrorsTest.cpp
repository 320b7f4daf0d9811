#include <gtest/gtest.h>

#include "drivers/mariadb/MariadbErrors.h"

namespace Kes::testing {

using sql::MariadbFault;

TEST(MariadbErrorsTest, TakeWhatSomebodyElseDidFirstForAConflict) {
    for (const unsigned deadlock : {1213U, 1020U})
        EXPECT_EQ(MariadbFault::Conflict, sql::classify(deadlock)) << deadlock;
}

TEST(MariadbErrorsTest, KeepTheTransactionOfALockThatCameTooLate) {
    EXPECT_EQ(MariadbFault::Timeout, sql::classify(1205));
}

TEST(MariadbErrorsTest, TellANodeWithoutItsClusterFromABrokenConnection) {
    EXPECT_EQ(MariadbFault::CutOff, sql::classify(1047));
}

TEST(MariadbErrorsTest, TakeTheConnectionForLostWhereverItBroke) {
    for (const unsigned lost : {1053U, 1153U, 1184U, 1927U, 2006U, 2013U, 2027U, 2055U, 4031U})
        EXPECT_EQ(MariadbFault::Lost, sql::classify(lost)) << lost;
}

TEST(MariadbErrorsTest, TakeEverythingElseForAFaultOfTheStatement) {
    for (const unsigned statement : {0U, 1062U, 1064U, 1146U, 1180U, 1366U, 1969U})
        EXPECT_EQ(MariadbFault::Statement, sql::classify(statement)) << statement;
}

// What was never sent, or refused as too large, has certainly not been done.
TEST(MariadbErrorsTest, LeaveACommitOpenOnlyWhenItWasSent) {
    for (const unsigned open : {1053U, 1927U, 2013U, 2027U, 2055U})
        EXPECT_TRUE(sql::isWithoutAnswer(open)) << open;
    for (const unsigned known : {1153U, 1184U, 1205U, 1213U, 2006U, 4031U})
        EXPECT_FALSE(sql::isWithoutAnswer(known)) << known;
}

// A node that is cut off while it commits answers 1180, and the others may have it.
TEST(MariadbErrorsTest, TakeOnlyCertainAnswersForARefusedCommit) {
    for (const unsigned refused : {1020U, 1047U, 1205U, 1213U, 1290U, 2006U})
        EXPECT_TRUE(sql::isRefusedCommit(refused)) << refused;
    for (const unsigned open : {1053U, 1180U, 1317U, 1927U, 2013U, 2027U, 2055U})
        EXPECT_FALSE(sql::isRefusedCommit(open)) << open;
}

TEST(MariadbErrorsTest, TellWhatAProgramCanDo) {
    for (const unsigned conflict : {1020U, 1213U})
        EXPECT_EQ(FailureKind::Conflict, sql::kindOf(conflict)) << conflict;
    for (const unsigned lost : {1040U, 1047U, 1053U, 1927U, 2002U, 2003U, 2006U, 2013U})
        EXPECT_EQ(FailureKind::LostConnection, sql::kindOf(lost)) << lost;
    for (const unsigned other : {1045U, 1062U, 1180U, 1205U, 1969U})
        EXPECT_EQ(FailureKind::Unclassified, sql::kindOf(other)) << other;
}

TEST(MariadbErrorsTest, BlameNoLockWhereAnOpenIsNotAnswered) {
    EXPECT_NE(std::string::npos, sql::explainOpen(1205, "words").find("open on another node"));
    EXPECT_EQ(sql::explain(1047, "words"), sql::explainOpen(1047, "words"));
}

TEST(MariadbErrorsTest, TryAnotherHostWhereThatMayHelp) {
    for (const unsigned host : {1040U, 1047U, 1053U, 1129U, 1130U, 2002U, 2003U, 2005U})
        EXPECT_TRUE(sql::isOfHost(host)) << host;
    for (const unsigned everywhere : {1044U, 1045U, 1049U, 1064U, 3000U})
        EXPECT_FALSE(sql::isOfHost(everywhere)) << everywhere;
}

TEST(MariadbErrorsTest, SayWhatTheUserCanDo) {
    const std::pair<unsigned, const char*> advice[] = {{1213, "roll back and try again"},
                                                       {1020, "roll back and try again"},
                                                       {1205, "larger lock_timeout"},
                                                       {1047, "open on another node"},
                                                       {1969, "larger statement_timeout"},
                                                       {1045, "the user and the password"},
                                                       {1698, "the user and the password"},
                                                       {1044, "no rights"},
                                                       {1049, "create it first"},
                                                       {1040, "max_connections"},
                                                       {2005, "name of the host"},
                                                       {2002, "the server runs there"},
                                                       {2003, "the server runs there"},
                                                       {1021, "make room"},
                                                       {1114, "make room"}};
    for (const auto& [code, words] : advice) {
        const std::string text = sql::explain(code, "its words");
        EXPECT_EQ(0U, text.find("its words (" + std::to_string(code) + "); ")) << text;
        EXPECT_NE(std::string::npos, text.find(words)) << text;
    }
    EXPECT_EQ("its words (1064)", sql::explain(1064, "its words"));
}

}  // namespace Kes::testing
