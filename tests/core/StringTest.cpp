#include <kes/String.h>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cfloat>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <kes/ValVector.h>

#include "tests/support/Raises.h"

namespace {

std::atomic<int> myArrays = 0;  // that were asked for

}  // namespace

// The library's arrays come from here, too.
void* operator new[](std::size_t size) {
    ++myArrays;
    if (void* array = std::malloc(size))
        return array;
    throw std::bad_alloc();
}

void operator delete[](void* array) noexcept {
    std::free(array);
}

void operator delete[](void* array, std::size_t) noexcept {
    std::free(array);
}

namespace Kes {
namespace {

const char* bufferOf(const String& s) {
    return s;
}

// Reaches what only derived texts may build.
class Parts : public String {
public:
    Parts(const char* a, const char* b) : String(a, b) {}
    Parts(const char* s, int n) : String(s, n) {}
};

TEST(StringTest, IsOnePointerBesidesItsVirtualTable) {
    EXPECT_EQ(sizeof(String), 2 * sizeof(void*));
}

TEST(StringTest, IsEmptyByDefaultAndForNull) {
    EXPECT_EQ(String(), "");
    EXPECT_EQ(String().size(), 0);
    EXPECT_EQ(String(static_cast<const char*>(nullptr)), "");
}

TEST(StringTest, SharesItsBufferWithCopiesUnlessAskedNotTo) {
    const String s("abc");
    const String shared(s);
    const String own(s.unshared());

    EXPECT_EQ(bufferOf(s), bufferOf(shared));
    EXPECT_NE(bufferOf(s), bufferOf(own));
    EXPECT_EQ(s, own);
}

TEST(StringTest, CopiesTheTextItIsMadeFrom) {
    char source[] = "abc";
    const String s(static_cast<const char*>(source));

    source[0] = 'x';

    EXPECT_EQ(s, "abc");
    EXPECT_EQ(s.size(), 3);
}

TEST(StringTest, EndsAtTheFirstNul) {
    EXPECT_EQ(String("ab\0cd").size(), 2);
}

TEST(StringTest, WritesNumbersAsPrintfDoes) {
    EXPECT_EQ(String(-5), "-5");
    EXPECT_EQ(String(INT_MIN), "-2147483648");
    EXPECT_EQ(String(4294967295u), "4294967295");
    EXPECT_EQ(String(LONG_MIN), std::to_string(LONG_MIN).c_str());
    EXPECT_EQ(String(ULONG_MAX), std::to_string(ULONG_MAX).c_str());
    EXPECT_EQ(String(1.0), "1.000000");
    EXPECT_EQ(String(3.5), "3.500000");
    EXPECT_EQ(String(-0.25f), "-0.250000");
}

TEST(StringTest, HoldsTheLongestTextOfADouble) {
    const String s(-DBL_MAX);

    EXPECT_EQ(s.size(), 1 + 309 + 7);
    EXPECT_EQ(s.substring(0, 5), "-1797");
    EXPECT_EQ(s.afterLast("."), "000000");
}

TEST(StringTest, IsNotMadeFromACharacter) {
    EXPECT_FALSE((std::is_constructible_v<String, char>));
    EXPECT_EQ(String(true), "1");
    EXPECT_EQ(String(static_cast<short>(-7)), "-7");
}

TEST(StringTest, TakesNullForTheEmptyText) {
    const char* const null = nullptr;
    const String s("abc");

    EXPECT_EQ(s + null, "abc");
    EXPECT_EQ(null + s, "abc");
    EXPECT_TRUE(s != null && String() == null && s > null && null < s);
    EXPECT_GT(s.compareCaseInsensitive(null), 0);
    EXPECT_EQ(s.indexOf(null), 0);
    EXPECT_EQ(s.indexOfLast(null), 2);
    EXPECT_TRUE(s.contains(null));
    EXPECT_EQ(s.occurrencesOf(null), 3);
    EXPECT_EQ(s.before(null), "");
    EXPECT_EQ(s.after(null), "abc");
    EXPECT_EQ(s.replace("b", null), "ac");
    EXPECT_EQ(s.replaceAll("b", null), "ac");
    EXPECT_EQ(s.replaceLast(null, "x"), "abxc");
    EXPECT_EQ(s.split(null).size(), 1);
}

TEST(StringTest, JoinsTwoTexts) {
    EXPECT_EQ(Parts("ab", "cd"), "abcd");
    EXPECT_EQ(Parts("", ""), "");
    EXPECT_EQ(Parts("ab", static_cast<const char*>(nullptr)), "ab");
}

TEST(StringTest, TakesAtMostTheGivenBytes) {
    EXPECT_EQ(Parts("abcd", 2), "ab");
    EXPECT_EQ(Parts("ab", 5), "ab");
    EXPECT_EQ(Parts("ab", 0), "");
}

TEST(StringTest, FillsTheRestWithNuls) {
    const Parts s("ab", 5);

    for (int i = 2; i <= 5; ++i)
        EXPECT_EQ(s[i], '\0') << i;
}

TEST(StringTest, SharesItsBufferWithCopies) {
    const String s("abc");
    const String copy(s);
    String assigned;
    assigned = s;

    EXPECT_EQ(bufferOf(copy), bufferOf(s));
    EXPECT_EQ(bufferOf(assigned), bufferOf(s));
}

TEST(StringTest, KeepsItsTextWhenACopyChanges) {
    const String s("abc");
    String copy(s);

    copy += "d";

    EXPECT_EQ(s, "abc");
    EXPECT_EQ(copy, "abcd");
}

TEST(StringTest, OutlivesTheTextItWasCopiedFrom) {
    String copy;
    {
        const String s("abc");
        copy = s;
    }

    EXPECT_EQ(copy, "abc");
}

TEST(StringTest, SharesABufferAmongAtMost65535Owners) {
    const String s("abc");
    std::vector<String> copies(65534, s);
    const String oneTooMany(s);

    EXPECT_EQ(bufferOf(copies.back()), bufferOf(s));
    EXPECT_NE(bufferOf(oneTooMany), bufferOf(s));
    EXPECT_EQ(oneTooMany, "abc");
}

TEST(StringTest, KeepsItsTextThroughMoreOwnersThanTheCountHolds) {
    const String s("abc");
    {
        const std::vector<String> copies(200000, s);
        for (const String& copy : copies)
            ASSERT_EQ(std::strcmp(copy, "abc"), 0);
    }

    EXPECT_EQ(s, "abc");
    EXPECT_EQ(bufferOf(String(s)), bufferOf(s));
}

TEST(StringTest, SharesTheEmptyTextWithoutLimit) {
    const std::vector<String> copies(200000, String());

    EXPECT_EQ(copies.front(), "");
    EXPECT_EQ(copies.back(), "");
}

TEST(StringTest, LeavesNothingBehindWhenMoved) {
    String source("abc");
    String made(std::move(source));
    EXPECT_EQ(made, "abc");
    EXPECT_EQ(source, "");  // NOLINT: that is what is promised

    String assigned("old");
    assigned = std::move(made);
    EXPECT_EQ(assigned, "abc");
    EXPECT_EQ(made, "");  // NOLINT: that is what is promised
}

TEST(StringTest, MovesWithoutRaising) {
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<String>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<String>);
}

TEST(StringTest, SurvivesItsOwnAssignment) {
    String s("abc");
    String& same = s;

    s = same;
    EXPECT_EQ(s, "abc");

    s = std::move(same);
    EXPECT_EQ(s, "abc");
}

TEST(StringTest, TakesAPartOfItsOwnText) {
    String s("abcdef");

    s = static_cast<const char*>(s) + 2;
    EXPECT_EQ(s, "cdef");

    s += static_cast<const char*>(s) + 3;
    EXPECT_EQ(s, "cdeff");

    s += s;
    EXPECT_EQ(s, "cdeffcdeff");
}

TEST(StringTest, BecomesEmptyWhenNullIsAssigned) {
    String s("abc");

    s = static_cast<const char*>(nullptr);

    EXPECT_EQ(s, "");
}

TEST(StringTest, AppendsTextsAndLiterals) {
    const String s("ab");

    EXPECT_EQ(s + "cd", "abcd");
    EXPECT_EQ(s + String("cd"), "abcd");
    EXPECT_EQ("cd" + s, "cdab");
    EXPECT_EQ(s, "ab");
}

TEST(StringTest, ReturnsItselfFromAppending) {
    String s("a");

    (s += "b") += String("c");

    EXPECT_EQ(s, "abc");
}

TEST(StringTest, GivesItsBytesForAnyKindOfIndex) {
    const String s("abc");
    const std::size_t size = 2;

    EXPECT_EQ(s[0], 'a');
    EXPECT_EQ(s[1L], 'b');
    EXPECT_EQ(s[1u], 'b');
    EXPECT_EQ(s[size], 'c');
    EXPECT_EQ(s[3], '\0');
}

TEST(StringTest, GoesToStreamsAsText) {
    std::ostringstream out;

    out << String("abc") << String();

    EXPECT_EQ(out.str(), "abc");
}

TEST(StringTest, ComparesWithATextOnTheLeftByItsBytes) {
    const String b("b");

    EXPECT_TRUE("a" < b && "a" <= b && "b" <= b && "b" >= b && "c" >= b && "c" > b);
    EXPECT_FALSE("c" < b || "c" <= b || "b" < b || "b" > b || "a" >= b || "a" > b);
}

TEST(StringTest, ComparesWithTextsAndLiterals) {
    const String a("a");
    const String b("b");

    EXPECT_TRUE(a == "a" && a == String("a") && "a" == a);
    EXPECT_TRUE(a != "b" && a != b && "b" != a);
    EXPECT_TRUE(a < "b" && a < b && !(a < a));
    EXPECT_TRUE(a <= "a" && a <= b && !(b <= a));
    EXPECT_TRUE(b > "a" && b > a && !(a > a));
    EXPECT_TRUE(b >= "b" && b >= a && !(a >= b));
    EXPECT_FALSE(a == "A");
}

TEST(StringTest, OrdersByUnsignedBytes) {
    EXPECT_GT(String("\xE9").compare("z"), 0);
    EXPECT_LT(String("ab").compare(String("abc")), 0);
    EXPECT_EQ(String("ab").compare("ab"), 0);
}

TEST(StringTest, OrdersUpperCasedTextsWhenCaseDoesNotCount) {
    EXPECT_EQ(String("aBc").compareCaseInsensitive("AbC"), 0);
    EXPECT_EQ(String("aBc").compareCaseInsensitive(String("AbC")), 0);
    EXPECT_LT(String("b").compareCaseInsensitive("_"), 0);
    EXPECT_GT(String("b").compare("_"), 0);
}

TEST(StringTest, ChangesTheCaseOfAsciiLettersOnly) {
    EXPECT_EQ(String("a-z\xE9`{").toUpper(), "A-Z\xE9`{");
    EXPECT_EQ(String("A-Z\xC9@[").toLower(), "a-z\xC9@[");
    EXPECT_EQ(String().toUpper(), "");
}

TEST(StringTest, ReversesItsBytes) {
    EXPECT_EQ(String("abc").reverse(), "cba");
    EXPECT_EQ(String("abcd").reverse(), "dcba");
    EXPECT_EQ(String("a").reverse(), "a");
    EXPECT_EQ(String().reverse(), "");
}

TEST(StringTest, KeepsItsTextWhenAChangedOneIsMade) {
    const String s("abc");

    EXPECT_EQ(s.toUpper(), "ABC");
    EXPECT_EQ(s.reverse(), "cba");
    EXPECT_EQ(s.replace("b", ""), "ac");

    EXPECT_EQ(s, "abc");
}

TEST(StringTest, ReadsNumbersUpToTheFirstOtherCharacter) {
    EXPECT_EQ(String("12abc").parseInt(), 12);
    EXPECT_EQ(String("  -7").parseInt(), -7);
    EXPECT_EQ(String(LONG_MAX).parseLong(), LONG_MAX);
    EXPECT_EQ(String("4294967295").parseUnsigned(), 4294967295u);
    EXPECT_DOUBLE_EQ(String("2.5e1x").parseDouble(), 25.0);
}

TEST(StringTest, ReadsNothingAsZero) {
    EXPECT_EQ(String("abc").parseInt(), 0);
    EXPECT_EQ(String("").parseLong(), 0);
    EXPECT_EQ(String("abc").parseUnsigned(), 0u);
    EXPECT_EQ(String("").parseUnsigned(), 0u);
    EXPECT_EQ(String("abc").parseDouble(), 0.0);
}

TEST(StringTest, ReadsUnsignedNumbersModuloTheirRange) {
    EXPECT_EQ(String("-1").parseUnsigned(), UINT_MAX);
    EXPECT_EQ(String(" 7x").parseUnsigned(), 7u);
}

TEST(StringTest, FormatsAsPrintfDoes) {
    String s;

    s.assignFormat("%s=%03d", "key", 7);

    EXPECT_EQ(s, "key=007");
}

TEST(StringTest, FormatsItsOwnText) {
    String s("ab");

    s.assignFormat("<%s>", static_cast<const char*>(s));

    EXPECT_EQ(s, "<ab>");
}

TEST(StringTest, CutsFormattedTextAt1022Characters) {
    String s;

    for (const int width : {1021, 1022, 1023, 1024, 5000}) {
        s.assignFormat("%*d", width, 1);
        EXPECT_EQ(s.size(), width < 1022 ? width : 1022) << width;
    }
}

TEST(StringTest, TakesANullFormatForAnEmptyOne) {
    String text("before");
    const char* const none = nullptr;

    text.assignFormat(none);

    EXPECT_EQ("", text);
}

TEST(StringTest, CutsASubstringWhoseLengthIsNoInt) {
    EXPECT_EQ("", String("abc").substring(2, INT_MIN));
}

// One that grew by ten would copy all of its parts each time.
TEST(StringTest, SplitsIntoManyPartsWithOneArray) {
    const String text(std::string(1000, ',').c_str());
    const int before = myArrays;

    const ValVector<String> parts = text.split(",");

    EXPECT_EQ(1, myArrays - before);
    EXPECT_EQ(1001, parts.size());
}

// The same page of letters over and over: more than a text holds, at the price
// of a page of memory.
class Endless {
public:
    explicit Endless(std::size_t bytes) : size((bytes / Page + 2) * Page) {
        const int file = memfd_create("letters", 0);
        const std::string letters(Page, 'a');
        static_cast<void>(!write(file, letters.data(), Page));
        start = static_cast<char*>(
            mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
        for (std::size_t at = 0; at + Page < size; at += Page)
            mmap(start + at, Page, PROT_READ, MAP_SHARED | MAP_FIXED, file, 0);
        close(file);
    }
    Endless(const Endless&) = delete;
    Endless& operator=(const Endless&) = delete;
    ~Endless() { munmap(start, size); }

    const char* text() const { return start; }

private:
    static constexpr std::size_t Page = std::size_t{1} << 21;
    std::size_t size;  // the last page holds zeros
    char* start;
};

constexpr std::size_t TooLarge = std::size_t{1} << 31;

TEST(StringSizeTest, RefusesMoreThanAnIntCounts) {
    const Endless endless(TooLarge);
    String text("before");

    EXPECT_RAISES("STRSIZE", String(endless.text()));
    EXPECT_RAISES("STRSIZE", text = endless.text());
    EXPECT_RAISES("STRSIZE", text += endless.text());
    EXPECT_RAISES("STRSIZE", text + endless.text());

    EXPECT_EQ("before", text);
}

TEST(StringSizeTest, GoesOnWithAnEmptyTextWhenTheHandlerReturns) {
    const testing::ReturningHandler handler;
    const Endless endless(TooLarge);
    String text("before");

    text += endless.text();
    EXPECT_EQ("before", text);
    EXPECT_EQ("", text + endless.text());
    EXPECT_EQ("", String(endless.text()));

    EXPECT_EQ(3U, handler.codes().size());
}

}  // namespace
}  // namespace Kes
