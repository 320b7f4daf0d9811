// The staff circuit by hand, over SQLite's C interface: prepared statements
// kept for the whole run, the same tables, columns and indexes, rows read into
// structs. It has no identity map.

#include <sqlite3.h>

#include <cstring>
#include <memory>
#include <stdexcept>

#include "bench/staff/StaffPrograms.h"

namespace bench {

namespace {

struct Person {
    std::int64_t id;
    std::int64_t version;
    std::string name;
    int age;
    double salary;
    bool active;
    long hired;
    std::int64_t employer;
};

struct Company {
    std::int64_t id;
    std::int64_t version;
    std::string name;
    std::string city;
};

struct Vehicle {
    std::int64_t id;
    std::int64_t version;
    std::string name;
    int year;
    int doors;
    double draft;
    long load;
};

class Database {
public:
    explicit Database(const std::string& file) {
        check(sqlite3_open(file.c_str(), &handle));
        run("PRAGMA journal_mode=WAL");
        run("PRAGMA synchronous=NORMAL");
    }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database() { sqlite3_close(handle); }

    void run(const char* text) { check(sqlite3_exec(handle, text, nullptr, nullptr, nullptr)); }
    void check(int code) const {
        if (code != SQLITE_OK && code != SQLITE_DONE && code != SQLITE_ROW)
            throw std::runtime_error(handle != nullptr ? sqlite3_errmsg(handle) : "no memory");
    }
    int changes() const { return sqlite3_changes(handle); }

    sqlite3* handle = nullptr;
};

class Query {
public:
    Query(Database& itsDatabase, const char* text) : database(itsDatabase) {
        database.check(sqlite3_prepare_v3(database.handle, text, -1, SQLITE_PREPARE_PERSISTENT,
                                          &statement, nullptr));
    }
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;
    ~Query() { sqlite3_finalize(statement); }

    void bind(int at, std::int64_t value) { sqlite3_bind_int64(statement, at, value); }
    void bind(int at, double value) { sqlite3_bind_double(statement, at, value); }
    void bind(int at, const std::string& text) {
        sqlite3_bind_text(statement, at, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    }
    void bindNull(int at) { sqlite3_bind_null(statement, at); }

    bool next() {
        const int code = sqlite3_step(statement);
        database.check(code);
        if (code == SQLITE_ROW)
            return true;
        sqlite3_reset(statement);
        return false;
    }
    void execute() {
        while (next())
            continue;
    }
    void reset() { sqlite3_reset(statement); }

    std::int64_t integer(int at) { return sqlite3_column_int64(statement, at); }
    double real(int at) { return sqlite3_column_double(statement, at); }
    std::string text(int at) {
        const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement, at));
        return std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement, at)));
    }

private:
    Database& database;
    sqlite3_stmt* statement = nullptr;
};

constexpr const char* PersonColumns =
    "SELECT id, version, name, age, salary, active, hired, employer FROM Person";

void makeTables(Database& database) {
    database.run(
        "CREATE TABLE Company (id INTEGER PRIMARY KEY, version INTEGER NOT NULL, name TEXT NOT "
        "NULL, city TEXT NOT NULL);"
        "CREATE TABLE Person (id INTEGER PRIMARY KEY, version INTEGER NOT NULL, name TEXT NOT "
        "NULL, age INTEGER NOT NULL, salary REAL NOT NULL, active INTEGER NOT NULL, hired "
        "INTEGER NOT NULL, employer INTEGER);"
        "CREATE INDEX Person_employer ON Person (employer);"
        "CREATE INDEX Person_age ON Person (age);"
        "CREATE TABLE Car (id INTEGER PRIMARY KEY, version INTEGER NOT NULL, name TEXT NOT NULL, "
        "year INTEGER NOT NULL, doors INTEGER NOT NULL);"
        "CREATE TABLE Boat (id INTEGER PRIMARY KEY, version INTEGER NOT NULL, name TEXT NOT "
        "NULL, year INTEGER NOT NULL, draft REAL NOT NULL);"
        "CREATE TABLE Van (id INTEGER PRIMARY KEY, version INTEGER NOT NULL, name TEXT NOT NULL, "
        "year INTEGER NOT NULL, load INTEGER NOT NULL);"
        "CREATE INDEX Car_name ON Car (name);"
        "CREATE INDEX Boat_name ON Boat (name);"
        "CREATE INDEX Van_name ON Van (name);");
}

bool hasTables(Database& database) {
    Query asking(database, "SELECT 1 FROM sqlite_schema WHERE name = 'Person'");
    return asking.next();
}

Person read(Query& row) {
    Person person;
    person.id = row.integer(0);
    person.version = row.integer(1);
    person.name = row.text(2);
    person.age = static_cast<int>(row.integer(3));
    person.salary = row.real(4);
    person.active = row.integer(5) != 0;
    person.hired = row.integer(6);
    person.employer = row.integer(7);
    return person;
}

