// SQLite files that others have changed or damaged: they are refused or read, with
// an error for what cannot be, and a process that opens one survives it. What comes
// out of a file is what SQLite itself finds there, and a refusal changes nothing.
//
// A case is how the file is opened, what lies beside it, and a list of changes.

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <optional>
#include <set>

#include <kes/Kes.h>

#include "tests/fuzz/SqliteImage.h"

namespace Kes::fuzz {

namespace {

constexpr int MostRows = 100;

class Person final : public Instance {
public:
    explicit Person(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleString("name", name, 0);
        h->handleInt("age", age);
        h->handleDouble("salary", salary);
        h->handleTimestamp("born", born);
        h->handleBlob("picture", picture);
        h->handleBool("flag", flag);
        h->handleOneAssociated("Family", "parent", &parent, Association::Unlink);
        h->handleManyAssociated("Family", "children", &children);
        h->handleManyAssociated("Friendship", "friends", &friends);
        h->handleManyAssociated("Friendship", "friendOf", &friendOf);
    }

    String name;
    int age = 0;
    double salary = 0;
    Timestamp born{2000, 1, 1, 0, 0, 0};
    Blob picture;
    bool flag = false;
    One<Person> parent{this};
    Many<Person> children{this};
    Many<Person> friends{this};
    Many<Person> friendOf{this};
};

class FamilyModel final : public Model {
public:
    FamilyModel() : Model("family", 1000) {}

    Class* personClass = nullptr;

protected:
    void declareModel() override {
        setVersion(1);
        personClass = addClass("Person", 1, [](Class* c) -> Instance* { return new Person(c); });
        personClass->addIndex("name", false);
    }
};

// What SQLite's own interface finds in a column, with the kind of it.
std::string valueAt(sqlite3_stmt* row, int column) {
    const int kind = sqlite3_column_type(row, column);
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(row, column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(row, column));
    return std::to_string(kind) + ':' + (bytes != nullptr ? std::string(bytes, size) : "");
}

std::string asText(const std::string& text) {
    return std::to_string(SQLITE_TEXT) + ':' + text;
}

std::string asInteger(long number) {
    return std::to_string(SQLITE_INTEGER) + ':' + std::to_string(number);
}

using Values = std::vector<std::string>;

// The plain fields as the library shows them; the real number by itself.
Values valuesOf(const Person& person) {
    const std::string bytes(static_cast<const char*>(person.picture.data()),
                            static_cast<std::size_t>(person.picture.size()));
    const std::string born = static_cast<const char*>(person.born.asString("%Y-%m-%d %H:%M:%S"));
    return {asInteger(static_cast<long>(person.getVersion())),
            asText(static_cast<const char*>(person.name)),
            asInteger(person.age),
            asText(std::string(born.size() < 19 ? 19 - born.size() : 0, '0') + born),
            person.picture.isEmpty() ? std::to_string(SQLITE_NULL) + ':'
                                     : std::to_string(SQLITE_BLOB) + ':' + bytes,
            asInteger(person.flag ? 1 : 0)};
}

struct Row {
    Values values;
    double salary = 0;
    std::string parent;

    bool shows(const Person& person) const {
        return values == valuesOf(person) && salary == person.salary;
    }
};

using Links = std::multiset<std::pair<std::string, std::string>>;

/// All that is stored, without the library's help.
struct Content {
    explicit Content(const std::string& file) {
        const Database database = openPlainly(file);
        isWhole = readPeople(database.get()) && readLinks(database.get());
    }

    bool shows(const Person& person) const {
        const auto [first, last] = rows.equal_range(asInteger(idOf(person)));
        return std::any_of(first, last, [&](const auto& row) { return row.second.shows(person); });
    }

    static long idOf(const Person& person) { return static_cast<long>(person.getObjectID()); }

