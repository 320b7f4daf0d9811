// What applications and drivers that were built apart rely on.

#include <gtest/gtest.h>

#include <type_traits>

#include <kes/Blob.h>
#include <kes/Exception.h>
#include <kes/Mutex.h>
#include <kes/PtrList.h>
#include <kes/PtrVector.h>
#include <kes/String.h>
#include <kes/Timestamp.h>
#include <kes/ValList.h>
#include <kes/ValPtrHashtable.h>
#include <kes/ValVector.h>

namespace Kes {
namespace {

template <class T>
class ValueTypeTest : public ::testing::Test {};

using ValueTypes =
    ::testing::Types<String, Blob, Exception, ValVector<String>, ValVector<int>, ValVector<bool>,
                     PtrVector<int>, PtrList<int>, ValList<int>, ValPtrHashtable<String, int>>;
TYPED_TEST_SUITE(ValueTypeTest, ValueTypes);

TYPED_TEST(ValueTypeTest, MayBeDerivedFromAndCopied) {
    EXPECT_TRUE(std::has_virtual_destructor_v<TypeParam>);
    EXPECT_TRUE(std::is_copy_constructible_v<TypeParam>);
    EXPECT_TRUE(std::is_copy_assignable_v<TypeParam>);
}

TEST(TypesTest, HaveAVirtualDestructorWhereTheyHoldSomething) {
    EXPECT_TRUE(std::has_virtual_destructor_v<MutexGuard>);
    EXPECT_TRUE(std::has_virtual_destructor_v<PtrListNode<int>>);
    EXPECT_TRUE(std::has_virtual_destructor_v<ValListNode<int>>);
}

TEST(TypesTest, AreAsLargeAsTheirFields) {
    EXPECT_EQ(sizeof(Blob), 2 * sizeof(void*));
    EXPECT_EQ(sizeof(MutexGuard), 2 * sizeof(void*));
    EXPECT_EQ(sizeof(Timestamp), 2 * sizeof(long));
    EXPECT_EQ(sizeof(PtrList<int>), 4 * sizeof(void*));
    EXPECT_EQ(sizeof(ValVector<int>), 4 * sizeof(void*));
    EXPECT_EQ(sizeof(Exception), 5 * sizeof(void*) + 1024);
}

}  // namespace
}  // namespace Kes
