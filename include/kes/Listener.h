// Change events and those who listen to them.

#pragma once

#include <kes/Export.h>
#include <kes/Forward.h>

namespace Kes {

/// An instance was added, changed or removed. The pointers are borrowed.
class KES_EXPORT InstanceEvent {
public:
    InstanceEvent(Class* itsClass, Instance* itsInstance) : cls(itsClass), instance(itsInstance) {}

    Class* getClass() const { return cls; }
    Instance* getInstance() const { return instance; }

private:
    Class* cls;
    Instance* instance;
};

/// Two instances were linked or unlinked. The pointers are borrowed.
class KES_EXPORT AssociationEvent {
public:
    AssociationEvent(Instance* one, Instance* other, Association* of)
        : oneInstance(one),
          otherInstance(other),
          association(of) {}

    Instance* getOneInstance() const { return oneInstance; }
    Instance* getOtherInstance() const { return otherInstance; }
    Association* getAssociation() const { return association; }

private:
    Instance* oneInstance;
    Instance* otherInstance;
    Association* association;
};

/// The progress of schema synchronisation.
class KES_EXPORT ModelEvent {
public:
    ModelEvent(Model* itsModel, int classes, int processed)
        : model(itsModel),
          nrOfClasses(classes),
          nrOfClassesProcessed(processed) {}

    Model* getModel() const { return model; }
    int getNrOfClasses() const { return nrOfClasses; }
    int getNrOfClassesProcessed() const { return nrOfClassesProcessed; }

private:
    Model* model;
    int nrOfClasses;
    int nrOfClassesProcessed;
};

/// Observer of committed changes. Registered on a Class (its own instances, not
/// those of sub classes), an Instance or an Association.
///
/// Operations are called on the model's thread after a successful commit, in
/// the order in which listeners were added. A listener may add and remove
/// listeners meanwhile; that takes effect from the next notification. It may
/// also change objects and commit: that is announced at once, before the rest of
/// what is being told. The library never deletes a listener: take it out before
/// it is destroyed. A listener that throws undoes nothing and keeps no other from
/// hearing; what the first of them threw reaches the caller of commit or refresh
/// at the end. The order of the operations is a contract with compiled
/// applications.
class KES_EXPORT Listener {
public:
    /// An object was added by a commit, which undo and redo are as well. Told to the
    /// listeners of its class. Here and below, nothing is done by default.
    virtual void instanceAdded(const InstanceEvent& event);

    /// An object was changed by a commit, or a refresh has found that it was. Told to
    /// its own listeners, then to those of its class.
    virtual void instanceChanged(const InstanceEvent& event);

    /// The same of an object that is stored no more. Its own listeners are forgotten
    /// afterwards.
    virtual void instanceRemoved(const InstanceEvent& event);

    /// A link was stored, or is stored no more. Told to the listeners of both
    /// instances and to those of the association.
    virtual void associationAdded(const AssociationEvent& event);
    virtual void associationRemoved(const AssociationEvent& event);

protected:
    // Nobody deletes a listener through this class.
    ~Listener() = default;
};

}  // namespace Kes
