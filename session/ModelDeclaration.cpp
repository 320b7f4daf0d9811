// The part of Model that knows its classes and associations.

#include <memory>
#include <vector>

#include <kes/Instance.h>
#include <kes/Model.h>

#include "object/DeclarationHandler.h"
#include "object/FieldWalk.h"
#include "session/ClassShape.h"
#include "session/Raise.h"

namespace Kes {

namespace {

// Into both lists or into none.
template <class T>
void adopt(ValPtrHashtable<String, T>& byName, std::vector<T*>& order, std::unique_ptr<T>& fresh) {
    order.push_back(fresh.get());
    try {
        byName.set(fresh->getName(), fresh.get());
    } catch (...) {
        order.pop_back();
        throw;
    }
    static_cast<void>(fresh.release());
}

}  // namespace

void Model::undeclare() noexcept {
    for (Class* cls : classOrder)
        delete cls;
    for (Association* association : associationOrder)
        delete association;
    classOrder.clear();
    associationOrder.clear();
    classes.clear();
    associations.clear();
}

Class* Model::addClass(const String& className, int classVersion, Class::Factory factory) {
    return addClass(new Class(className, classVersion, this, factory));
}

Class* Model::addClass(Class* cls) {
    std::unique_ptr<Class> owned(cls);
    threadCheck.verify();
    if (!isDeclarable(owned))
        return nullptr;
    adopt(classes, classOrder, owned);
    const std::unique_ptr<Instance> dummy(cls->getDummy());
    ClassDeclarationHandler declare(cls, this);
    walkFields(dummy.get(), declare);
    return cls;
}

// What is refused goes, but what a model has declared is that model's. Nobody
// is left to point to what goes.
bool Model::isDeclarable(std::unique_ptr<Class>& cls) const {
    if (cls == nullptr) {
        raise("DECLERR", "Model::addClass", "Null is no class; make one for the model");
        return false;
    }
    const String& className = cls->getName();
    const Class* known = classes.get(className);
    const Model* home = cls->getModel();
    const bool isDeclared =
        known == cls.get() || (home != nullptr && home->getClass(className) == cls.get());
    String fault;
    if (known != nullptr)
        fault = String("The class ") + className + " is declared twice; give one another name";
    else if (home != this)
        fault = String("The class ") + className + " was not made for the model " + name +
                "; make one for each model";
    else if (cls->factory == nullptr)
        fault = String("The class ") + className +
                " has no factory to make its objects with; give it one";
    else
        return true;
    if (isDeclared) {
        static_cast<void>(cls.release());
    } else {
        if (cls->superClass != nullptr)
            while (cls->superClass->subClasses.remove(cls.get()) != nullptr) {}
        for (Class* sub : cls->subClasses)
            sub->superClass = nullptr;
    }
    raise("DECLERR", "Model::addClass", fault);
    return false;
}

void Model::addAssociation(Association* association) {
    std::unique_ptr<Association> owned(association);
    threadCheck.doit();
    if (!isDeclarable(owned))
        return;
    adopt(associations, associationOrder, owned);
}

bool Model::isDeclarable(std::unique_ptr<Association>& association) const {
    if (association == nullptr) {
        raise("DECLERR", "Model::addAssociation", "Null is no association; make one");
        return false;
    }
    const String& associationName = association->getName();
    const Association* known = associations.get(associationName);
    Class* ends[] = {association->getOneClass(), association->getOtherClass()};
    const Model* home = ends[0] != nullptr ? ends[0]->getModel() : nullptr;
    const bool isDeclared =
        known == association.get() ||
        (home != nullptr && home->getAssociation(associationName) == association.get());
    String fault;
    if (known != nullptr)
        fault = String("The association ") + associationName +
                " is declared twice; give one another name";
    else if (home != this)
        fault = String("The association ") + associationName + " has no class of the model " +
                name + " at its first end; make one for each model";
    else
        return true;
    if (isDeclared)
        static_cast<void>(association.release());
    else
        for (Class* end : ends)
            if (end != nullptr)
                while (end->associations.remove(association.get()) != nullptr) {}
    raise("DECLERR", "Model::addAssociation", fault);
    return false;
}

Class* Model::getClass(const String& className) const {
    return classes.get(className);
}

Association* Model::getAssociation(const String& associationName) const {
    return associations.get(associationName);
}

// An exception that leaves some classes out would leave them out of every later
// open too. The application may go on to use those that it has got until then.
void Model::declareAll() {
    if (isHalfDeclared)
        undeclare();
    if (!classOrder.empty())
        return;
    isHalfDeclared = true;
    declareModel();
    isHalfDeclared = false;
}

// Super classes are often named after both classes were added, so ends that a
// sub class declared first could not move up to the super class by then.
void Model::resolveAssociations() {
    for (Class* cls : classOrder) {
        if (cls->getSubClasses().size() == 0)
            continue;
        const std::unique_ptr<Instance> dummy(cls->getDummy());
        ClassDeclarationHandler resolve(cls, this, true);
        walkFields(dummy.get(), resolve);
    }
}

// An association that only one class reports has nothing to refer to.
bool Model::declaresSoundly() const {
    for (const Association* association : associationOrder) {
        if (association->getOtherClass() != nullptr)
            continue;
        raise("DECLERR", "Model::open",
              String("The association ") + association->getName() + " has one end only, the role " +
                  association->getOneRole() + " of the class " +
                  association->getOneClass()->getName() +
                  "; declare the class that reports the other role");
        return false;
    }
    for (Class* cls : classOrder) {
        const std::unique_ptr<Instance> dummy(cls->getDummy());
        LooseReferenceFinder loose;
        walkFields(dummy.get(), loose);
        if (loose.getRole().size() == 0)
            continue;
        raise("DECLERR", "Model::open",
              String("The reference ") + loose.getRole() + " of the class " + cls->getName() +
                  " does not know its owner; declare the member as role{this}");
        return false;
    }
    for (Class* cls : classOrder)
        if (cls->getSuperClass() != nullptr && !reportsInherited(cls))
            return false;
    return true;
}

// A query for the super class reads its fields from the objects of all sub
// classes.
bool Model::reportsInherited(Class* cls) const {
    const ClassShape own = reportOf(cls);
    for (const auto& [part, number] : reportOf(cls->getSuperClass())) {
        const auto found = own.find(part);
        if (found != own.end() && found->second == number)
            continue;
        const String& super = cls->getSuperClass()->getName();
        raise("DECLERR", "Model::open",
              String("The class ") + cls->getName() + " is a sub class of " + super +
                  " and does not report " + part.second.c_str() + " as " + super +
                  " does; let its factory make objects whose handle calls that of " + super);
        return false;
    }
    return true;
}

}  // namespace Kes
