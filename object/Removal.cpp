#include "object/Removal.h"

#include <kes/Class.h>
#include <kes/Handler.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>

#include "object/FieldWalk.h"

namespace Kes {

namespace {

// The removal under way on this thread; null outside of one.
thread_local Removal* myActive = nullptr;

class Activation {
public:
    explicit Activation(Removal* removal) { myActive = removal; }
    Activation(const Activation&) = delete;
    Activation& operator=(const Activation&) = delete;
    ~Activation() { myActive = nullptr; }
};

}  // namespace

// Notes the references that have to be dissolved, in the order of the fields.
class Removal::Collector final : public EmptyHandler {
public:
    Collector(const Model* itsModel, std::vector<Reference>& found)
        : model(itsModel), references(found) {}

    void handleOneAssociated(const String&, const String&, OneAssociatedInstance* ref,
                             Association::ConsistencyRule) override {
        references.push_back({ref, nullptr, false});
    }

    void handleManyAssociated(const String& name, const String& role,
                              ManyAssociatedInstances* ref) override {
        const Association* association = model->getAssociation(name);
        if (association == nullptr)
            return;
        const bool cascade = association->getConsistencyRule() == Association::CascadeRemove;
        const bool otherIsMany =
            association->getPluralityFor(association->getAssociatedRole(role)) ==
            Association::Many;
        if (cascade || otherIsMany)
            references.push_back({nullptr, ref, cascade && !otherIsMany});
    }

private:
    const Model* model;
    std::vector<Reference>& references;
};

void Removal::run(Instance* instance) {
    if (myActive != nullptr) {
        myActive->frames.emplace_back(instance);
        Frame& frame = myActive->frames.back();
        Collector collect(instance->getClass()->getModel(), frame.references);
        walkFields(instance, collect);
        return;
    }
    Removal removal;
    const Activation activation(&removal);
    try {
        run(instance);
        removal.workOff();
    } catch (...) {
        // What was not recorded is not removed.
        for (const Frame& frame : removal.frames)
            frame.instance->setRemoved(false);
        throw;
    }
}

void Removal::workOff() {
    while (!frames.empty()) {
        if (step())
            continue;
        const Pointer<Instance> finished(frames.back().instance);
        frames.pop_back();
        finished->getClass()->getModel()->remove(finished);
    }
}

// Does one piece of work of the deepest frame; false when none is left. The
// piece may add frames, so nothing of this one is used after it.
bool Removal::step() {
    Frame& frame = frames.back();
    Instance* const instance = frame.instance;
    if (frame.member < frame.members.size()) {
        Instance* const member = frame.members[frame.member++];
        const Reference reference = frame.references[frame.reference - 1];
        if (member->isRemoved()) {
            reference.many->remove(member);
            return true;
        }
        instance->remove(*reference.many, member);
        if (reference.cascades)
            member->remove();
        return true;
    }
    if (frame.reference == frame.references.size())
        return false;
    const Reference reference = frame.references[frame.reference++];
    if (reference.one != nullptr) {
        instance->get(*reference.one);
        const Instance* partner = reference.one->getInstance();
        if (partner != nullptr && !partner->isRemoved())
            instance->set(*reference.one, nullptr);
        return true;
    }
    instance->get(*reference.many);
    frame.members.clear();
    frame.member = 0;
    for (reference.many->reset(); reference.many->next();)
        frame.members.push_back(reference.many->value());
    return true;
}

}  // namespace Kes
