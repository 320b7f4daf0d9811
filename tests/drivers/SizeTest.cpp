#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/drivers/DriverTest.h"
#include "tests/drivers/PaperModel.h"
#include "tests/support/Raises.h"

namespace Kes::testing {

class SizeTest : public DriverTest {
protected:
    SizeTest() {
        open(model);
        model.startTransaction();
    }

    static constexpr int Hundred = 100000000;

    // Text of that many bytes, of one to four for each character.
    static std::string textOf(std::size_t size) {
        const char* const characters[] = {"a", "'", "\\", "ß", "€", "\xF0\x9F\x98\x80"};
        std::mt19937 random(1);
        std::string text;
        text.reserve(size);
        while (text.size() + 4 <= size)
            text += characters[random() % 6];
        return text.append(size - text.size(), 'z');
    }

    // The only object, as another session reads it.
    Paper* reload() {
        open(other);
        Selection all(other.paperClass);
        EXPECT_TRUE(all.next());
        loaded = static_cast<Paper*>(all.value());
        return loaded;
    }

    // The commit fails for the size of a field, nothing is stored, and the model
    // goes on.
    void expectRefusal(const Pointer<Paper>& paper, const std::string& field,
                       const std::string& why) {
        const std::string id = std::to_string(paper->getObjectID());

        const std::string said = messageRaisedBy([&] { model.commit(); });

        EXPECT_TRUE(says(said, "inserting the Paper object " + id)) << said;
        EXPECT_TRUE(says(said, field)) << said;
        EXPECT_TRUE(says(said, why)) << said;
        EXPECT_EQ("0", ask("SELECT count(*) FROM [Paper]"));
        model.startTransaction();
        model.newPaper("small")->scans[0] = scanOf(1000);
        model.commit();
        EXPECT_EQ(scanOf(1000), reload()->scans[0]);
    }

    PaperModel model;
    PaperModel other;
    Pointer<Paper> loaded;
};

TEST_F(SizeTest, KeepsALargeChangeOrRefusesIt) {
    const Pointer<Paper> paper(model.newPaper("small"));
    model.commit();
    model.startTransaction();
    paper->change();
    paper->scans[3] = scanOf(17000000);
    const Blob scan = paper->scans[3];

    const std::string said = messageRaisedBy([&] { model.commit(); });

    EXPECT_EQ(engine->mostBytes() >= 17000000, said.empty()) << said;
    EXPECT_EQ(said.empty(), paper->scans[3] == scan);
    EXPECT_EQ(paper->scans[3], reload()->scans[3]);
    EXPECT_EQ(paper->getVersion(), loaded->getVersion());
}

TEST_F(SizeTest, RefusesAnObjectBeyondTheLimitThoughEachFieldIsWithin) {
    const Pointer<Paper> paper(model.newPaper());
    const Blob scan = scanOf(Hundred);
    for (Blob& each : paper->scans)
        each = scan;

    expectRefusal(paper, "scan", engine->sizeLimit());
}

TEST_F(SizeTest, KeepsATextOf16Megabytes) {
    const std::string text = textOf(16000000);
    model.newPaper()->body = text.c_str();
    model.commit();

    EXPECT_TRUE(text == static_cast<const char*>(reload()->body));
    Selection same(other.paperClass);
    same.where(same["body"] == text.c_str());
    EXPECT_TRUE(same.next());
}

TEST_F(SizeTest, KeepsOrRefusesATextBeyond16Megabytes) {
    const std::string text = textOf(17000000);
    const Pointer<Paper> paper(model.newPaper());
    paper->body = text.c_str();
    if (engine->mostBytes() < text.size())
        return expectRefusal(paper, "body", engine->sizeLimit());

    model.commit();

    EXPECT_TRUE(text == static_cast<const char*>(reload()->body));
}

// --- texts of indexed fields ---

class IndexedTextTest : public SizeTest, public ::testing::WithParamInterface<const char*> {
protected:
    // Long ones, of which an index holds a part at most.
    static std::string longText(char last) {
        const std::string start =
            std::string(GetParam()) == "dense" ? textOf((1 << 20) - 1) : std::string(1048575, 'x');
        return start + last;
    }
};

TEST_P(IndexedTextTest, IsKeptExactlyOrRefused) {
    const std::string text = longText('b');
    const Pointer<Paper> paper(model.newPaper("a"));
    paper->title = text.c_str();
    if (!engine->indexesLongTexts())
        return expectRefusal(paper, "index", "shorten the text");

    model.newPaper(longText('a').c_str());
    model.newPaper("b");
    model.newPaper("");
    model.commit();

    open(other);
    Selection same(other.paperClass);
    same.where(same["title"] == text.c_str());
    ASSERT_TRUE(same.next());
    EXPECT_TRUE(text == static_cast<const char*>(static_cast<Paper*>(same.value())->title));
    EXPECT_FALSE(same.next());
}

TEST_P(IndexedTextTest, IsSortedAmongOthers) {
    const std::string start = textOf(engine->indexesLongTexts() ? 80000 : 600);
    const std::string long_ = engine->indexesLongTexts() ? longText('b') : start + "b";
    for (const std::string& title :
         std::vector<std::string>{start + "zz", "", long_, "€", start, "A", start + "a"})
        model.newPaper(title.c_str());
    model.commit();
    open(other);
    Selection sorted(other.paperClass);
    sorted.orderBy(sorted["title"]);

    std::vector<std::string> titles;
    while (sorted.next())
        titles.emplace_back(static_cast<const char*>(static_cast<Paper*>(sorted.value())->title));

    EXPECT_EQ(7U, titles.size());
    EXPECT_TRUE(std::is_sorted(titles.begin(), titles.end()));
}

TEST_P(IndexedTextTest, IsKeptWhenTheIndexIsMadeLaterOrTheUpgradeIsRefused) {
    model.rollback();
    model.close();
    run("DELETE FROM kes_versions WHERE kind <> 'FORMAT'");
    run("DROP TABLE [Paper]");
    PaperModel old(1, false);
    open(old);
    old.startTransaction();
    const std::string text = longText('a');
    old.newPaper(text.c_str());
    old.commit();
    old.close();
    PaperModel upgraded(2);

    const std::string said = messageRaisedBy([&] { open(upgraded); });

    EXPECT_EQ(engine->indexesLongTexts(), said.empty()) << said;
    EXPECT_TRUE(said.empty() || says(said, "Paper")) << said;
    EXPECT_TRUE(said.empty() || says(said, "index")) << said;
    EXPECT_EQ(said.empty() ? "2" : "1",
              ask("SELECT version FROM kes_versions WHERE kind = 'MODEL'"));
    PaperModel reader(said.empty() ? 2 : 1, said.empty());
    open(reader);
    Selection all(reader.paperClass);
    ASSERT_TRUE(all.next());
    EXPECT_TRUE(text == static_cast<const char*>(static_cast<Paper*>(all.value())->title));
}

INSTANTIATE_TEST_SUITE_P(Long, IndexedTextTest, ::testing::Values("dense", "compressible"));

}  // namespace Kes::testing
