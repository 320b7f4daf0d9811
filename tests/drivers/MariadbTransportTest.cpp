#include <mutex>
#include <string>
#include <vector>

#include "tests/drivers/MariadbTest.h"
#include "tests/support/DelayingProxy.h"

namespace Kes::testing {

// Changes what a server answers. A packet has the size of its content, a number
// that counts within the answer, and the content.
class AnswerEditor {
public:
    // The next result with more rows has an error behind so many of them.
    void breakOffBehind(int rows, unsigned errorCode, const std::string& words) {
        const std::lock_guard guard(mutex);
        rowsLeft = rows;
        error = errorOf(errorCode, words);
    }

    // Of the answers that say that all is well the one behind so many is an error.
    void failBehind(int answers, unsigned errorCode, const std::string& words) {
        const std::lock_guard guard(mutex);
        answersLeft = answers;
        error = errorOf(errorCode, words);
    }

    // The next answer to a write says that no transaction is open.
    void hideTransaction() {
        const std::lock_guard guard(mutex);
        hides = true;
    }

    bool isDone() {
        const std::lock_guard guard(mutex);
        return !hides && rowsLeft < 0;
    }

    void edit(std::string& bytes) {
        const std::lock_guard guard(mutex);
        if (hides)
            hideIn(bytes);
        if (answersLeft >= 0 && isOk(bytes) && answersLeft-- == 0)
            bytes = packetOf(1, error);
        if (rowsLeft >= 0)
            breakOff(bytes);
    }

private:
    static constexpr std::size_t Header = 4;
    static constexpr unsigned char EndOfRows = 0xFE;

    static std::size_t sizeAt(const std::string& bytes, std::size_t at) {
        std::size_t size = 0;
        for (std::size_t i = 3; i > 0; --i)
            size = size << 8 | static_cast<unsigned char>(bytes[at + i - 1]);
        return size;
    }

    static std::string errorOf(unsigned code, const std::string& words) {
        return std::string("\xFF") + static_cast<char>(code & 255) + static_cast<char>(code >> 8) +
               "#HY000" + words;
    }

    static std::string packetOf(char number, const std::string& content) {
        return static_cast<char>(content.size()) + std::string(2, '\0') + number + content;
    }

    // 0, the number of rows, the last id, the status, and more. What a preparation
    // is answered begins with 0 as well.
    static bool isOk(const std::string& bytes) {
        constexpr std::size_t shortest = 7;
        constexpr std::size_t preparation = 12;
        return bytes.size() >= Header + shortest && bytes[3] == 1 && bytes[Header] == 0 &&
               sizeAt(bytes, 0) != preparation;
    }

    void hideIn(std::string& bytes) {
        constexpr std::size_t rows = Header + 1;
        constexpr std::size_t status = Header + 3;
        if (!isOk(bytes) || bytes[rows] == 0)
            return;
        bytes[status] = static_cast<char>(bytes[status] & ~1);
        hides = false;
    }

    void breakOff(std::string& bytes) {
        held += bytes;
        bytes.clear();
        int ends = 0;
        int rows = -1;
        std::size_t cut = 0;
        std::size_t at = 0;
        while (at + Header < held.size() && at + Header + sizeAt(held, at) <= held.size()) {
            const std::size_t size = sizeAt(held, at);
            const auto kind = static_cast<unsigned char>(held[at + Header]);
            if (at == 0 && (kind == 0 || kind == 0xFF))
                return bytes.swap(held);
            const bool isEnd = kind == EndOfRows && size < 9;
            if (ends == 1 && ++rows == rowsLeft && !isEnd)
                cut = at;
            ends += isEnd ? 1 : 0;
            at += Header + size;
        }
        if (ends < 2)
            return;
        bytes.swap(held);
        held.clear();
        if (cut == 0)
            return;
        const char number = bytes[cut + 3];
        bytes.resize(cut);
        bytes += packetOf(number, error);
        rowsLeft = -1;
    }

    std::mutex mutex;
    std::string held;
    std::string error;
    int rowsLeft = -1;
    int answersLeft = -1;
    bool hides = false;
};

// A network that does what it likes.
class MariadbTransportTest : public MariadbTest {
protected:
    static constexpr int Others = 300;

