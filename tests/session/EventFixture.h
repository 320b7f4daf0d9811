// A model with listeners everywhere, for tests of what they hear.

#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/object/NotingListener.h"
#include "tests/support/Recording.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class EventTest : public ::testing::Test {
protected:
    using Log = NotingListener::Log;

    EventTest() {
        recording.reset();
        model.openWith("recording");
        model.startTransaction();
        firm = model.newCompany("Firm");
        ann = model.newPerson("Ann", 30);
        bob = model.newPerson("Bob", 40);
        model.commit();
        recording.reset();
        watch(listener);
    }
    ~EventTest() override {
        recording.reset();
        for (NotingListener* each : watching)
            for (const char* association : {"Works", "Marriage", "Friendship", "Family"})
                model.getAssociation(association)->removeListener(each);
    }

    // Lets it hear of every class that has objects here and every association.
    void watch(NotingListener& by) {
        for (Class* cls : {model.personClass, model.companyClass})
            cls->addListener(&by);
        for (const char* association : {"Works", "Marriage", "Friendship", "Family"})
            model.getAssociation(association)->addListener(&by);
        watching.push_back(&by);
    }

    Association& works() { return *model.getAssociation("Works"); }
    static std::string id(const Instance* of) { return " " + std::to_string(of->getObjectID()); }

    void age(Person* person, int years) {
        person->change();
        person->age = years;
    }

    // Asks the database, since the object itself is in memory.
    bool isStored(const char* person, int years) {
        SelectionOf<Person> found(model.personClass);
        found.where((found["name"] == person) & (found["age"] == years));
        return found.next();
    }

    Recording& recording = Recording::get();
    Log log;
    NotingListener listener{log};
    std::vector<NotingListener*> watching;
    StaffModel model;
    Pointer<Company> firm;
    Pointer<Person> ann;
    Pointer<Person> bob;
};

}  // namespace Kes::testing
