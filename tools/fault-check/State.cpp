#include "tools/fault-check/State.h"

#include <charconv>
#include <set>

namespace Kes::faulty {

namespace {

std::string textOf(const String& text) {
    return static_cast<const char*>(text);
}

std::string nameOf(Instance* instance) {
    return instance != nullptr ? textOf(static_cast<Named*>(instance)->called) : "nobody";
}

class Describer final : public Handler {
public:
    Describer(Instance* itsObject, bool loads) : object(itsObject), load(loads) {}

    void handleULong(const String& name, unsigned long& value) override {
        if (name != "KesObjectID")
            note(name, std::to_string(value));
    }
    void handleLong(const String& name, long& value) override { note(name, std::to_string(value)); }
    void handleString(const String& name, String& value, int) override {
        note(name, textOf(value));
    }
    void handleInt(const String& name, int& value) override { note(name, std::to_string(value)); }
    void handleUInt(const String& name, unsigned int& value) override {
        note(name, std::to_string(value));
    }
    void handleBool(const String& name, bool& value) override { note(name, value ? "yes" : "no"); }
    void handleFloat(const String& name, float& value) override { note(name, digits(value)); }
    void handleDouble(const String& name, double& value) override { note(name, digits(value)); }
    void handleTimestamp(const String& name, Timestamp& value) override {
        note(name, std::to_string(value.getAllDays()) + " days " +
                       std::to_string(value.getAllSeconds()) + " seconds");
    }
    void handleBlob(const String& name, Blob& value) override {
        note(name, value.isEmpty() ? "no blob"
                                   : "blob " + std::string(static_cast<const char*>(value.data()),
                                                           static_cast<std::size_t>(value.size())));
    }
    void handleOneAssociated(const String&, const String& role, OneAssociatedInstance* ref,
                             Association::ConsistencyRule) override {
        if (load)
            object->get(*ref);
        if (ref->isFetched())
            note(role, nameOf(ref->getInstance()));
    }
    void handleManyAssociated(const String&, const String& role,
                              ManyAssociatedInstances* ref) override {
        if (load)
            object->get(*ref);
        if (!ref->isFetched())
            return;
        std::set<std::string> names;
        for (ref->reset(); ref->next();)
            names.insert(nameOf(ref->value()));
        std::string list;
        for (const std::string& each : names)
            list += each + " ";
        note(role, list);
    }

    Fields fields;

private:
    void note(const String& name, const std::string& value) { fields[textOf(name)] = value; }

    template <class T>
    static std::string digits(T value) {
        char buffer[64];
        const auto end = std::to_chars(buffer, buffer + sizeof buffer, value).ptr;
        return {buffer, end};
    }

    Instance* object;
    bool load;
};

void addAll(Class* cls, State& state) {
    if (cls == nullptr)
        return;
    SelectionOf<Named> all(cls);
    for (Named* object : all) {
        const std::string name = nameOf(object);
        if (!state.emplace(name, describe(object, true)).second)
            state[name]["stored"] = "twice";
    }
}

std::string compareFields(const std::string& name, const Fields& expected, const Fields& found,
                          bool whole) {
    for (const auto& [field, value] : expected) {
        const auto other = found.find(field);
        if (other == found.end() && whole)
            return name + " has no " + field;
        if (other != found.end() && other->second != value)
            return "the " + field + " of " + name + " is \"" + other->second + "\" and not \"" +
                   value + "\"";
    }
    for (const auto& [field, value] : found)
        if (whole && !expected.contains(field))
            return name + " has a " + field + ", \"" + value + "\"";
    return "";
}

}  // namespace

Fields describe(Named* object, bool load) {
    Describer describer(object, load);
    object->handle(&describer);
    return describer.fields;
}

State readDatabase(const Target& target, int schema) {
    FaultModel model(schema, target.suffix);
    model.open(target.driver.c_str(), target.source.c_str(), target.password.c_str(),
               target.user.c_str(), target.options.c_str());
    State state;
    addAll(model.firm, state);
    addAll(model.worker, state);
    addAll(model.thing, state);
    addAll(model.order, state);
    model.close();
    return state;
}

std::string compare(const State& expected, const State& found, bool whole) {
    for (const auto& [name, fields] : expected) {
        const auto other = found.find(name);
        if (other == found.end()) {
            if (whole)
                return name + " is missing";
            continue;
        }
        std::string difference = compareFields(name, fields, other->second, whole);
        if (!difference.empty())
            return difference;
    }
    for (const auto& [name, fields] : found)
        if (!expected.contains(name))
            return name + " is there and should not be";
    return "";
}

}  // namespace Kes::faulty
