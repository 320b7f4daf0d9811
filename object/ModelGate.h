// The way of the library's own rooms into a model.
//
// The only friend of Model. It hands out what a model is made of, each part to
// the rooms that know its type, and passes on what objects ask of their model:
// the rooms that answer stand above object/, so the answers are in
// session/ModelGate.cpp.

#pragma once

#include <cstddef>

#include <kes/Model.h>

namespace Kes {

class ModelGate {
public:
    ModelGate() = delete;

    static ThreadCheck& thread(const Model* model) { return model->threadCheck; }
    static ObjectCache& objects(const Model* model) { return *model->objects; }
    static DriverDoor& door(const Model* model) { return *model->door; }

    /// Hears of the application's queries.
    static DeliveryObserver& observer(const Model* model);

    // --- recording; raise INSTERR (ERROR) for what cannot be written ---

    static void add(Model* model, Instance* instance) { model->add(instance); }
    static void update(Model* model, Instance* instance) { model->update(instance); }
    static void remove(Model* model, Instance* instance) { model->remove(instance); }
    static bool isRemovable(const Model* model, const Instance* instance) {
        return model->isUsable(instance, "Model::remove", "removed") &&
               model->isAdded(instance, "Model::remove");
    }

    /// Records that `first`, which plays `role`, and `second` were linked or
    /// unlinked.
    static void link(Model* model, bool made, Instance* first, const String& role, Instance* second,
                     Association* association) {
        model->link(made, first, role, second, association->getAssociatedRole(role), association);
    }

    /// The link that was recorded last had been made, or dissolved, before; or
    /// nothing in memory tells.
    static void noteUnchangedLink(Model* model, const Instance* first, const Instance* second);
    static void noteUnsureLink(Model* model, const Instance* first, const Instance* second);

    /// Memory's references will have to be compared with what is going to be stored.
    static void noteContestedLink(Model* model);

    // --- the reference journal: what references hold before a link changes them ---

    static void rememberReference(Instance* owner, OneAssociatedInstance& ref,
                                  const Association* association, const String& role);
    static void rememberMember(Instance* owner, ManyAssociatedInstances& ref, Instance* member,
                               bool added);
    /// The owner's collection of the role shows a member whose own is not fetched.
    static void noteMember(const Instance* owner, const ManyAssociatedInstances& ref,
                           const Instance* member, const Association* association,
                           const String& role);
    static void rememberLostLink(Instance* owner, Instance* member, Association* association,
                                 const String& role);

    /// Take back what references have shown since the mark, of a link that was
    /// not recorded after all.
    static std::size_t markReferences(const Model* model);
    static void revertLastReferences(const Model* model, std::size_t mark) noexcept;

    /// Whether a removal has to load those who refer to the object, for an undo.
    static bool mustKnowReferrers(const Model* model);

    /// Whether anything is recorded.
    static bool hasPending(const Model* model);

    // --- lazy loading; `force` reads again what was read ahead ---

    static void loadPartner(Instance* owner, OneAssociatedInstance& ref, Association* association,
                            const String& role, bool force);
    static void loadMembers(Instance* owner, ManyAssociatedInstances& ref, Association* association,
                            const String& role, bool force);

    // --- what was found while the database was asked for something else ---

    /// Marks an object that is not stored any more; false when that is told
    /// already. A pending change or link is the commit's matter.
    static bool noteRemoval(Model* model, Instance* instance) {
        return model->noteRemoval(instance);
    }

    /// Reads an instance again that a selection of before has made of an old row;
    /// false where that fails, which was raised.
    static bool renewOutdated(Model* model, Instance* instance) {
        return model->renewOutdated(instance);
    }

    /// What fails from here on stands for itself: the kind of what has failed
    /// before is kept, and that of what follows is not.
    static void saveFailure(Model* model) { model->saveFailure(model->failures); }
    static void dropFailure(Model* model);

    /// Unregisters a pointer that is destroyed, on whatever thread.
    static void forgetPointer(const Instance* from, PointerBase* pointer) noexcept;
};

}  // namespace Kes
