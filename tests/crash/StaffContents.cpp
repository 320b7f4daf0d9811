#include "tests/crash/StaffContents.h"

#include <algorithm>
#include <vector>

#include "tests/drivers/PlainSqlite.h"

namespace Kes::testing {

namespace {

class Writer final : public EmptyHandler {
public:
    Writer(Instance* shownInstance, std::string& target) : instance(shownInstance), text(target) {
        text += instance->getClass()->getName();
        instance->handle(this);
        text += '\n';
    }

    void handleULong(const String&, unsigned long& value) override { add(std::to_string(value)); }
    void handleString(const String&, String& value, int) override {
        add(static_cast<const char*>(value));
    }
    void handleInt(const String&, int& value) override { add(std::to_string(value)); }
    void handleDouble(const String&, double& value) override { add(std::to_string(value)); }
    void handleOneAssociated(const String&, const String& role, OneAssociatedInstance* ref,
                             Association::ConsistencyRule) override {
        instance->get(*ref);
        const Instance* partner = ref->getInstance();
        add(static_cast<const char*>(role));
        add(partner != nullptr ? std::to_string(partner->getObjectID()) : "none");
    }
    void handleManyAssociated(const String&, const String& role,
                              ManyAssociatedInstances* ref) override {
        instance->get(*ref);
        std::vector<unsigned long> ids;
        for (ref->reset(); ref->next();)
            ids.push_back(ref->value()->getObjectID());
        std::sort(ids.begin(), ids.end());
        add(static_cast<const char*>(role));
        for (const unsigned long id : ids)
            add(std::to_string(id));
    }

private:
    void add(const std::string& part) { text += '|' + part; }

    Instance* instance;
    std::string& text;
};

}  // namespace

void fillStaff(StaffModel& model) {
    model.startTransaction();
    Company* firms[] = {model.newCompany("Firm"), model.newCompany("Works")};
    Person* people[6];
    int count = 0;
    for (Person*& each : people) {
        each = model.newPerson(("P" + std::to_string(count)).c_str(), count);
        each->employer = firms[count++ % 2];
    }
    people[0]->spouse = people[1];
    people[2]->spouse = people[3];
    people[1]->parent = people[0];
    people[2]->parent = people[1];
    people[3]->parent = people[1];
    for (int i = 0; i < 3; ++i)
        people[i]->friends.add(people[i + 2]);
    people[5]->friends.add(people[0]);
    for (Class* each : {model.carClass, model.boatClass, model.carClass}) {
        auto* vehicle = static_cast<Vehicle*>(each->newInstance());
        vehicle->name = String("V") + String(++count);
        vehicle->year = 2000 + count % 2;
    }
    model.commit();
}

std::string storedStaff(const std::string& file, bool withVersions) {
    const std::string key = withVersions ? "KesObjectID||'|'||KesVersion" : "KesObjectID";
    PlainSqlite plain(file);
    std::string text;
    const auto add = [&](const std::string& fields, const std::string& table) {
        for (const std::string& each :
             plain.askAll("SELECT " + fields + " FROM " + table + " ORDER BY 1"))
            text += table + '|' + each + '\n';
    };
    add(key +
            "||'|'||name||'|'||age||'|'||salary||'|'||quote(employer)||'|'||quote(spouse)||'|'"
            "||quote(marriedTo)||'|'||quote(parent)",
        "Person");
    add(key + "||'|'||name", "Company");
    add(key + "||'|'||name||'|'||year||'|'||doors", "Car");
    add(key + "||'|'||name||'|'||year||'|'||draft", "Boat");
    add("friends||'|'||friendOf", "Friendship");
    return text;
}

std::string shownStaff(StaffModel& model) {
    std::string text;
    for (Class* each : {model.personClass, model.companyClass, model.vehicleClass}) {
        Selection all(each);
        all.orderBy(all["KesObjectID"]);
        while (all.next())
            Writer(all.value(), text);
    }
    return text;
}

}  // namespace Kes::testing
