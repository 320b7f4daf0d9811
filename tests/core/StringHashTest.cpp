// The hash that all name tables use.

#include <kes/String.h>

#include <gtest/gtest.h>

#include <string>

namespace Kes {
namespace {

TEST(StringHashTest, IsTheFirstByteOfAShortText) {
    EXPECT_EQ(String::hash(""), 0);
    EXPECT_EQ(String::hash("A"), 65);
}

TEST(StringHashTest, ShiftsFurtherForEveryByte) {
    // 65; then 65 ^ (65 << 9 ^ 66), the shift growing with the position.
    EXPECT_EQ(String::hash("AB"), 33283);
    EXPECT_NE(String::hash("AB"), String::hash("BA"));
}

TEST(StringHashTest, TakesHighBytesAsNegativeNumbers) {
    EXPECT_EQ(String::hash("\xE9"), -23);
}

TEST(StringHashTest, GivesTheNumbersThatTablesRelyOn) {
    EXPECT_EQ(String::hash("KesObjectID"), 1802823269);
    EXPECT_EQ(String::hash("abcdefghijklmnopqrstuvwxyzabcdefgh"), 615957533);
}

TEST(StringHashTest, IsASigned32BitNumber) {
    String longText;
    for (int i = 0; i < 100; ++i) {
        longText += "abc";
        const long h = String::hash(longText);
        EXPECT_EQ(h, static_cast<int>(h));
    }
}

TEST(StringHashTest, TakesTheShiftModulo32) {
    std::string text;
    for (int i = 0; i < 70; ++i)
        text += static_cast<char>('A' + i % 26);
    unsigned expected = 0;
    for (unsigned i = 0; i < text.size(); ++i)
        expected = expected ^ ((expected << ((i + 8) % 32)) ^ static_cast<unsigned>(text[i]));

    EXPECT_EQ(String::hash(text.c_str()), static_cast<int>(expected));
}

}  // namespace
}  // namespace Kes