void bindPerson(Query& query, const PersonData& data) {
    query.bind(2, std::int64_t{0});
    query.bind(3, data.name);
    query.bind(4, std::int64_t{data.age});
    query.bind(5, data.salary);
    query.bind(6, std::int64_t{data.active ? 1 : 0});
    query.bind(7, std::int64_t{data.hired});
}

constexpr const char* InsertPerson = "INSERT INTO Person VALUES (?, ?, ?, ?, ?, ?, ?, ?)";

Result insertAll(Database& database, const StaffData& data, const Clock& clock) {
    Result result;
    Query insertCompany(database, "INSERT INTO Company VALUES (?, 0, ?, ?)");
    Query insertPerson(database, InsertPerson);
    clock.start();
    database.run("BEGIN");
    std::int64_t id = 0;
    for (const CompanyData& each : data.companies) {
        insertCompany.bind(1, ++id);
        insertCompany.bind(2, each.name);
        insertCompany.bind(3, each.city);
        insertCompany.execute();
    }
    for (const PersonData& each : data.persons) {
        insertPerson.bind(1, ++id);
        bindPerson(insertPerson, each);
        insertPerson.bind(8, std::int64_t{each.company} + 1);
        insertPerson.execute();
        ++result.count;
    }
    database.run("COMMIT");
    clock.stop();
    return result;
}

std::vector<std::unique_ptr<Person>> loadAll(Database& database) {
    std::vector<std::unique_ptr<Person>> loaded;
    Query all(database, PersonColumns);
    while (all.next())
        loaded.push_back(std::make_unique<Person>(read(all)));
    return loaded;
}

Result loadPersons(Database& database, const Clock& clock) {
    Result result;
    clock.start();
    const auto loaded = loadAll(database);
    for (const auto& person : loaded) {
        ++result.count;
        result.sum += static_cast<std::uint64_t>(person->age);
    }
    clock.stop();
    return result;
}

Result lookUp(Database& database, const std::vector<std::int64_t>& ids, const StaffData& data) {
    Result result;
    std::vector<std::unique_ptr<Person>> loaded;
    Query byId(database, (std::string(PersonColumns) + " WHERE id = ?").c_str());
    for (const int position : data.lookups) {
        byId.bind(1, ids[static_cast<std::size_t>(position)]);
        if (!byId.next())
            throw std::runtime_error("a person is missing");
        loaded.push_back(std::make_unique<Person>(read(byId)));
        byId.reset();
        ++result.count;
        result.sum += static_cast<std::uint64_t>(loaded.back()->age);
    }
    return result;
}

Result query(Database& database, const Clock& clock) {
    Result result;
    database.run("PRAGMA case_sensitive_like=ON");
    Query found(
        database,
        (std::string(PersonColumns) + " WHERE age >= ? AND age < ? AND name LIKE ?").c_str());
    const std::string pattern = "P1%";
    clock.start();
    for (int i = 0; i < 200; ++i) {
        const int age = 18 + i % 50;
        found.bind(1, std::int64_t{age});
        found.bind(2, std::int64_t{age} + 1);
        found.bind(3, pattern);
        std::vector<std::unique_ptr<Person>> people;
        while (found.next())
            people.push_back(std::make_unique<Person>(read(found)));
        for (const auto& person : people) {
            ++result.count;
            result.sum += person->name.size();
        }
    }
    clock.stop();
    return result;
}

Result navigate(Database& database, const Clock& clock) {
    Result result;
    Query all(database, "SELECT id, version, name, city FROM Company");
    Query staff(database, (std::string(PersonColumns) + " WHERE employer = ?").c_str());
    clock.start();
    std::vector<std::unique_ptr<Company>> companies;
    while (all.next())
        companies.push_back(std::make_unique<Company>(
            Company{all.integer(0), all.integer(1), all.text(2), all.text(3)}));
    std::vector<std::unique_ptr<Person>> people;
    for (const auto& company : companies) {
        staff.bind(1, company->id);
        while (staff.next()) {
            people.push_back(std::make_unique<Person>(read(staff)));
            ++result.count;
            result.sum += static_cast<std::uint64_t>(people.back()->age);
            result.sum += company->name.size();
        }
    }
    clock.stop();
    return result;
}

Result updateAll(Database& database, const Clock& clock) {
    Result result;
    const auto loaded = loadAll(database);
    Query update(database,
                 "UPDATE Person SET salary = ?, version = ? WHERE id = ? AND version = ?");
    clock.start();
    database.run("BEGIN");
    for (const auto& person : loaded) {
        person->salary += 1;
        update.bind(1, person->salary);
        update.bind(2, person->version + 1);
        update.bind(3, person->id);
        update.bind(4, person->version);
        update.execute();
        if (database.changes() != 1)
            throw std::runtime_error("a person was changed by somebody else");
        ++person->version;
        ++result.count;
    }
    database.run("COMMIT");
    clock.stop();
    return result;
}

