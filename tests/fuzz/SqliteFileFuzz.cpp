// SQLite files with changed bytes: they are refused or read, with an error for
// what cannot be, and a process that opens one survives it.
//
// A case is a list of changes of a small database: three bytes of a place, and
// one to put there. A place behind the end cuts the file off.

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include <kes/Kes.h>

#include "tests/fuzz/Input.h"

namespace Kes::fuzz {

namespace {

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

// In memory where there is such a folder: a case writes a file.
class Database {
public:
    Database() {
        std::string pattern =
            (std::filesystem::is_directory("/dev/shm") ? std::filesystem::path("/dev/shm")
                                                       : std::filesystem::temp_directory_path()) /
            "kes-fuzz-XXXXXX";
        demand(mkdtemp(pattern.data()) != nullptr, "no temporary folder");
        folder = pattern;
        file = folder + "/family.db";
        fill();
        std::ifstream in(file, std::ios::binary);
        sound.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        demand(sound.size() > 4096, "an empty database");
    }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    void write(Input& input) const {
        std::string changed = sound;
        while (!input.isEmpty()) {
            std::size_t at = input.number<std::uint8_t>();
            at = at << 8 | input.number<std::uint8_t>();
            at = at << 8 | input.number<std::uint8_t>();
            const auto byte = static_cast<char>(input.number<std::uint8_t>());
            if (at < changed.size())
                changed[at] = byte;
            else
                changed.resize(at % changed.size() + 1);
        }
        for (const char* companion : {"", "-wal", "-shm", "-journal"})
            std::filesystem::remove(file + companion);
        std::ofstream(file, std::ios::binary) << changed;
    }

    void open(Model& model) const {
        model.open("sqlite", file.c_str(), "", "", "synchronous=off;journal_mode=memory");
    }

private:
    void fill() const {
        FamilyModel model;
        open(model);
        Person* last = nullptr;
        for (int i = 0; i < 12; ++i) {
            auto* person = static_cast<Person*>(model.personClass->newInstance());
            person->name = String("Person ") + String(i);
            person->age = 1 << i;
            person->salary = i * 1.5;
            person->picture.setData("picture", i % 8);
            if (last != nullptr && i % 3 != 0)
                person->parent = last;
            if (last != nullptr)
                person->friends.add(last);
            last = person;
        }
        model.commit();
        model.close();
    }

    std::string folder;
    std::string file;
    std::string sound;
};

template <class Work>
void attempt(Work work) {
    try {
        work();
    } catch (const Exception& refused) {
        demand(*refused.getMessage() != '\0', "a refusal without words");
    }
}

void read(FamilyModel& model) {
    Selection people(model.personClass);
    people.where(people["age"] >= 0);
    people.orderBy(people["name"]);
    for (int i = 0; i < 100 && people.next(); ++i) {
        auto* person = static_cast<Person*>(people.value());
        attempt([&] { static_cast<void>(person->parent.get()); });
        attempt([&] { static_cast<void>(person->children.size() + person->friends.size()); });
        attempt([&] { person->refresh(); });
    }
}

void write(FamilyModel& model) {
    model.startTransaction();
    auto* person = static_cast<Person*>(model.personClass->newInstance());
    person->name = "Person 99";
    if (Instance* other = model.getInstance(1, model.personClass))
        other->remove();
    model.commit();
}

}  // namespace

}  // namespace Kes::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace Kes::fuzz;
    static const Database database;
    Input input(data, size);
    database.write(input);
    FamilyModel model;
    attempt([&] {
        database.open(model);
        attempt([&] { read(model); });
        attempt([&] { write(model); });
        model.close();
    });
    return 0;
}
