#include <kes/Blob.h>

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include <kes/Exception.h>

#include "tests/support/Raises.h"

namespace Kes {
namespace {

using testing::ReturningHandler;

std::string bytesOf(const Blob& blob) {
    if (blob.data() == nullptr)
        return "";
    return std::string(static_cast<const char*>(blob.data()),
                       static_cast<std::size_t>(blob.size()));
}

TEST(BlobTest, IsEmptyByDefault) {
    const Blob blob;

    EXPECT_TRUE(blob.isEmpty());
    EXPECT_EQ(blob.size(), 0);
    EXPECT_EQ(blob.data(), nullptr);
}

TEST(BlobTest, IsNotEmptyWithABufferOfNoBytes) {
    const Blob blob("x", 0);

    EXPECT_FALSE(blob.isEmpty());
    EXPECT_EQ(blob.size(), 0);
    EXPECT_EQ(blob.data(), nullptr);
    EXPECT_NE(blob, Blob());
    EXPECT_EQ(blob, Blob(nullptr, 0));
}

TEST(BlobTest, TakesANegativeSizeForNoBytes) {
    const Blob blob("x", -3);

    EXPECT_FALSE(blob.isEmpty());
    EXPECT_EQ(blob.size(), 0);
}

TEST(BlobTest, CopiesAnyBytes) {
    char source[] = {'a', '\0', '\xFF'};
    const Blob blob(source, 3);

    source[0] = 'x';

    EXPECT_EQ(bytesOf(blob), std::string("a\0\xFF", 3));
}

TEST(BlobTest, EqualsABlobOfTheSameBytes) {
    EXPECT_EQ(Blob("abc", 3), Blob("abc", 3));
    EXPECT_NE(Blob("abc", 3), Blob("abd", 3));
    EXPECT_NE(Blob("abc", 3), Blob("ab", 2));
    EXPECT_NE(Blob("abc", 3), Blob());
    EXPECT_NE(Blob(), Blob("abc", 3));
    EXPECT_EQ(Blob(), Blob());
}

TEST(BlobTest, SharesItsBytesWithCopies) {
    const Blob blob("abc", 3);
    const Blob copy(blob);
    Blob assigned("old", 3);
    assigned = blob;

    EXPECT_EQ(copy, blob);
    EXPECT_EQ(copy.data(), blob.data());
    EXPECT_EQ(assigned.data(), blob.data());
}

TEST(BlobTest, SharesItsBytesWithVeryManyCopies) {
    const Blob blob("abc", 3);
    {
        const std::vector<Blob> copies(200000, blob);
        EXPECT_EQ(copies.back().data(), blob.data());
    }

    EXPECT_EQ(bytesOf(blob), "abc");
}

TEST(BlobTest, OutlivesTheBlobItWasCopiedFrom) {
    Blob copy;
    {
        const Blob blob("abc", 3);
        copy = blob;
    }

    EXPECT_EQ(bytesOf(copy), "abc");
}

TEST(BlobTest, SurvivesItsOwnAssignment) {
    Blob blob("abc", 3);
    const Blob& same = blob;

    blob = same;

    EXPECT_EQ(bytesOf(blob), "abc");
}

TEST(BlobTest, BecomesEmptyWhenAnEmptyOneIsAssigned) {
    Blob blob("abc", 3);

    blob = Blob();

    EXPECT_TRUE(blob.isEmpty());
}

TEST(BlobTest, LeavesSharersAloneWhenItChanges) {
    Blob blob("abc", 3);
    const Blob sharer(blob);

    blob.setData("xy", 2);
    EXPECT_EQ(bytesOf(blob), "xy");
    EXPECT_EQ(bytesOf(sharer), "abc");

    blob = sharer;
    blob.addData("d", 1);
    EXPECT_EQ(bytesOf(blob), "abcd");
    EXPECT_EQ(bytesOf(sharer), "abc");

    blob = sharer;
    blob.setEmpty();
    EXPECT_TRUE(blob.isEmpty());
    EXPECT_EQ(bytesOf(sharer), "abc");
}

TEST(BlobTest, TakesAPartOfItsOwnBytes) {
    Blob blob("abcdef", 6);

    blob.setData(static_cast<const char*>(blob.data()) + 2, 3);
    EXPECT_EQ(bytesOf(blob), "cde");

    blob.addData(blob.data(), blob.size());
    EXPECT_EQ(bytesOf(blob), "cdecde");
}

TEST(BlobTest, AddsBehindTheOldBytes) {
    Blob blob("ab", 2);

    blob.addData("cde", 3);

    EXPECT_EQ(blob.size(), 5);
    EXPECT_EQ(bytesOf(blob), "abcde");
}

TEST(BlobTest, CountsAsNoBytesWhenAddedToEmpty) {
    Blob blob;

    blob.addData("ab", 2);
    EXPECT_EQ(bytesOf(blob), "ab");

    Blob nothing;
    nothing.addData(nullptr, 0);
    EXPECT_FALSE(nothing.isEmpty());
    EXPECT_EQ(nothing.size(), 0);
}

TEST(BlobTest, AddsNothingForANegativeSize) {
    Blob blob("ab", 2);

    blob.addData("cd", -1);

    EXPECT_EQ(bytesOf(blob), "ab");
}

TEST(BlobTest, RefusesMoreBytesThanAnIntCounts) {
    Blob blob("ab", 2);

    EXPECT_RAISES("BLOBSIZE", blob.addData("cd", INT_MAX - 1));

    EXPECT_EQ(bytesOf(blob), "ab");
}

TEST(BlobTest, StaysAsItWasWhenTheHandlerReturnsFromARefusal) {
    const ReturningHandler handler;
    Blob blob("ab", 2);

    blob.addData("cd", INT_MAX);

    EXPECT_EQ(handler.codes(), std::vector<std::string>{"BLOBSIZE"});
    EXPECT_EQ(bytesOf(blob), "ab");
}

}  // namespace
}  // namespace Kes
