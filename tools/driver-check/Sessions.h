// Two sessions that see the same objects.

#pragma once

#include <string>
#include <vector>

#include <kes/Listener.h>

#include "Shape.h"

namespace Kes::check {

/// What a class's listeners hear.
class Ear final : public Listener {
public:
    void instanceAdded(const InstanceEvent&) override { ++added; }
    void instanceChanged(const InstanceEvent&) override { ++changed; }
    void instanceRemoved(const InstanceEvent&) override { ++removed; }

    int added = 0;
    int changed = 0;
    int removed = 0;
};

/// The class has the fields "value" (int) and "word" (text).
class Sessions {
public:
    Sessions(Check& runs, const std::string& label)
        : check(runs),
          name("Shared" + label),
          one(runs, name, shapes()),
          two(runs, name, shapes()) {
        one.open();
        two.open();
    }

    /// New objects, by the first session, numbered from 0.
    std::vector<unsigned long> store(int count) {
        std::vector<unsigned long> ids;
        transact(one, [&] {
            for (int i = 0; i < count; ++i) {
                Object& object = *one.make(name);
                object["value"] = i;
                ids.push_back(object.getObjectID());
            }
        });
        return ids;
    }

    /// The object as a session has it in memory, which keeps it there.
    Object* get(CheckModel& session, unsigned long id) {
        Object* object = session.find(name, id);
        check.require(object != nullptr, "an object that was stored is not to be found");
        kept.emplace_back(object);
        return object;
    }

    static void change(Object& object, int value) {
        object.change();
        object["value"] = value;
    }

    /// The value that a new session reads; -1 for no object.
    int stored(unsigned long id) {
        CheckModel reader(check, name, shapes());
        reader.open();
        Object* object = reader.find(name, id);
        return object == nullptr ? -1 : valueOf(*object);
    }

    static int valueOf(Object& object) { return std::get<int>(object["value"]); }

    Check& check;
    const std::string name;

private:
    std::vector<Shape> shapes() const {
        return {Shape(name).field("value", Kind::Int).field("word", Kind::Text)};
    }

public:
    CheckModel one;
    CheckModel two;

private:
    std::vector<Pointer<Object>> kept;
};

}  // namespace Kes::check
