#include "tests/support/StaffModel.h"

namespace Kes::testing {

void Person::handle(Handler* h) {
    static const String nameField("name"), ageField("age"), salaryField("salary");
    static const String works("Works"), marriage("Marriage"), friendship("Friendship");
    static const String family("Family");
    Instance::handle(h);
    h->handleString(nameField, name, 40);
    h->handleInt(ageField, age);
    h->handleDouble(salaryField, salary);
    h->handleOneAssociated(works, "employer", &employer, Association::Unlink);
    h->handleOneAssociated(marriage, "spouse", &spouse, Association::Unlink);
    h->handleOneAssociated(marriage, "marriedTo", &marriedTo, Association::Unlink);
    h->handleManyAssociated(friendship, "friends", &friends);
    h->handleManyAssociated(friendship, "friendOf", &friendOf);
    h->handleOneAssociated(family, "parent", &parent, Association::CascadeRemove);
    h->handleManyAssociated(family, "children", &children);
}

void Company::handle(Handler* h) {
    Instance::handle(h);
    h->handleString("name", name, 40);
    h->handleManyAssociated("Works", "staff", &staff);
}

void Vehicle::handle(Handler* h) {
    Instance::handle(h);
    h->handleString("name", name, 40);
    h->handleInt("year", year);
}

void Car::handle(Handler* h) {
    Vehicle::handle(h);
    h->handleInt("doors", doors);
}

void Boat::handle(Handler* h) {
    Vehicle::handle(h);
    h->handleDouble("draft", draft);
}

namespace {

template <class T>
Instance* make(Class* cls) {
    return new T(cls);
}

template <class T>
T* findByName(Class* cls, const char* name) {
    SelectionOf<T> found(cls);
    found.where(found["name"] == name);
    return found.nextValue();
}

}  // namespace

void StaffModel::declareModel() {
    setVersion(1);
    companyClass = addClass("Company", 1, make<Company>);
    personClass = addClass("Person", 1, make<Person>);
    personClass->addIndex("age", false);
    vehicleClass = addClass("Vehicle", 1, make<Vehicle>);
    vehicleClass->setAbstract(true);
    carClass = addClass("Car", 1, make<Car>);
    carClass->subclassOf(vehicleClass);
    boatClass = addClass("Boat", 1, make<Boat>);
    boatClass->subclassOf(vehicleClass);
}

void StaffModel::openWith(const char* driverFile, const char* file, const char* openOptions) {
    open(driverFile, file, "secret", "user", openOptions);
}

Person* StaffModel::newPerson(const char* called, int age) {
    auto* person = static_cast<Person*>(personClass->newInstance());
    person->name = called;
    person->age = age;
    return person;
}

Company* StaffModel::newCompany(const char* called) {
    auto* company = static_cast<Company*>(companyClass->newInstance());
    company->name = called;
    return company;
}

Person* StaffModel::findPerson(const char* called) {
    return findByName<Person>(personClass, called);
}

Company* StaffModel::findCompany(const char* called) {
    return findByName<Company>(companyClass, called);
}

}  // namespace Kes::testing
