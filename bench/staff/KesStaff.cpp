// The staff circuit as an application programmer writes it.

#include <cstring>
#include <stdexcept>

#include <kes/Kes.h>

#include "bench/staff/StaffPrograms.h"

namespace bench {

namespace {

using Kes::Class;
using Kes::Handler;
using Kes::Instance;
using Kes::Many;
using Kes::One;
using Kes::SelectionOf;
using Kes::String;

class Person;

class Company : public Instance {
public:
    explicit Company(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    String name;
    String city;
    Many<Person> staff{this};
};

class Person : public Instance {
public:
    explicit Person(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    String name;
    int age = 0;
    bool active = false;
    double salary = 0;
    long hired = 0;
    One<Company> employer{this};
};

class Vehicle : public Instance {
public:
    explicit Vehicle(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    String name;
    int year = 0;
};

class Car : public Vehicle {
public:
    explicit Car(Class* c) : Vehicle(c) {}
    void handle(Handler* h) override;

    int doors = 0;
};

class Boat : public Vehicle {
public:
    explicit Boat(Class* c) : Vehicle(c) {}
    void handle(Handler* h) override;

    double draft = 0;
};

class Van : public Vehicle {
public:
    explicit Van(Class* c) : Vehicle(c) {}
    void handle(Handler* h) override;

    long load = 0;
};

void Company::handle(Handler* h) {
    static const String nameField("name"), cityField("city"), works("Works"), role("staff");
    Instance::handle(h);
    h->handleString(nameField, name, 40);
    h->handleString(cityField, city, 30);
    h->handleManyAssociated(works, role, &staff);
}

void Person::handle(Handler* h) {
    static const String nameField("name"), ageField("age"), salaryField("salary"),
        activeField("active"), hiredField("hired"), works("Works"), role("employer");
    Instance::handle(h);
    h->handleString(nameField, name, 40);
    h->handleInt(ageField, age);
    h->handleDouble(salaryField, salary);
    h->handleBool(activeField, active);
    h->handleLong(hiredField, hired);
    h->handleOneAssociated(works, role, &employer, Kes::Association::Unlink);
}

void Vehicle::handle(Handler* h) {
    static const String nameField("name"), yearField("year");
    Instance::handle(h);
    h->handleString(nameField, name, 40);
    h->handleInt(yearField, year);
}

void Car::handle(Handler* h) {
    static const String field("doors");
    Vehicle::handle(h);
    h->handleInt(field, doors);
}

void Boat::handle(Handler* h) {
    static const String field("draft");
    Vehicle::handle(h);
    h->handleDouble(field, draft);
}

void Van::handle(Handler* h) {
    static const String field("load");
    Vehicle::handle(h);
    h->handleLong(field, load);
}

template <class T>
Instance* make(Class* c) {
    return new T(c);
}

// Objects stay alive as long as the cache has room for them.
class StaffModel : public Kes::Model {
public:
    StaffModel(const std::string& file, int capacity) : Model("staff", capacity) {
        open("sqlite", file.c_str(), "", "", "journal_mode=wal;synchronous=normal");
    }