    std::multimap<std::string, Row> rows;  // by their ids
    Links links;
    bool isWhole = false;  // nothing was damaged on the way

private:
    template <class Work>
    static bool forEach(sqlite3* database, const char* query, Work work) {
        sqlite3_stmt* statement = nullptr;
        bool isGood = sqlite3_prepare_v2(database, query, -1, &statement, nullptr) == SQLITE_OK;
        int code = SQLITE_DONE;
        for (int i = 0; isGood && i <= MostRows; ++i) {
            code = sqlite3_step(statement);
            if (code != SQLITE_ROW)
                break;
            work(statement);
        }
        sqlite3_finalize(statement);
        return isGood && code == SQLITE_DONE;
    }

    bool readPeople(sqlite3* database) {
        return forEach(database,
                       "SELECT KesObjectID, KesVersion, name, age, born, picture, flag, salary, "
                       "parent FROM Person NOT INDEXED",
                       [&](sqlite3_stmt* row) {
                           Row found;
                           for (int i = 1; i < 7; ++i)
                               found.values.push_back(valueAt(row, i));
                           found.salary = sqlite3_column_double(row, 7);
                           found.parent = valueAt(row, 8);
                           rows.emplace(valueAt(row, 0), found);
                       });
    }

    bool readLinks(sqlite3* database) {
        return forEach(database, "SELECT friendOf, friends FROM Friendship",
                       [&](auto* row) { links.emplace(valueAt(row, 0), valueAt(row, 1)); });
    }
};

// In memory where there is such a folder: a case writes a file.
class Files {
public:
    Files() {
        std::string pattern =
            (std::filesystem::is_directory("/dev/shm") ? std::filesystem::path("/dev/shm")
                                                       : std::filesystem::temp_directory_path()) /
            "kes-fuzz-XXXXXX";
        demand(mkdtemp(pattern.data()) != nullptr, "no temporary folder");
        folder = pattern;
        path = folder + "/family.db";
        demand(execute(makeEmpty().get(), "PRAGMA page_size=512; VACUUM"), "no small pages");
        fill();
        images[0] = Image::of(path);
        demand(images[0].file.size() > 4096, "an empty database");
        images[1] = whileWriting();
        images[2] = afterLogging();
    }
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;
    ~Files() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    void open(Model& model, const char* options) const {
        model.open("sqlite", path.c_str(), "", "", options);
    }

    std::string path;
    Image images[3];  // as it is, with a transaction's journal, and with a log

private:
    Database makeEmpty() const {
        sqlite3* opened = nullptr;
        demand(sqlite3_open(path.c_str(), &opened) == SQLITE_OK, "no database");
        return Database(opened);
    }

    void fill() const {
        FamilyModel model;
        open(model, "synchronous=off;journal_mode=memory");
        Person* last = nullptr;
        for (int i = 0; i < 12; ++i) {
            auto* person = static_cast<Person*>(model.personClass->newInstance());
            person->name = String("Person ") + String(i);
            person->age = 1 << i;
            person->salary = i * 1.5;
            if (i % 4 != 0)
                person->picture.setData(std::string(600, 'p').data(), i == 11 ? 600 : i % 8);
            person->flag = i % 3 == 0;
            if (last != nullptr && i % 3 != 0)
                person->parent = last;
            if (last != nullptr)
                person->friends.add(last);
            last = person;
        }
        model.commit();
        model.close();
    }

    // As a process leaves it that dies in a commit, half of which is written.
    Image whileWriting() const {
        const Database writer = openPlainly(path);
        demand(execute(writer.get(),
                       "PRAGMA cache_size=1; PRAGMA cache_spill=1; BEGIN; UPDATE Person SET age=0, "
                       "picture=zeroblob(400); UPDATE Person SET flag=1; DELETE FROM Friendship"),
               "no transaction");
        Image image = Image::of(path);
        demand(!image.journal.empty() && image.file != images[0].file, "no hot journal");
        return image;
    }

    Image afterLogging() const {
        images[0].write(path);
        const Database writer = openPlainly(path);
        demand(execute(writer.get(),
                       "PRAGMA journal_mode=wal; PRAGMA wal_autocheckpoint=0; UPDATE Person SET "
                       "age=age+1, KesVersion=KesVersion+1; UPDATE Person SET flag=1"),
               "no log");
        Image image = Image::of(path);
        demand(!image.log.empty(), "an empty log");
        return image;
    }

