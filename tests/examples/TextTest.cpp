#include "packages/Text.h"

#include <gtest/gtest.h>

namespace packages {
namespace {

TEST(TextTest, TakesCharactersOfEveryLengthForUtf8) {
    EXPECT_TRUE(isUtf8(""));
    EXPECT_TRUE(isUtf8("a"));
    EXPECT_TRUE(isUtf8("\xC3\xA9"));
    EXPECT_TRUE(isUtf8("\xE2\x82\xAC"));
    EXPECT_TRUE(isUtf8("\xF0\x9F\x93\xA6"));
}

TEST(TextTest, KnowsThatStrayAndMissingBytesAreNotUtf8) {
    EXPECT_FALSE(isUtf8("\xA9"));
    EXPECT_FALSE(isUtf8("caf\xE9"));
    EXPECT_FALSE(isUtf8("\xC3"));
    EXPECT_FALSE(isUtf8("\xE2\x82"));
    EXPECT_FALSE(isUtf8("\xE2\x82z"));
    EXPECT_FALSE(isUtf8("\xFF"));
}

TEST(TextTest, KnowsThatOverlongFormsSurrogatesAndTooLargeNumbersAreNotUtf8) {
    EXPECT_FALSE(isUtf8("\xC0\xAF"));
    EXPECT_FALSE(isUtf8("\xE0\x80\xAF"));
    EXPECT_FALSE(isUtf8("\xF0\x80\x80\xAF"));
    EXPECT_FALSE(isUtf8("\xED\xA0\x80"));
    EXPECT_FALSE(isUtf8("\xF4\x90\x80\x80"));
}

TEST(TextTest, TrimsBlanksAndTabs) {
    EXPECT_EQ(trimmed(" \ta b\t "), "a b");
    EXPECT_EQ(trimmed(" \t "), "");
    EXPECT_EQ(trimmed(""), "");
}

TEST(TextTest, GroupsDigitsByThree) {
    EXPECT_EQ(grouped(0), "0");
    EXPECT_EQ(grouped(999), "999");
    EXPECT_EQ(grouped(1000), "1,000");
    EXPECT_EQ(grouped(1234567), "1,234,567");
    EXPECT_EQ(grouped(-100), "-100");
    EXPECT_EQ(grouped(-1000), "-1,000");
}

TEST(TextTest, CutsLongQuotationsBetweenCharacters) {
    const std::string before(59, 'x');

    EXPECT_EQ(inQuotes(before + "y"), '"' + before + "y\"");
    EXPECT_EQ(inQuotes(before + "\xC3\xA9z"), '"' + before + "...\"");
}

}  // namespace
}  // namespace packages