Result insertSingly(Database& database, const StaffData& data, const Clock& clock) {
    Result result;
    Query insert(database, InsertPerson);
    clock.start();
    for (int i = 0; i < 3000; ++i) {
        database.run("BEGIN");
        insert.bindNull(1);
        bindPerson(insert, data.persons[static_cast<std::size_t>(i) % data.persons.size()]);
        insert.bindNull(8);
        insert.execute();
        database.run("COMMIT");
        ++result.count;
    }
    clock.stop();
    return result;
}

Result removeAll(Database& database, const Clock& clock) {
    Result result;
    const auto loaded = loadAll(database);
    Query remove(database, "DELETE FROM Person WHERE id = ? AND version = ?");
    clock.start();
    database.run("BEGIN");
    for (const auto& person : loaded) {
        remove.bind(1, person->id);
        remove.bind(2, person->version);
        remove.execute();
        if (database.changes() != 1)
            throw std::runtime_error("a person was changed by somebody else");
        ++result.count;
    }
    database.run("COMMIT");
    clock.stop();
    return result;
}

Result insertVehicles(Database& database, const StaffData& data, const Clock& clock) {
    Result result;
    Query car(database, "INSERT INTO Car VALUES (?, 0, ?, ?, ?)");
    Query boat(database, "INSERT INTO Boat VALUES (?, 0, ?, ?, ?)");
    Query van(database, "INSERT INTO Van VALUES (?, 0, ?, ?, ?)");
    Query* kinds[] = {&car, &boat, &van};
    clock.start();
    database.run("BEGIN");
    for (std::size_t i = 0; i < data.vehicles.size(); ++i) {
        const VehicleData& each = data.vehicles[i];
        Query& insert = *kinds[i % 3];
        insert.bind(1, 1000000 + static_cast<std::int64_t>(i));
        insert.bind(2, each.name);
        insert.bind(3, std::int64_t{each.year});
        if (i % 3 == 0)
            insert.bind(4, std::int64_t{each.doors});
        else if (i % 3 == 1)
            insert.bind(4, each.draft);
        else
            insert.bind(4, std::int64_t{each.load});
        insert.execute();
        ++result.count;
    }
    database.run("COMMIT");
    clock.stop();
    return result;
}

Vehicle readVehicle(Query& row, int kind) {
    Vehicle vehicle{
        row.integer(0), row.integer(1), row.text(2), static_cast<int>(row.integer(3)), 0, 0, 0};
    if (kind == 0)
        vehicle.doors = static_cast<int>(row.integer(4));
    else if (kind == 1)
        vehicle.draft = row.real(4);
    else
        vehicle.load = row.integer(4);
    return vehicle;
}

Result iterateVehicles(Database& database, const Clock& clock) {
    Result result;
    Query car(database, "SELECT * FROM Car ORDER BY name");
    Query boat(database, "SELECT * FROM Boat ORDER BY name");
    Query van(database, "SELECT * FROM Van ORDER BY name");
    Query* kinds[] = {&car, &boat, &van};
    clock.start();
    std::vector<std::unique_ptr<Vehicle>> delivered;
    std::unique_ptr<Vehicle> heads[3];
    const auto advance = [&](int kind) {
        heads[kind] = kinds[kind]->next()
                          ? std::make_unique<Vehicle>(readVehicle(*kinds[kind], kind))
                          : nullptr;
    };
    for (int kind = 0; kind < 3; ++kind)
        advance(kind);
    while (true) {
        int best = -1;
        for (int kind = 0; kind < 3; ++kind)
            if (heads[kind] != nullptr && (best < 0 || heads[kind]->name < heads[best]->name))
                best = kind;
        if (best < 0)
            break;
        if (!delivered.empty() && heads[best]->name < delivered.back()->name)
            throw std::runtime_error("the order is wrong");
        ++result.count;
        result.sum += static_cast<std::uint64_t>(heads[best]->year);
        delivered.push_back(std::move(heads[best]));
        advance(best);
    }
    clock.stop();
    return result;
}

}  // namespace

Result runPlain(const std::string& step, const std::string& file, const StaffData& data,
                const Clock& clock) {
    Database database(file);
    if (!hasTables(database))
        makeTables(database);
    if (step == "S1")
        return insertAll(database, data, clock);
    if (step == "S2")
        return loadPersons(database, clock);
    if (step == "S4")
        return query(database, clock);
    if (step == "S5")
        return navigate(database, clock);
    if (step == "S6")
        return updateAll(database, clock);
    if (step == "S7")
        return insertSingly(database, data, clock);
    if (step == "S8")
        return removeAll(database, clock);
    if (step == "S9i")
        return insertVehicles(database, data, clock);
    if (step == "S9")
        return iterateVehicles(database, clock);
    std::vector<std::int64_t> ids;
    Query all(database, "SELECT id FROM Person ORDER BY id");
    while (all.next())
        ids.push_back(all.integer(0));
    if (step == "S3b")
        lookUp(database, ids, data);
    clock.start();
    const Result result = lookUp(database, ids, data);
    clock.stop();
    return result;
}

}  // namespace bench