    std::string folder;
};

/// Whether the work was done; otherwise it was refused.
template <class Work>
bool attempt(Work work) {
    try {
        work();
        return true;
    } catch (const Exception& refused) {
        demand(*refused.getMessage() != '\0', "a refusal without words");
        return false;
    }
}

std::string nameOf(const Person& person) {
    return "person " + std::to_string(person.getObjectID());
}

// A reference shows the partner that is stored, or is refused. To an object that is
// not there it shows nobody.
void checkParent(const Person& person, const Row& row, const Content& content) {
    const Person* parent = nullptr;
    if (!attempt([&] { parent = person.parent.get(); }))
        return;
    const bool isNobody =
        row.parent == std::to_string(SQLITE_NULL) + ':' || content.rows.count(row.parent) == 0;
    demand(parent != nullptr ? row.parent == asInteger(Content::idOf(*parent)) : isNobody,
           nameOf(person) + " has another parent");
}

// Of two rows with one id the object shows one, which may have another parent.
void checkChildren(const Person& person, const Content& content) {
    const auto isOne = [&](const std::string& id) { return content.rows.count(id) < 2; };
    std::multiset<std::string> shown;
    if (!attempt([&] {
            for (const Person* child : person.children)
                if (const std::string id = asInteger(Content::idOf(*child)); isOne(id))
                    shown.insert(id);
        }))
        return;
    std::multiset<std::string> stored;
    for (const auto& [id, row] : content.rows)
        if (row.parent == asInteger(Content::idOf(person)) && isOne(id))
            stored.insert(id);
    demand(shown == stored, nameOf(person) + " has other children");
}

// A link to nobody is passed over or refused.
void checkFriends(const Person& person, const Content& content) {
    std::set<std::string> shown;
    if (!attempt([&] {
            for (const Person* each : person.friends)
                shown.insert(asInteger(Content::idOf(*each)));
        }))
        return;
    std::set<std::string> stored;
    for (const auto& [friendOf, friends] : content.links)
        if (friendOf == asInteger(Content::idOf(person)) && content.rows.count(friends) != 0)
            stored.insert(friends);
    demand(shown == stored, nameOf(person) + " has other friends");
}

// Through no index: a damaged one may contradict the table.
void checkAll(FamilyModel& model, const Content& content, bool isSound) {
    Selection people(model.personClass);
    std::vector<Pointer<Person>> read;
    const bool isRead = attempt([&] {
        for (int i = 0; i < MostRows && people.next(); ++i) {
            auto* person = static_cast<Person*>(people.value());
            demand(content.shows(*person), nameOf(*person) + " is not as it is stored");
            read.emplace_back(person);
        }
    });
    if (!isSound)
        return;
    if (isRead && content.isWhole)
        demand(read.size() == content.rows.size(), "people are left out");
    for (const Pointer<Person>& each : read) {
        const auto [row, end] = content.rows.equal_range(asInteger(Content::idOf(*each)));
        // Of two rows with one id nobody can tell which is meant.
        if (std::distance(row, end) == 1)
            checkParent(*each, row->second, content);
        checkChildren(*each, content);
        checkFriends(*each, content);
    }
}

void readInOrder(FamilyModel& model) {
    Selection people(model.personClass);
    people.where(people["age"] >= 0);
    people.orderBy(people["name"]);
    for (int i = 0; i < MostRows && people.next(); ++i) {
        auto* person = static_cast<Person*>(people.value());
        attempt([&] { static_cast<void>(person->parent.get()); });
        attempt([&] { static_cast<void>(person->children.size() + person->friends.size()); });
        attempt([&] { person->refresh(); });
    }
}

// `newcomer` becomes the id of the new object.
void writeSome(FamilyModel& model, unsigned long& newcomer) {
    model.startTransaction();
    auto* person = static_cast<Person*>(model.personClass->newInstance());
    person->name = "Person 99";
    newcomer = person->getObjectID();
    Instance* other = model.getInstance(1, model.personClass);
    if (other != nullptr && other != person)
        other->remove();
    model.commit();
}

bool hasNewcomer(const Content& content) {
    return std::any_of(content.rows.begin(), content.rows.end(), [](const auto& row) {
        return row.second.values.at(1) == asText("Person 99");
    });
}

// All of a transaction is stored, or nothing of it. Where ids were set back in a table
// without a key, the new object takes the place of the one with its id, which is then
// not removed.
void checkWritten(const Content& before, const Content& after, bool isWritten,
                  unsigned long newcomer) {
    const std::size_t removed = newcomer == 1 ? 0 : before.rows.count(asInteger(1));
    if (!before.isWhole || !after.isWhole || hasNewcomer(before) || removed > 1)
        return;
    const bool isSame = before.links == after.links && before.rows.size() == after.rows.size() &&
                        hasNewcomer(after) == hasNewcomer(before);
    demand(isWritten || isSame, "a commit that was refused is stored");
    const std::size_t rows = before.rows.size() + 1 - removed;
    demand(!isWritten || (hasNewcomer(after) && after.rows.size() == rows),
           "a commit is not stored");
}

/// The library's own tables, before it has seen them.
struct OwnTables {
    explicit OwnTables(const std::string& file) {
        const Database database = openPlainly(file);
        sqlite3_stmt* asking = nullptr;
        sqlite3_prepare_v2(database.get(),
                           "SELECT 1 FROM kes_versions WHERE typeof(version) <> 'integer' OR "
                           "version NOT BETWEEN -2147483648 AND 2147483647",
                           -1, &asking, nullptr);
        isThere = asking != nullptr;
        hasNonsense = sqlite3_step(asking) == SQLITE_ROW;
        sqlite3_finalize(asking);
    }

