// Changes that are announced after their assignment are found by a digest of
// what was read, so nobody may choose two values that it takes for one.

#include <gtest/gtest.h>

#include <set>

#include <kes/Kes.h>

#include "transaction/KeyedDigest.h"

namespace Kes::testing {

namespace {

class Pair final : public Instance {
public:
    explicit Pair(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleLong("first", first);
        h->handleLong("second", second);
    }

    long first = 0;
    long second = 0;
};

class PairModel final : public Model {
public:
    PairModel() : Model("pairs", 1000) { open("sqlite", ":memory:", "", "", ""); }

    Class* pairClass = nullptr;

protected:
    void declareModel() override {
        setVersion(1);
        pairClass = addClass("Pair", 1, [](Class* c) -> Instance* { return new Pair(c); });
    }
};

constexpr KeyedDigest::Key SomeKey{1, 2};

std::uint64_t digestOf(const KeyedDigest::Key& key, const std::string& bytes) {
    KeyedDigest digest(key);
    digest.addBytes(bytes.data(), bytes.size());
    return digest.finish();
}

}  // namespace

// The two pairs agree in a mix of multiplications with a start that is known.
TEST(FieldDigestTest, FindsAChangeBetweenValuesThatWereChosenToLookAlike) {
    PairModel model;
    const Pointer<Pair> pair(static_cast<Pair*>(model.pairClass->newInstance()));
    pair->first = 100;
    pair->second = 5;
    model.commit();

    pair->first = 1000000;
    pair->second = -7856431568647413692;
    pair->change();
    model.commit();
    pair->first = pair->second = 0;
    Selection stored(model.pairClass);
    stored.where((stored["first"] == 1000000L) & (stored["second"] == -7856431568647413692L));

    EXPECT_TRUE(stored.next());
}

TEST(KeyedDigestTest, TellsTheSameBytesApartByTheKey) {
    EXPECT_EQ(digestOf(SomeKey, "Smith"), digestOf(SomeKey, "Smith"));
    EXPECT_NE(digestOf(SomeKey, "Smith"), digestOf({1, 3}, "Smith"));
    EXPECT_NE(digestOf(SomeKey, "Smith"), digestOf({3, 2}, "Smith"));
}

TEST(KeyedDigestTest, DrawsAnotherKeyEachTime) {
    const auto one = KeyedDigest::Key::draw();
    const auto other = KeyedDigest::Key::draw();

    EXPECT_TRUE(one.first != other.first && one.second != other.second);
}

TEST(KeyedDigestTest, TellsSequencesApartThatLieAlikeInMemory) {
    std::set<std::uint64_t> digests;
    for (const char* first : {"", "a", "ab", "abcdefgh", "abcdefghi"})
        for (const char* second : {"", "a", "b", "bc", "i"}) {
            KeyedDigest digest(SomeKey);
            digest.addBytes(first, std::strlen(first));
            digest.addBytes(second, std::strlen(second));
            digests.insert(digest.finish());
        }

    EXPECT_EQ(25U, digests.size());
}

// Each bit of the input turns about half of the output.
TEST(KeyedDigestTest, SpreadsEveryBitOverTheWholeDigest) {
    KeyedDigest plain(SomeKey);
    plain.add(0);
    const std::uint64_t before = plain.finish();
    for (int bit = 0; bit < 64; ++bit) {
        KeyedDigest changed(SomeKey);
        changed.add(std::uint64_t{1} << bit);
        const int turned = std::popcount(changed.finish() ^ before);

        EXPECT_GT(turned, 10) << "bit " << bit;
        EXPECT_LT(turned, 54) << "bit " << bit;
    }
}

}  // namespace Kes::testing