    MariadbTransportTest() {
        open();
        model.startTransaction();
        ann = model.newPerson("Ann", 30);
        bob = model.newPerson("Bob", 40);
        for (int i = 0; i < Others; ++i)
            model.newPerson("somebody", 50)->employer = model.newCompany("Firm");
        model.commit();
        proxy.rewriteAnswers([this](std::string& bytes) { editor.edit(bytes); });
    }

    void open(const std::string& options = "") {
        const std::string source = "127.0.0.1:" + std::to_string(proxy.port()) + "/" + database();
        model.open("mariadb", source.c_str(), engine->password().c_str(), engine->user().c_str(),
                   options.c_str());
    }

    void openAgain(const std::string& options) {
        ann = nullptr;
        bob = nullptr;
        model.close();
        open(options);
        ann = model.findPerson("Ann");
        bob = model.findPerson("Bob");
    }

    static void change(const Pointer<Person>& person, int age) {
        person->change();
        person->age = age;
    }

    std::string ages() {
        return engine->ask(
            "SELECT group_concat([age] ORDER BY [name]) FROM [Person] "
            "WHERE [name] <> 'somebody'");
    }

    // Later commits are as good as ever.
    void expectUse() {
        EXPECT_EQ(30, ann->age);
        model.startTransaction();
        change(ann, 33);
        EXPECT_EQ("", messageRaisedBy([&] { model.commit(); }));
        EXPECT_EQ("33,40", ages());
    }

