#include "object/Removal.h"

#include <kes/Class.h>
#include <kes/Handler.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>

#include "object/FieldWalk.h"
#include "object/Links.h"
#include "object/ModelGate.h"

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

// Notes the references that have to be looked at, in the order of the fields.
class Removal::Collector final : public EmptyHandler {
public:
    Collector(const Model* itsModel, std::vector<Reference>& found)
        : model(itsModel),
          references(found) {}

    void handleOneAssociated(const String& name, const String& role, OneAssociatedInstance* ref,
                             Association::ConsistencyRule) override {
        Association* association = model->getAssociation(name);
        if (association != nullptr)
            references.push_back({association, textOf(association, role), ref});
    }

    void handleManyAssociated(const String& name, const String& role,
                              ManyAssociatedInstances* ref) override {
        Association* association = model->getAssociation(name);
        if (association == nullptr)
            return;
        Reference found{association, textOf(association, role), nullptr, ref};
        const bool cascade = association->getConsistencyRule() == Association::CascadeRemove;
        const bool otherIsMany =
            association->getPluralityFor(association->getAssociatedRole(role)) == Association::Many;
        found.cascades = cascade && !otherIsMany;
        found.dissolves = cascade || otherIsMany;

        // The database empties what the members refer with; only an undo asks
        // who they were, and only where the driver does not tell.
        if (found.dissolves || ModelGate::mustKnowReferrers(model))
            references.push_back(found);
    }

private:
    static const String* textOf(const Association* association, const String& role) {
        return &association->getAssociatedRole(association->getAssociatedRole(role));
    }

    const Model* model;
    std::vector<Reference>& references;
};

void Removal::run(Instance* instance) {
    const Model* model = instance->getClass()->getModel();
    if (!ModelGate::isRemovable(model, instance))
        return;
    instance->setRemoved(true);
    try {
        if (myActive != nullptr)
            myActive->removeWithin(instance);
        else
            Removal().removeAll(instance);
    } catch (...) {
        instance->setRemoved(false);  // there may be no frame that does
        throw;
    }
}

// A remove operation that a class has overridden finds its object recorded when
// the one of Instance returns. Far down it does not: a cascade may be deeper
// than the stack.
void Removal::removeWithin(Instance* instance) {
    const std::size_t base = frames.size();
    enter(instance);
    if (depth == MostDepth)
        return;
    ++depth;
    try {
        workOff(base);
    } catch (...) {
        --depth;
        keepFrames(base);
        frames.erase(frames.begin() + static_cast<std::ptrdiff_t>(base), frames.end());
        throw;
    }
    --depth;
}

bool Removal::runAlone(Instance* instance) {
    Removal removal;
    removal.cascading = false;
    return removal.removeAll(instance);
}

void Removal::enter(Instance* instance) {
    frames.emplace_back(instance);
    Collector collect(instance->getClass()->getModel(), frames.back().references);
    walkFields(instance, collect);
}

bool Removal::removeAll(Instance* first) {
    const Activation activation(this);
    try {
        enter(first);
        if (workOff(0))
            return true;
    } catch (...) {
        keepFrames(0);
        throw;
    }
    keepFrames(0);
    return false;
}

// What was not recorded is not removed.
void Removal::keepFrames(std::size_t base) {
    for (std::size_t i = base; i < frames.size(); ++i)
        frames[i].instance->setRemoved(false);
}

bool Removal::workOff(std::size_t base) {
    while (frames.size() > base) {
        if (!failed && step())
            continue;
        if (failed)
            return false;
        Instance* finished = frames.back().instance;
        ModelGate::remove(finished->getClass()->getModel(), finished);
        frames.pop_back();
    }
    return true;
}

// Does one piece of work of the deepest frame; false when none is left. The
// piece may add frames, so nothing of this one is used after it.
bool Removal::step() {
    Frame& frame = frames.back();
    Instance* const instance = frame.instance;
    if (frame.member < frame.members.size()) {
        Instance* const member = frame.members[frame.member++];
        release(instance, Reference(frame.references[frame.reference - 1]), member);
        return true;
    }
    if (failed || frame.reference == frame.references.size())
        return false;
    const Reference reference = frame.references[frame.reference++];
    if (reference.one != nullptr) {
        release(instance, reference);
        return true;
    }
    instance->get(*reference.many);
    failed = !reference.many->isFetched();
    frame.members.clear();
    frame.member = 0;
    for (reference.many->reset(); reference.many->next();)
        frame.members.push_back(reference.many->value());
    return true;
}

// A partner that is removed in the same transaction stays in the reference, so
// it is remembered here what the row was going to lose.
void Removal::release(Instance* instance, const Reference& reference) {
    instance->get(*reference.one);
    failed = !reference.one->isFetched();
    const Instance* partner = reference.one->getInstance();
    if (partner == nullptr)
        return;
    if (partner->isRemoved())
        ModelGate::rememberReference(instance, *reference.one, reference.association,
                                     *reference.role);
    else
        instance->set(*reference.one, nullptr);
}

void Removal::release(Instance* instance, const Reference& reference, Instance* member) {
    if (!reference.dissolves) {
        const String& role = reference.association->getAssociatedRole(*reference.role);
        RoleReader back(reference.association->getName(), role);
        back.read(member);
        if (back.one != nullptr)
            ModelGate::rememberReference(member, *back.one, reference.association, role);
        return;
    }
    if (!member->isRemoved()) {
        instance->remove(*reference.many, member);
        if (reference.cascades && cascading)
            member->remove();
        return;
    }
    ModelGate::rememberMember(instance, *reference.many, member, false);
    ModelGate::rememberLostLink(instance, member, reference.association, *reference.role);
    reference.many->remove(member);
}

}  // namespace Kes
