// Every kind of field with its extreme values: exact or refused.

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>
#include <limits>

#include "Shape.h"
#include "Topics.h"
#include "ValueCases.h"

namespace Kes::check {

namespace {

constexpr const char* FieldName = "value";

// Objects of one kind of field, seen by the session that writes and by another
// one that reads.
struct Sessions {
    Sessions(const Check& check, Kind kind)
        : className("Value" + nameOf(kind)),
          writing(check, "values " + nameOf(kind), {Shape(className).field(FieldName, kind)}),
          reading(check, "values " + nameOf(kind), {Shape(className).field(FieldName, kind)}) {
        writing.open();
    }

    Object* readAgain(unsigned long id) {
        reading.close();
        reading.open();
        return reading.find(className, id);
    }

    std::string className;
    CheckModel writing;
    CheckModel reading;
};

std::string messageFaults(const Raised& raised, const std::string& className) {
    if (!raised.names(className))
        return "the refusal does not name the class: " + raised.message;
    if (!raised.names(FieldName))
        return "the refusal does not name the field: " + raised.message;
    return "";
}

// Nothing of the transaction may be stored, and the session goes on.
void checkRefusedInsert(Check& check, Sessions& sessions, const Raised& raised,
                        const std::vector<unsigned long>& ids) {
    check.expectEqual<std::string>("COMFAIL", raised.code, "the code of the refusal");
    const std::string fault = messageFaults(raised, sessions.className);
    check.expect(fault.empty(), fault);
    for (const unsigned long id : ids)
        check.expect(sessions.readAgain(id) == nullptr,
                     "an object of the refused transaction is stored");
    Pointer<Object> later;
    transact(sessions.writing, [&] { later = sessions.writing.make(sessions.className); });
    check.expect(sessions.readAgain(later->getObjectID()) != nullptr,
                 "the session stores nothing more after the refusal");
}

void checkRefusedUpdate(Check& check, Sessions& sessions, Kind kind, const Value& value) {
    Pointer<Object> object;
    transact(sessions.writing, [&] { object = sessions.writing.make(sessions.className); });
    const Raised raised = raisedBy([&] {
        transact(sessions.writing, [&] {
            object->change();
            (*object)[FieldName] = value;
        });
    });
    if (!check.expect(static_cast<bool>(raised), "refused by an insert and accepted by an update"))
        return;
    const std::string fault = messageFaults(raised, sessions.className);
    check.expect(fault.empty(), fault);
    Object* stored = sessions.readAgain(object->getObjectID());
    check.require(stored != nullptr, "the object of the refused update is gone");
    check.expect(isExactly((*stored)[FieldName], plainValue(kind)),
                 "the refused update left " + describe((*stored)[FieldName]) + " behind");
}

// The ids among `mine` that a condition of equality finds, and whether all that
// it finds is equal.
void checkFound(Check& check, Sessions& sessions, const Value& value,
                const std::vector<unsigned long>& mine) {
    Selection selection(sessions.reading[sessions.className]);
    Condition* condition = newCondition(selection[FieldName], Condition::EQUAL, value);
    if (condition == nullptr)
        return;
    selection.setCondition(condition);
    std::size_t found = 0;
    while (selection.next()) {
        Value& held = (*static_cast<Object*>(selection.value()))[FieldName];
        check.expect(compare(held, value) == 0, "a condition of equality finds " + describe(held));
        if (std::find(mine.begin(), mine.end(), selection.value()->getObjectID()) != mine.end())
            ++found;
    }
    check.expectEqual(mine.size(), found, "objects found by a condition of equality");
}

void checkKept(Check& check, Sessions& sessions, Object& inserted, Object& updated,
               const Value& value) {
    const std::vector<unsigned long> ids{inserted.getObjectID(), updated.getObjectID()};
    const char* ways[] = {"an insert", "an update"};
    for (std::size_t i = 0; i < ids.size(); ++i) {
        Object* stored = sessions.readAgain(ids[i]);
        check.require(stored != nullptr, "the object is not stored");
        check.expect(isExactly(value, (*stored)[FieldName]),
                     std::string("after ") + ways[i] + " of " + describe(value) + " the database " +
                         "answers " + describe((*stored)[FieldName]));
    }
    if (compare(value, value) == 0 && !isNan(value))
        checkFound(check, sessions, value, ids);
}

void checkValue(Check& check, Kind kind, const Value& value, const char* property) {
    Sessions sessions(check, kind);
    Pointer<Object> companion;
    Pointer<Object> inserted;
    std::vector<unsigned long> ids;  // which a rollback takes away
    const Raised raised = raisedBy([&] {
        transact(sessions.writing, [&] {
            companion = sessions.writing.make(sessions.className);
            inserted = sessions.writing.make(sessions.className);
            (*inserted)[FieldName] = value;
            ids = {companion->getObjectID(), inserted->getObjectID()};
        });
    });
    if (property != nullptr)
        check.noteProperty(property, static_cast<bool>(raised));
    else
        check.require(!raised, "refused: " + raised.message);
    if (raised) {
        checkRefusedInsert(check, sessions, raised, ids);
        checkRefusedUpdate(check, sessions, kind, value);
        return;
    }
    transact(sessions.writing, [&] {
        companion->change();
        (*companion)[FieldName] = value;
    });
    checkKept(check, sessions, *inserted, *companion, value);
}

// From every value to every other one, in one object.
void checkChanges(Check& check, Kind kind) {
    Sessions sessions(check, kind);
    Pointer<Object> object;
    transact(sessions.writing, [&] { object = sessions.writing.make(sessions.className); });
    for (const ValueCase& each : valueCases(kind)) {
        if (each.property != nullptr)
            continue;
        transact(sessions.writing, [&] {
            (*object)[FieldName] = each.value;
            object->change();
        });
        Object* stored = sessions.readAgain(object->getObjectID());
        check.require(stored != nullptr, "the object is gone");
        check.expect(
            isExactly(each.value, (*stored)[FieldName]),
            "a change to " + describe(each.value) + " reads " + describe((*stored)[FieldName]));
    }
}

// A refresh brings what another session wrote.
void checkRefresh(Check& check, Kind kind) {
    Sessions sessions(check, kind);
    Pointer<Object> object;
    transact(sessions.writing, [&] { object = sessions.writing.make(sessions.className); });
    const Pointer<Object> seen(sessions.readAgain(object->getObjectID()));
    check.require(seen != nullptr, "the object is not stored");
    for (const ValueCase& each : valueCases(kind)) {
        if (each.property != nullptr)
            continue;
        transact(sessions.writing, [&] {
            (*object)[FieldName] = each.value;
            object->change();
        });
        seen->refresh();
        check.expect(
            isExactly(each.value, (*seen)[FieldName]),
            "after a refresh " + describe(each.value) + " reads " + describe((*seen)[FieldName]));
    }
}

}  // namespace

void addValueChecks(Suite& suite) {
    for (const Kind kind : AllKinds) {
        const std::string topic = "values." + nameOf(kind) + ".";
        for (const ValueCase& each : valueCases(kind))
            suite.add(topic + each.label,
                      [kind, each](Check& c) { checkValue(c, kind, each.get(), each.property); });
        suite.add(topic + "changed-again-and-again", [kind](Check& c) { checkChanges(c, kind); });
        suite.add(topic + "refreshed", [kind](Check& c) { checkRefresh(c, kind); });
    }
}

}  // namespace Kes::check