    const std::string all = Engine::serverSays("mariadb", "node1/source");
    AnswerEditor editor;
    DelayingProxy proxy{std::stoi(all.substr(all.find(':') + 1))};
    StaffModel model;
    Pointer<Person> ann;
    Pointer<Person> bob;
};

TEST_F(MariadbTransportTest, CommitsNoTransactionThatTheServerHasEndedWithoutAWord) {
    model.startTransaction();
    change(ann, 31);
    editor.hideTransaction();

    const std::string said = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(editor.isDone());
    EXPECT_TRUE(says(said, "updating the Person object")) << said;
    EXPECT_TRUE(says(said, "has ended the transaction without a word")) << said;
    EXPECT_EQ(FailureKind::Conflict, model.getFailureKind());
    EXPECT_TRUE(says(said, "roll back and try again")) << said;
    EXPECT_EQ("30,40", ages());
    expectUse();
}

TEST_F(MariadbTransportTest, CommitsNoTransactionThatTheServerHasEndedOverManyRows) {
    model.startTransaction();
    change(ann, 31);
    change(bob, 41);
    editor.hideTransaction();

    const std::string said = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(editor.isDone());
    EXPECT_TRUE(says(said, "has ended the transaction without a word")) << said;
    EXPECT_EQ(FailureKind::Conflict, model.getFailureKind());
    EXPECT_EQ("30,40", ages());
    expectUse();
}

TEST_F(MariadbTransportTest, TellsAnErrorAmongRowsWithItsWords) {
    SelectionOf<Person> people(model.personClass);
    editor.breakOffBehind(20, 1969, "it took too long");
    int read = 0;

    const std::string said = messageRaisedBy([&] {
        while (people.next())
            ++read;
    });

    EXPECT_GE(20, read);
    EXPECT_TRUE(says(said, "reading Person objects")) << said;
    EXPECT_TRUE(says(said, "it took too long (1969); open with a larger statement_timeout"))
        << said;
    expectUse();
}

TEST_F(MariadbTransportTest, GoesOnInATransactionThatAnErrorHasLeftOpen) {
    openAgain("isolation=repeatable read");
    model.startTransaction();
    ann->lock();
    editor.breakOffBehind(20, 1969, "it took too long");
    SelectionOf<Person> people(model.personClass);

    EXPECT_RAISES("SELERR", while (people.next()) continue;);
    change(ann, 33);
    model.commit();

    EXPECT_EQ("33,40", ages());
}

TEST_F(MariadbTransportTest, EndsTheTransactionOfAConflictAmongRows) {
    openAgain("isolation=serializable");
    model.startTransaction();
    editor.breakOffBehind(20, 1213, "Deadlock found");
    SelectionOf<Person> people(model.personClass);

    const std::string said = messageRaisedBy([&] {
        while (people.next())
            continue;
    });
    EXPECT_EQ(FailureKind::Conflict, model.getFailureKind());
    change(ann, 31);
    const std::string later = messageRaisedBy([&] { model.commit(); });

    EXPECT_EQ(FailureKind::Conflict, model.getFailureKind());
    for (const std::string& each : {said, later})
        EXPECT_TRUE(says(each, "Deadlock found (1213); somebody else came first")) << each;
    EXPECT_EQ("30,40", ages());
    expectUse();
}

// What a node answers that is cut off from its cluster while it commits.
TEST_F(MariadbTransportTest, KnowsNothingOfACommitThatFailedAtTheServer) {
    model.startTransaction();
    change(ann, 33);
    editor.failBehind(2, 1180, "Error while appending");

    const std::string said = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(says(said, "it is not known whether the transaction is stored")) << said;
    EXPECT_TRUE(says(said, "Error while appending (1180)")) << said;
    EXPECT_EQ(FailureKind::UnknownOutcome, model.getFailureKind());
    EXPECT_EQ("33,40", ages());
    EXPECT_TRUE(says(messageRaisedBy([&] { model.findPerson("Ann"); }), "open again and look"));
    EXPECT_EQ(FailureKind::LostConnection, model.getFailureKind());
}

TEST_F(MariadbTransportTest, FindsAConflictBehindRowsThatNobodyReads) {
    openAgain("isolation=serializable");
    model.startTransaction();
    editor.breakOffBehind(Others, 1213, "Deadlock found");
    {
        SelectionOf<Person> people(model.personClass);
        ASSERT_TRUE(people.next());
    }
    change(ann, 31);

    const std::string said = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(editor.isDone());
    EXPECT_TRUE(says(said, "Deadlock found (1213); somebody else came first")) << said;
    EXPECT_EQ("30,40", ages());
    expectUse();
}

TEST_F(MariadbTransportTest, FindsAConflictInWhatItReadsForOthers) {
    openAgain("isolation=serializable");
    std::vector<Pointer<Person>> people;
    for (SelectionOf<Person> each(model.personClass); each.next();)
        people.emplace_back(each.value());
    model.startTransaction();
    editor.breakOffBehind(20, 1213, "Deadlock found");
    const std::string reading = messageRaisedBy([&] {
        for (const Pointer<Person>& person : people)
            person->employer.get();
    });
    change(ann, 31);

    const std::string said = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(editor.isDone());
    for (const std::string& each : {reading, said})
        EXPECT_TRUE(says(each, "Deadlock found (1213); somebody else came first")) << each;
    EXPECT_EQ("30,40", ages());
    people.clear();
    expectUse();
}

TEST_F(MariadbTransportTest, FindsAConflictInRowsThatMakeWay) {
    openAgain("isolation=serializable");
    model.startTransaction();
    editor.breakOffBehind(Others, 1213, "Deadlock found");
    SelectionOf<Person> people(model.personClass);
    ASSERT_TRUE(people.next());

    const std::string said = messageRaisedBy([&] { ann->refresh(); });
    change(ann, 31);
    const std::string later = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(editor.isDone());
    for (const std::string& each : {said, later})
        EXPECT_TRUE(says(each, "Deadlock found (1213); somebody else came first")) << each;
    EXPECT_EQ("30,40", ages());
}

TEST_F(MariadbTransportTest, TellsOfRowsThatTheNetworkLosesInTheMiddle) {
    SelectionOf<Person> people(model.personClass);
    proxy.cutWithinAnswer("Person", 9000);
    people.where(people["age"] > 0);
    int read = 0;

    const std::string said = messageRaisedBy([&] {
        while (people.next())
            ++read;
    });

    EXPECT_GT(Others, read);
    EXPECT_TRUE(says(said, "the connection to the server is lost")) << said;
    EXPECT_EQ(FailureKind::LostConnection, model.getFailureKind());
}

TEST_F(MariadbTransportTest, TellsOfACommitWhoseAnswerNeverComesThatNobodyKnows) {
    openAgain("network_timeout=1");
    model.startTransaction();
    change(ann, 33);
    proxy.swallowAnswer("COMMIT");

    const std::string said = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(says(said, "it is not known whether the transaction is stored")) << said;
    EXPECT_TRUE(says(said, "close, open again and look")) << said;
    EXPECT_EQ(FailureKind::UnknownOutcome, model.getFailureKind());
    EXPECT_EQ(30, ann->age);
    EXPECT_EQ("33,40", ages());
}

}  // namespace Kes::testing
