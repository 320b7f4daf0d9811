// Texts that all threads share.

#include <kes/String.h>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace Kes {
namespace {

const char* bufferOf(const String& s) {
    return s;
}

TEST(StringConstantTest, IsOnePerValue) {
    const String s = String::constant("abc");
    String other("ab");
    other += "c";

    EXPECT_EQ(s, "abc");
    EXPECT_EQ(bufferOf(String::constant(other)), bufferOf(s));
    EXPECT_NE(bufferOf(String::constant("abd")), bufferOf(s));
    EXPECT_EQ(String::constant(""), "");
    EXPECT_EQ(String::constant(nullptr), "");
}

TEST(StringConstantTest, HasAnyNumberOfOwnersAndOutlivesThem) {
    const char* text = nullptr;
    {
        const String s = String::constant("many owners");
        text = s;
        const std::vector<String> copies(200000, s);
        EXPECT_EQ(bufferOf(copies.back()), text);
    }

    EXPECT_STREQ(text, "many owners");
}

TEST(StringConstantTest, IsCopiedOnSeveralThreadsAtOnce) {
    const String s = String::constant("shared");
    int wrong[4] = {};
    std::vector<std::thread> threads;
    for (int& count : wrong)
        threads.emplace_back([&count, &s] {
            for (int i = 0; i < 20000; ++i) {
                const String copy(s);
                count += copy == String::constant("shared") ? 0 : 1;
            }
        });
    for (std::thread& thread : threads)
        thread.join();

    for (const int count : wrong)
        EXPECT_EQ(count, 0);
}

}  // namespace
}  // namespace Kes
