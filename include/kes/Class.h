// Persistent classes.

#pragma once

#include <kes/Attribute.h>
#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/PtrList.h>
#include <kes/String.h>
#include <kes/ValList.h>

namespace Kes {

/// Stands for one persistent class of the application inside one Model.
///
/// Declared with Model::addClass and owned by the model. Everything here is
/// for the model's thread.
class KES_EXPORT Class {
public:
    /// Makes an object of the application's class, for the caller. It passes
    /// the given class up to Instance's constructor.
    using Factory = Instance* (*)(Class*);

    /// Applications call Model::addClass instead.
    Class(const String& className, int classVersion, Model* owner, Factory make);

    /// Copies every member; the listener list is shared and not duplicated, so
    /// at most one of the two may be destroyed while listeners are registered.
    Class(const Class& other) = default;
    Class& operator=(const Class& other) = default;
    virtual ~Class();

    const String& getName() const { return name; }
    int getVersion() const { return version; }
    Model* getModel() const { return model; }

    /// An abstract class has no instances of its own and no storage.
    bool isAbstract() const { return abstract; }
    void setAbstract(bool isAbstractNow) { abstract = isAbstractNow; }

    /// A class belongs to the model that made its storage, and another model
    /// that declares one of the same name on the same database is refused, unless
    /// it says here that it means that very class. It shares the class's objects
    /// and version then, and has to declare the class just like the other model.
    bool isShared() const { return shared; }
    void setShared(bool isSharedNow) { shared = isSharedNow; }

    /// Null for a root class.
    Class* getSuperClass() const { return superClass; }
    const PtrList<Class>& getSubClasses() const { return subClasses; }
    const PtrList<Association>& getAssociations() const { return associations; }
    const ValList<Index>& getIndices() const { return indices; }

    /// Makes `super` the super class. Neither a second call nor a cycle is
    /// checked; a second call enters this class twice.
    void subclassOf(Class* super);

    /// True for this class and every ancestor; also for null, since the walk
    /// compares before it stops at the root.
    bool isA(const Class* other) const;

    /// This class and its descendants without the abstract ones, depth first.
    PtrList<Class> getConcreteClasses() const;

    /// Declares an index. The list is checked when the storage is made.
    void addIndex(const String& fields, bool unique);

    /// Called while associations are declared.
    void addAssociation(Association* association);

    /// A bare instance, new, for the caller: neither handled nor added.
    Instance* getDummy();

    /// Makes a new persistent object in the current transaction. The object
    /// belongs to the model; hold it in a Pointer to keep it across a
    /// collection. Raises what Instance::add raises; when the handler returns,
    /// the object was not added, has the id 0 and is the caller's. A class that
    /// is null, as a model's may be before the model is opened, raises INSTERR
    /// (ERROR) and makes nothing.
    Instance* newInstance();

    /// Registers a borrowed listener; a second registration does nothing.
    void addListener(Listener* listener);
    void removeListener(Listener* listener);

    /// Tells the instance's own listeners and then this class's.
    void fireInstanceChanged(Instance* instance);

protected:
    void fireInstanceAdded(Instance* instance);
    void fireInstanceRemoved(Instance* instance);

private:
    friend class Model;
    friend class Events;

    String name;
    int version;
    bool abstract = false;
    bool shared = false;
    Model* model;
    Factory factory;
    PtrList<Association> associations;
    Class* superClass = nullptr;
    PtrList<Class> subClasses;
    PtrList<Listener>* listeners = nullptr;  // owned; null while empty
    ValList<Index> indices;
};

}  // namespace Kes
