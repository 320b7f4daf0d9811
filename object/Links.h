// Finding references by walking instances, and keeping both ends of a link in
// step in memory.

#pragma once

#include <kes/Handler.h>

namespace Kes {

/// Finds the association and the role of a reference that an instance reports.
class ReferenceFinder final : public EmptyHandler {
public:
    /// Walks `owner`; raises REFERR (ERROR) in the context `operation` when it
    /// does not report the reference, and then found() is false.
    ReferenceFinder(Instance* owner, const void* ref, const char* operation);

    bool found() const { return association != nullptr; }
    Association* getAssociation() const { return association; }

    /// The owner's role and the one opposite.
    const String& getRole() const { return *role; }
    const String& getOtherRole() const;

    void handleOneAssociated(const String& name, const String& itsRole, OneAssociatedInstance* ref,
                             Association::ConsistencyRule rule) override;
    void handleManyAssociated(const String& name, const String& itsRole,
                              ManyAssociatedInstances* ref) override;

private:
    void compare(const String& name, const String& itsRole, const void* ref);

    Instance* owner;
    const void* wanted;
    Association* association = nullptr;
    const String* role = nullptr;  // the association's own text, which outlives the walk
};

/// Finds the reference that instances report for one role. The names are
/// borrowed.
class RoleReader final : public EmptyHandler {
public:
    RoleReader(const String& itsAssociation, const String& itsRole)
        : association(itsAssociation),
          role(itsRole) {}

    void read(Instance* instance);

    OneAssociatedInstance* one = nullptr;     // null when the role is none of that kind
    ManyAssociatedInstances* many = nullptr;  // as above

    void handleOneAssociated(const String& name, const String& itsRole, OneAssociatedInstance* ref,
                             Association::ConsistencyRule rule) override;
    void handleManyAssociated(const String& name, const String& itsRole,
                              ManyAssociatedInstances* ref) override;

private:
    const String& association;
    const String& role;
};

/// Enters an instance into, or takes it out of, the opposite reference of its
/// partners.
class LinkHandler final : public EmptyHandler {
public:
    enum Mode { Add, Remove };

    /// `linked` plays `linkedRole` in the association. All are borrowed.
    LinkHandler(Instance* linked, Association* of, const String& linkedRole, Mode how)
        : instance(linked),
          association(of),
          role(linkedRole),
          mode(how) {}

    void visit(Instance* partner);

    /// Makes or dissolves one link of the instance's own many-reference: both
    /// sides in memory, and the change recorded.
    void change(ManyAssociatedInstances& ref, Instance* partner);

    void handleOneAssociated(const String& name, const String& itsRole, OneAssociatedInstance* ref,
                             Association::ConsistencyRule rule) override;
    void handleManyAssociated(const String& name, const String& itsRole,
                              ManyAssociatedInstances* ref) override;

private:
    bool isOpposite(const String& name, const String& itsRole) const;
    bool leadsElsewhere(OneAssociatedInstance& ref) const;
    void noteShown(const ManyAssociatedInstances& ref) const;

    Instance* instance;
    Instance* partner = nullptr;
    Association* association;
    const String& role;
    Mode mode;
    bool unchanged = false;  // the partner's collection showed the outcome already
    bool seen = false;       // the partner's side shows the link, or that it is none
    ManyAssociatedInstances* back = nullptr;  // the partner's side, where it is a collection
};

}  // namespace Kes
