#include "tests/crash/StaffPrograms.h"

#include <new>

namespace Kes::testing {

namespace {

using Done = StaffProgram::Done;

// One class, several classes in order, nested ones, and two at a time.
void select(StaffModel& model, const Done&) {
    SelectionOf<Vehicle> vehicles(model.vehicleClass);
    vehicles.where(((vehicles["year"] > 1900) & (vehicles["year"] < 2100)) ||
                   vehicles["name"].like("%"));
    vehicles.orderBy(vehicles["year"], false);
    vehicles.orderBy(vehicles["name"]);
    SelectionOf<Vehicle> others(model.vehicleClass);
    for (Vehicle* each : vehicles)
        if (others.next() && others.value() == each)
            continue;
    SelectionOf<Company> firms(model.companyClass);
    firms.where(firms["name"] != "none");
    SelectionOf<Person> people(model.personClass);
    people.where((people("Works") == firms) & (people["age"] >= 0));
    SelectionOf<Person> friends(model.personClass);
    const Pointer<Person> first(people.nextValue());
    friends.where(friends("Friendship", "friendOf") == people ||
                  friends("Friendship", "friends") == first.getInstance());
    friends.orderBy(friends["name"]);
    std::vector<Pointer<Person>> found;
    for (Person* each : friends)
        found.emplace_back(each);
}

// References of each kind, read on demand and for siblings.
void navigate(StaffModel& model, const Done&) {
    model.garbageCollect();
    SelectionOf<Person> people(model.personClass);
    std::vector<Pointer<Person>> all;
    for (Person* each : people) {
        all.emplace_back(each);
        const Company* firm = each->employer;
        const Person* spouse = each->spouse;
        if (firm == nullptr && spouse == nullptr)
            continue;
        for (Person* child : each->children)
            all.emplace_back(child->parent);
        for (const Person* friendly : each->friends)
            if (friendly->friendOf.size() == 0)
                return;
    }
    for (const Pointer<Person>& each : all) {
        each->get(each->employer, true);
        each->get(each->friends, true);
    }
    model.garbageCollect();
    all.clear();
    model.garbageCollect();
    for (unsigned long id = 1; id < 12; ++id)
        if (Instance* known = model.getInstance(id, model.personClass))
            known->refresh();
}

void create(StaffModel& model, const Done& done) {
    model.startTransaction();
    Company* firm = model.newCompany("a firm that is new");
    Person* last = nullptr;
    for (int i = 0; i < 3; ++i) {
        Person* each = model.newPerson("a person that is new", i);
        each->employer = firm;
        if (last != nullptr) {
            last->spouse = each;
            last->children.add(each);
            last->friends.add(each);
        }
        last = each;
    }
    model.carClass->newInstance();
    model.commit();
    done();
    model.boatClass->newInstance();
    model.commit();
    done();
}

void change(StaffModel& model, const Done& done) {
    model.startTransaction();
    const Pointer<Person> first(model.findPerson("P0"));
    const Pointer<Person> second(model.findPerson("P1"));
    const Pointer<Person> third(model.findPerson("P2"));
    first->change();
    first->name = "a name that is new";
    second->salary = 2;
    second->change();
    model.commit();
    done();
    model.startTransaction();
    third->spouse = first;
    second->employer = first->employer;
    first->employer->staff.remove(third);
    second->children.remove(third);
    third->children.add(second);
    first->friends.remove(third);
    first->friends.add(second);
    third->change();
    third->age = 20;
    model.commit();
    done();
}

void remove(StaffModel& model, const Done& done) {
    model.startTransaction();
    model.findCompany("Works")->remove();
    model.findPerson("P0")->remove();
    model.commit();
    done();
    model.startTransaction();
    const Pointer<Person> changed(model.findPerson("P4"));
    const Pointer<Person> added(model.newPerson("a person that is new"));
    changed->change();
    changed->age = 40;
    changed->parent = added;
    changed->remove();
    added->remove();
    model.commit();
    done();
}

void rollBack(StaffModel& model, const Done&) {
    model.startTransaction();
    const Pointer<Person> first(model.findPerson("P0"));
    const Pointer<Person> third(model.findPerson("P2"));
    first->change();
    first->name = "a name that is new";
    third->spouse = first;
    Person* added = model.newPerson("a person that is new", 1);
    added->employer = first->employer;
    first->friends.add(added);
    first->children.add(added);
    model.findPerson("P4")->remove();
    model.rollback();
    model.garbageCollect();
    model.startTransaction();
    model.findCompany("Firm")->remove();
    first->remove();
    model.undo();
}

// Back and forth over changes, additions, removals and links of each plurality.
void undo(StaffModel& model, const Done& done) {
    create(model, done);
    model.startTransaction();
    const Pointer<Person> first(model.findPerson("P0"));
    const Pointer<Person> third(model.findPerson("P2"));
    first->change();
    first->age = 70;
    third->spouse = first;
    third->friends.add(first);
    first->employer = nullptr;
    model.findPerson("P5")->remove();
    model.commit();
    done();
    for (int i = 0; i < 2; ++i) {
        model.undo();
        done();
    }
    model.garbageCollect();
    for (int i = 0; i < 2; ++i) {
        model.redo();
        done();
    }
}

// What reads objects again, locks them and looks for them.
void refresh(StaffModel& model, const Done&) {
    model.startTransaction();
    const Pointer<Person> first(model.findPerson("P0"));
    first->refresh();
    first->lock();
    first->employer->refresh();
    first->employer->lock();
    first->age = 80;
    first->change();
    first->refresh();
    if (model.getInstance(first->getObjectID(), model.personClass) != first.getInstance() ||
        model.getInstance(999, model.personClass) != nullptr)
        return;
    model.rollback();
    first->refresh();
}

// What has failed is done again, whatever it is.
template <class Work>
void persist(StaffModel& model, Work work) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
    } catch (const Exception&) {}
    if (model.transactionStarted())
        model.rollback();
    work();
}

// The transactions that follow one that failed, and what each of them has read.
void retry(StaffModel& model, const Done& done) {
    persist(model, [&] {
        model.startTransaction();
        const Pointer<Person> first(model.findPerson("P0"));
        const Pointer<Person> third(model.findPerson("P2"));
        first->change();
        first->age = 91;
        third->spouse = first;
        first->friends.add(third);
        model.commit();
    });
    done();
    persist(model, [&] {
        model.startTransaction();
        const Pointer<Person> second(model.findPerson("P1"));
        second->children.remove(model.findPerson("P3"));
        second->employer = nullptr;
        model.findPerson("P5")->remove();
        model.commit();
    });
    done();
    persist(model, [&] { model.undo(); });
    done();
    persist(model, [&] { model.redo(); });
    done();
}

}  // namespace

std::vector<StaffProgram> staffPrograms() {
    return {{"Select", select}, {"Navigate", navigate}, {"Create", create},
            {"Change", change}, {"Remove", remove},     {"RollBack", rollBack},
            {"Undo", undo},     {"Refresh", refresh},   {"Retry", retry, true}};
}

}  // namespace Kes::testing
