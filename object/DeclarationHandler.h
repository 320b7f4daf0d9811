// Learns a class's associations from a dummy instance.

#pragma once

#include <kes/Handler.h>
#include <kes/String.h>

namespace Kes {

/// Creates or completes the associations that a class reports, while the class
/// is added to its model. Both are borrowed.
class ClassDeclarationHandler final : public EmptyHandler {
public:
    /// With `resolve` no association is created or completed: ends that a sub
    /// class declared before its super class was known move up to this class.
    ClassDeclarationHandler(Class* declared, Model* owner, bool resolve = false)
        : cls(declared),
          model(owner),
          resolving(resolve) {}

    void handleOneAssociated(const String& name, const String& role, OneAssociatedInstance* ref,
                             Association::ConsistencyRule rule) override;
    void handleManyAssociated(const String& name, const String& role,
                              ManyAssociatedInstances* ref) override;

private:
    void declare(const String& name, const String& role, Association::Plurality plurality,
                 Association::ConsistencyRule rule);
    bool isGeneralised(const Association* association, const String& role) const;

    Class* cls;
    Model* model;
    bool resolving;
};

/// Looks for a reference that nobody has told its owner: nothing can be loaded
/// or linked with it.
class LooseReferenceFinder final : public EmptyHandler {
public:
    void handleOneAssociated(const String& name, const String& role, OneAssociatedInstance* ref,
                             Association::ConsistencyRule rule) override;
    void handleManyAssociated(const String& name, const String& role,
                              ManyAssociatedInstances* ref) override;

    /// The role of the first; "" when there is none.
    const String& getRole() const { return found; }

private:
    String found;
};

}  // namespace Kes
