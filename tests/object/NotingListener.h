// A listener that writes down what it hears.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include <kes/Kes.h>

namespace Kes::testing {

/// Notes every event as "operation class id" or "operation association id id",
/// after its own name, in a log that listeners may share.
class NotingListener final : public Listener {
public:
    using Log = std::vector<std::string>;

    explicit NotingListener(Log& sharedLog, const char* itsName = "")
        : log(sharedLog),
          name(itsName) {}

    void instanceAdded(const InstanceEvent& event) override { note("added", event); }
    void instanceChanged(const InstanceEvent& event) override { note("changed", event); }
    void instanceRemoved(const InstanceEvent& event) override { note("removed", event); }
    void associationAdded(const AssociationEvent& event) override { note("linked", event); }
    void associationRemoved(const AssociationEvent& event) override { note("unlinked", event); }

    /// Called after each note.
    std::function<void()> then;

private:
    void note(const char* what, const InstanceEvent& event) {
        put(std::string(what) + " " + static_cast<const char*>(event.getClass()->getName()) + " " +
            std::to_string(event.getInstance()->getObjectID()));
    }
    void note(const char* what, const AssociationEvent& event) {
        put(std::string(what) + " " + static_cast<const char*>(event.getAssociation()->getName()) +
            " " + std::to_string(event.getOneInstance()->getObjectID()) + " " +
            std::to_string(event.getOtherInstance()->getObjectID()));
    }
    void put(const std::string& line) {
        log.push_back(name.empty() ? line : name + ": " + line);
        if (then)
            then();
    }

    Log& log;
    std::string name;
};

}  // namespace Kes::testing