    Class* companies = nullptr;
    Class* persons = nullptr;
    Class* vehicles = nullptr;
    Class* cars = nullptr;
    Class* boats = nullptr;
    Class* vans = nullptr;

protected:
    void declareModel() override {
        setVersion(1);
        companies = addClass("Company", 1, make<Company>);
        persons = addClass("Person", 1, make<Person>);
        persons->addIndex("age", false);
        vehicles = addClass("Vehicle", 1, make<Vehicle>);
        vehicles->setAbstract(true);
        vehicles->addIndex("name", false);
        cars = addClass("Car", 1, make<Car>);
        cars->subclassOf(vehicles);
        boats = addClass("Boat", 1, make<Boat>);
        boats->subclassOf(vehicles);
        vans = addClass("Van", 1, make<Van>);
        vans->subclassOf(vehicles);
    }
};

constexpr int Plenty = 1000000;

std::uint64_t lengthOf(const String& text) {
    return static_cast<std::uint64_t>(text.size());
}

Person* makePerson(StaffModel& model, const PersonData& data) {
    auto* person = static_cast<Person*>(model.persons->newInstance());
    person->name = data.name.c_str();
    person->age = data.age;
    person->salary = data.salary;
    person->active = data.active;
    person->hired = data.hired;
    return person;
}

Result insertAll(StaffModel& model, const StaffData& data, const Clock& clock) {
    Result result;
    clock.start();
    model.startTransaction();
    std::vector<Company*> companies;
    for (const CompanyData& each : data.companies) {
        auto* company = static_cast<Company*>(model.companies->newInstance());
        company->name = each.name.c_str();
        company->city = each.city.c_str();
        companies.push_back(company);
    }
    for (const PersonData& each : data.persons) {
        makePerson(model, each)->employer = companies[static_cast<std::size_t>(each.company)];
        ++result.count;
    }
    model.commit();
    clock.stop();
    return result;
}

std::vector<Person*> loadAll(StaffModel& model) {
    std::vector<Person*> loaded;
    for (Person* person : SelectionOf<Person>(model.persons))
        loaded.push_back(person);
    return loaded;
}

Result loadPersons(StaffModel& model, const Clock& clock) {
    Result result;
    clock.start();
    for (Person* person : loadAll(model)) {
        ++result.count;
        result.sum += static_cast<std::uint64_t>(person->age);
    }
    clock.stop();
    return result;
}

// Ids of persons in the order in which they were stored.
std::vector<unsigned long> personIds(const std::string& file) {
    StaffModel model(file, Plenty);
    std::vector<unsigned long> ids;
    for (Person* person : loadAll(model))
        ids.push_back(person->getObjectID());
    return ids;
}

Result lookUp(StaffModel& model, const std::vector<unsigned long>& ids, const StaffData& data) {
    Result result;
    for (const int position : data.lookups) {
        auto* person = static_cast<Person*>(
            model.getInstance(ids[static_cast<std::size_t>(position)], model.persons));
        ++result.count;
        result.sum += static_cast<std::uint64_t>(person->age);
    }
    return result;
}

Result query(StaffModel& model, const Clock& clock) {
    Result result;
    clock.start();
    for (int i = 0; i < 200; ++i) {
        const int age = 18 + i % 50;
        SelectionOf<Person> found(model.persons);
        found.where((found["age"] >= age) & (found["age"] < age + 1) & found["name"].like("P1%"));
        for (Person* person : found) {
            ++result.count;
            result.sum += lengthOf(person->name);
        }
    }
    clock.stop();
    return result;
}

Result navigate(StaffModel& model, const Clock& clock) {
    Result result;
    clock.start();
    std::vector<Company*> companies;
    for (Company* company : SelectionOf<Company>(model.companies))
        companies.push_back(company);
    for (Company* company : companies)
        for (Person* person : company->staff) {
            ++result.count;
            result.sum += static_cast<std::uint64_t>(person->age);
            result.sum += lengthOf(person->employer->name);
        }
    clock.stop();
    return result;
}

Result updateAll(StaffModel& model, const Clock& clock) {
    Result result;
    const std::vector<Person*> loaded = loadAll(model);
    clock.start();
    model.startTransaction();
    for (Person* person : loaded) {
        person->change();
        person->salary += 1;
        ++result.count;
    }
    model.commit();
    clock.stop();
    return result;
}

Result insertSingly(StaffModel& model, const StaffData& data, const Clock& clock) {
    Result result;
    clock.start();
    for (int i = 0; i < 3000; ++i) {
        model.startTransaction();
        makePerson(model, data.persons[static_cast<std::size_t>(i) % data.persons.size()]);
        model.commit();
        ++result.count;
    }
    clock.stop();
    return result;
}

Result removeAll(StaffModel& model, const Clock& clock) {
    Result result;
    const std::vector<Person*> loaded = loadAll(model);
    clock.start();
    model.startTransaction();
    for (Person* person : loaded) {
        person->remove();
        ++result.count;
    }
    model.commit();
    clock.stop();
    return result;
}

void fill(Vehicle* vehicle, const VehicleData& data) {
    vehicle->name = data.name.c_str();
    vehicle->year = data.year;
}

Result insertVehicles(StaffModel& model, const StaffData& data, const Clock& clock) {
    Result result;
    clock.start();
    model.startTransaction();
    for (std::size_t i = 0; i < data.vehicles.size(); ++i) {
        const VehicleData& each = data.vehicles[i];
        switch (i % 3) {
        case 0: {
            auto* car = static_cast<Car*>(model.cars->newInstance());
            fill(car, each);
            car->doors = each.doors;
            break;
        }
        case 1: {
            auto* boat = static_cast<Boat*>(model.boats->newInstance());
            fill(boat, each);
            boat->draft = each.draft;
            break;
        }
        default: {
            auto* van = static_cast<Van*>(model.vans->newInstance());
            fill(van, each);
            van->load = each.load;
        }
        }
        ++result.count;
    }
    model.commit();
    clock.stop();
    return result;
}

Result iterateVehicles(StaffModel& model, const Clock& clock) {
    Result result;
    clock.start();
    SelectionOf<Vehicle> sorted(model.vehicles);
    sorted.orderBy(sorted["name"]);
    String before;
    for (Vehicle* vehicle : sorted) {
        if (vehicle->name < before)
            throw std::runtime_error("the order is wrong");
        before = vehicle->name;
        ++result.count;
        result.sum += static_cast<std::uint64_t>(vehicle->year);
    }
    clock.stop();
    return result;
}

}  // namespace

Result runKes(const std::string& step, const std::string& file, const StaffData& data,
              const Clock& clock) {
    std::vector<unsigned long> ids;
    if (step == "S3a" || step == "S3b")
        ids = personIds(file);
    StaffModel model(file, step == "S4" ? 1000 : Plenty);
    if (step == "S1")
        return insertAll(model, data, clock);
    if (step == "S2")
        return loadPersons(model, clock);
    if (step == "S4")
        return query(model, clock);
    if (step == "S5")
        return navigate(model, clock);
    if (step == "S6")
        return updateAll(model, clock);
    if (step == "S7")
        return insertSingly(model, data, clock);
    if (step == "S8")
        return removeAll(model, clock);
    if (step == "S9i")
        return insertVehicles(model, data, clock);
    if (step == "S9")
        return iterateVehicles(model, clock);
    if (step == "S3b")
        lookUp(model, ids, data);
    clock.start();
    const Result result = lookUp(model, ids, data);
    clock.stop();
    return result;
}

}  // namespace bench
