#include "object/DeclarationHandler.h"

#include <kes/Class.h>
#include <kes/Many.h>
#include <kes/Model.h>
#include <kes/One.h>

namespace Kes {

void ClassDeclarationHandler::handleOneAssociated(const String& name, const String& role,
                                                  OneAssociatedInstance*,
                                                  Association::ConsistencyRule rule) {
    declare(name, role, Association::One, rule);
}

void ClassDeclarationHandler::handleManyAssociated(const String& name, const String& role,
                                                   ManyAssociatedInstances*) {
    const Association* known = model->getAssociation(name);
    const bool manyToMany =
        known != nullptr && known->getPluralityFor(known->getOneRole()) == Association::Many;
    declare(name, role, Association::Many,
            manyToMany ? Association::CascadeRemove : Association::Unlink);
}

// Whether the class is an ancestor of the one that declared the role before it,
// so that an end settles on the most general class in any order of declaration.
bool ClassDeclarationHandler::isGeneralised(const Association* association,
                                            const String& role) const {
    const Class* known = role == association->getOneRole()     ? association->getOneClass()
                         : role == association->getOtherRole() ? association->getOtherClass()
                                                               : nullptr;
    return known != nullptr && known->isA(cls);
}

void ClassDeclarationHandler::declare(const String& name, const String& role,
                                      Association::Plurality plurality,
                                      Association::ConsistencyRule rule) {
    Association* association = model->getAssociation(name);
    if (resolving) {
        if (association != nullptr && isGeneralised(association, role))
            association->initializeOtherClass(cls, role, plurality, rule);
        return;
    }
    if (association == nullptr) {
        association = new Association(name, cls, role, plurality, rule);
        model->addAssociation(association);
    } else if (association->getOtherClass() == nullptr || isGeneralised(association, role)) {
        association->initializeOtherClass(cls, role, plurality, rule);
    }
    cls->addAssociation(association);
}

void LooseReferenceFinder::handleOneAssociated(const String&, const String& role,
                                               OneAssociatedInstance* ref,
                                               Association::ConsistencyRule) {
    const auto* reference = dynamic_cast<const OneReference*>(ref);
    if (reference != nullptr && !reference->hasOwner() && found.size() == 0)
        found = role;
}

void LooseReferenceFinder::handleManyAssociated(const String&, const String& role,
                                                ManyAssociatedInstances* ref) {
    const auto* reference = dynamic_cast<const ManyReference*>(ref);
    if (reference != nullptr && !reference->hasOwner() && found.size() == 0)
        found = role;
}

}  // namespace Kes