    bool isThere;
    bool hasNonsense;  // which would be taken for a very old version
};

const char* const Openings[] = {
    "synchronous=off;journal_mode=memory", "synchronous=off;journal_mode=delete",
    "synchronous=off;journal_mode=wal", "synchronous=off;readonly=true"};

void useModel(const Files& files, const Image& before, const char* options,
              const Changes& changes) {
    FamilyModel model;
    const bool isAlone = before.journal.empty() && before.log.empty();
    std::optional<OwnTables> own;
    if (isAlone)
        own.emplace(files.path);
    const bool isOpen = attempt([&] { files.open(model, options); });
    // What keeps a log is said in the file itself, and its own tables the library
    // makes before the others.
    const bool keepsLog =
        options == Openings[2] || (before.file.size() > 18 && before.file[18] != 1);
    if (!isOpen && own && own->isThere && !keepsLog)
        demand(Image::of(files.path) == before, "a refusal that changes the file");
    if (!isOpen)
        return;
    demand(!changes.isSound() || !own || !own->hasNonsense,
           "a version that is none is passed over");
    const Content content(files.path);
    checkAll(model, content, changes.isSound());
    attempt([&] { readInOrder(model); });
    unsigned long newcomer = 0;
    const bool isWritten = attempt([&] { writeSome(model, newcomer); });
    if (changes.isSound() && !changes.hasTrigger())
        checkWritten(content, Content(files.path), isWritten, newcomer);
    model.close();
}

// Nothing was changed: everything is there, but for what is only to be read.
void demandWhole(const Files& files, std::size_t image, bool isReadOnly) {
    FamilyModel model;
    files.open(model, Openings[isReadOnly ? 3 : 0]);
    Selection people(model.personClass);
    int count = 0;
    for (; people.next(); ++count) {
        const auto* person = static_cast<Person*>(people.value());
        const int number = static_cast<int>(person->getObjectID()) - 1;
        demand(person->age == (1 << number) + (image == 2 ? 1 : 0), "another age");
    }
    demand(count == 12, "people are missing");
    model.close();
}

}  // namespace

}  // namespace Kes::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace Kes::fuzz;
    static const Files files;
    Input input(data, size);
    const unsigned opening = input.choice(4);
    const unsigned image = input.choice(3);
    const Changes changes(input);
    const Image before = changes.apply(files.images[image]);
    before.write(files.path);
    if (changes.isEmpty()) {
        demandWhole(files, image, opening == 3 && image == 0);
        before.write(files.path);
    }
    attempt([&] { useModel(files, before, Openings[opening], changes); });
    return 0;
}
