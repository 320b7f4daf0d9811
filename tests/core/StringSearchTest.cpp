// Finding, slicing, replacing and splitting.

#include <kes/String.h>

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

#include <kes/ValVector.h>

namespace Kes {
namespace {

std::string joined(const ValVector<String>& parts) {
    std::string text;
    for (int i = 0; i < parts.size(); ++i)
        text += "[" + std::string(parts[i]) + "]";
    return text;
}

TEST(StringSearchTest, FindsTheFirstOccurrenceFromAStart) {
    const String s("abcabc");

    EXPECT_EQ(s.indexOf("bc"), 1);
    EXPECT_EQ(s.indexOf("bc", 1), 1);
    EXPECT_EQ(s.indexOf("bc", 2), 4);
    EXPECT_EQ(s.indexOf("bc", 5), -1);
    EXPECT_EQ(s.indexOf("x"), -1);
}

TEST(StringSearchTest, FindsNothingFromAStartOutside) {
    EXPECT_EQ(String("abc").indexOf("x", 5), -1);
    EXPECT_EQ(String("abc").indexOf("", 3), -1);
    EXPECT_EQ(String("abc").indexOf("a", -1), -1);
}

TEST(StringSearchTest, FindsTheEmptyTextInAnyButTheEmptyOne) {
    EXPECT_EQ(String("abc").indexOf("", 0), 0);
    EXPECT_EQ(String("abc").indexOf("", 2), 2);
    EXPECT_EQ(String("").indexOf("", 0), -1);
}

TEST(StringSearchTest, FindsTheLastOccurrence) {
    EXPECT_EQ(String("abcabc").indexOfLast("bc"), 4);
    EXPECT_EQ(String("aaa").indexOfLast("aa"), 1);
    EXPECT_EQ(String("abc").indexOfLast("x"), -1);
    EXPECT_EQ(String("a").indexOfLast("ab"), -1);
    EXPECT_EQ(String("abc").indexOfLast(""), 2);
    EXPECT_EQ(String("").indexOfLast(""), -1);
}

TEST(StringSearchTest, ContainsTheEmptyTextAlways) {
    EXPECT_TRUE(String("abc").contains("bc"));
    EXPECT_FALSE(String("abc").contains("cb"));
    EXPECT_TRUE(String("abc").contains(""));
    EXPECT_TRUE(String("").contains(""));
}

TEST(StringSearchTest, CountsOverlappingOccurrences) {
    EXPECT_EQ(String("aaaa").occurrencesOf("aa"), 3);
    EXPECT_EQ(String("aaa").occurrencesOf("aa"), 2);
    EXPECT_EQ(String("abc").occurrencesOf("x"), 0);
}

TEST(StringSearchTest, CountsTheEmptyTextOncePerByte) {
    EXPECT_EQ(String("abc").occurrencesOf(""), 3);
    EXPECT_EQ(String("").occurrencesOf(""), 0);
}

TEST(StringSearchTest, SlicesUpToAnEndOffset) {
    const String s("abcdef");

    EXPECT_EQ(s.substring(2), "cdef");
    EXPECT_EQ(s.substring(6), "");
    EXPECT_EQ(s.substring(2, 4), "cd");
    EXPECT_EQ(s.substring(2, 2), "");
}

TEST(StringSearchTest, SlicesAtASeparator) {
    const String s("a, b, c");

    EXPECT_EQ(s.before(", "), "a");
    EXPECT_EQ(s.before(", ", 2), "a, b");
    EXPECT_EQ(s.beforeLast(", "), "a, b");
    EXPECT_EQ(s.after(", "), "b, c");
    EXPECT_EQ(s.after(", ", 2), "c");
    EXPECT_EQ(s.afterLast(", "), "c");
}

TEST(StringSearchTest, IsWholeOnBothSidesOfAnAbsentSeparator) {
    const String s("abc");

    EXPECT_EQ(s.before(","), "abc");
    EXPECT_EQ(s.after(","), "abc");
    EXPECT_EQ(s.beforeLast(","), "abc");
    EXPECT_EQ(s.afterLast(","), "abc");
}

TEST(StringSearchTest, ReplacesTheFirstOccurrenceFromAStart) {
    EXPECT_EQ(String("abc").replace("b", "XY"), "aXYc");
    EXPECT_EQ(String("abc").replace("a", ""), "bc");
    EXPECT_EQ(String("abc").replace("c", "d"), "abd");
    EXPECT_EQ(String("abab").replace("ab", "x", 1), "abx");
    EXPECT_EQ(String("abc").replace("x", "y"), "abc");
    EXPECT_EQ(String("abc").replace("a", "y", 1), "abc");
    EXPECT_EQ(String("abc").replace("abc", "x"), "x");
    EXPECT_EQ(String("abc").replace("", "x"), "xabc");
}

TEST(StringSearchTest, ReplacesTheLastOccurrence) {
    EXPECT_EQ(String("abab").replaceLast("ab", "x"), "abx");
    EXPECT_EQ(String("ab").replaceLast("ab", "x"), "x");
    EXPECT_EQ(String("aba").replaceLast("a", ""), "ab");
    EXPECT_EQ(String("abc").replaceLast("x", "y"), "abc");
    EXPECT_EQ(String("abc").replaceLast("", "x"), "abxc");
    EXPECT_EQ(String("").replaceLast("", "x"), "");
}

TEST(StringSearchTest, ReplacesAllWithoutSearchingWhatItInserted) {
    EXPECT_EQ(String("aa").replaceAll("a", "aa"), "aaaa");
    EXPECT_EQ(String("a,b,,c").replaceAll(",", ""), "abc");
    EXPECT_EQ(String("aaa").replaceAll("aa", "b"), "ba");
    EXPECT_EQ(String("aabb").replaceAll("ab", ""), "ab");
    EXPECT_EQ(String("abc").replaceAll("x", "y"), "abc");
    EXPECT_EQ(String("").replaceAll("x", "y"), "");
}

TEST(StringSearchTest, ReplacesAnEmptyTextByNothing) {
    EXPECT_EQ(String("abc").replaceAll("", "x"), "abc");
    EXPECT_EQ(String("abc").replaceAll("", ""), "abc");
}

TEST(StringSearchTest, ReplacesInALongTextInOnePass) {
    const std::string text(1000000, 'a');

    EXPECT_EQ(String(text.c_str()).replaceAll("a", "bc").size(), 2000000);
}

TEST(StringSearchTest, SplitsAndKeepsEmptyParts) {
    EXPECT_EQ(joined(String("a,,b,").split(",")), "[a][][b][]");
    EXPECT_EQ(joined(String("a,").split(",")), "[a][]");
    EXPECT_EQ(joined(String(",a").split(",")), "[][a]");
    EXPECT_EQ(joined(String("a--b---c").split("--")), "[a][b][-c]");
}

TEST(StringSearchTest, SplitsIntoOnePartWithoutASeparator) {
    EXPECT_EQ(joined(String("abc").split(",")), "[abc]");
    EXPECT_EQ(joined(String("").split(",")), "[]");
    EXPECT_EQ(joined(String("abc").split("")), "[abc]");
}

TEST(StringSearchTest, SplitsIntoMorePartsThanTheFirstArrayHolds) {
    EXPECT_EQ(String("1,2,3,4,5,6,7,8,9,10,11,12").split(",").size(), 12);
}

}  // namespace
}  // namespace Kes
