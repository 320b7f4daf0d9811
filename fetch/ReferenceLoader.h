// Lazy loading of references, with batch fetching: those of siblings together.
//
// Objects that one selection delivered are mostly worked on alike: whoever
// reads a reference of the first will read it of the second. So objects are
// grouped as they are delivered, and reading a reference of one member loads it
// for more and more of the others with it: the first read loads one, the next
// ones grow up to a full group. A selection whose objects are worked on as they
// come reads ahead, so that there are siblings to load for.
//
// No program may tell what was read ahead from what is read when it is asked for.
// So the application is handed nothing of it that is not fresh (see
// fetch/Freshness.h). Partners of one-references, and the members of siblings'
// collections, enter the object cache marked as read ahead; the mark goes when
// the application gets them, and while it stands, Model::get does not find them. One
// that is not fresh by then is read again, together with those of the siblings.
// Collections are kept aside until they are asked for.
//
// A sibling whose rows cannot be read is no reason to fail for the one that was
// asked for: that is loaded alone then.

#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include <kes/Instance.h>
#include <kes/String.h>

#include "fetch/Freshness.h"
#include "fetch/LinkFollower.h"
#include "fetch/PrefetchedCollections.h"
#include "fetch/SiblingGroups.h"
#include "object/InstanceState.h"
#include "query/DeliveryObserver.h"
#include "query/DriverDoor.h"

namespace Kes {

class ReferenceLoader final : public DeliveryObserver {
public:
    explicit ReferenceLoader(Model* itsModel);

    // What the application's selections tell.
    void asked() override;
    ReadMoment now() const override { return freshness.now(); }
    void read(Delivery& delivery, Instance* instance) override {
        enterGroup(delivery, instance, false);
    }
    void delivered(Instance* instance) override;
    std::size_t wantedAhead(const Delivery& delivery) override;
    bool setReadingAhead(bool on) override { return std::exchange(readingAhead, on); }

    /// Hands the application an object of the cache; false when it has to be read
    /// again first.
    bool handOut(Instance* instance) {
        return !InstanceState::isAhead(instance) || handOutFresh(instance);
    }

    /// A driver files an instance, or has brought a known one up to date.
    void onFiled(Instance* instance) {
        latest = instance;
        if (readingAhead)
            InstanceState::setAhead(instance, true);
    }
    void onRenewed(Instance* instance);

    /// The application gets an object that may have been read ahead, and that
    /// is as it would be read now.
    void reveal(Instance* instance) {
        if (InstanceState::isAhead(instance))
            revealAhead(instance);
    }

    /// The application has made an object of that class.
    void onNewObject(const Class* cls) { follower.onNewObject(cls); }

    /// A collection shows what is stored and what is pending.
    void noteCollection(Instance* owner, ManyAssociatedInstances& ref,
                        const Association* association, const String& role) {
        follower.noteCollections(association, role);
        follower.followMembers(owner, ref, association, role);
    }

    /// An object's collection gets a member whose own collection is not fetched.
    void noteMember(const Instance* owner, const ManyAssociatedInstances& ref,
                    const Instance* member, const Association* association, const String& role) {
        follower.noteMember(owner, ref, member, association, role);
    }

    /// The instance was read again by itself.
    void onRefreshed(Instance* instance) { follower.unfetchCollections(instance); }

    /// A collection is going to be read again.
    void beforeReload(Instance* owner, ManyAssociatedInstances& ref, const Association* association,
                      const String& role) {
        follower.rememberMembers(owner, ref, association, role);
    }

    /// A refresh has found that it is not stored any more.
    void onRemoved(Instance* instance) { follower.leaveAll(instance); }

    /// Loads the partner with that id, and partners of siblings beside it.
    /// Null when it is not stored. False when that could not be read, which was
    /// raised.
    bool loadPartner(Instance* owner, unsigned long id, const Association* association,
                     const String& role, Instance*& partner);

    /// Adds the stored members to the owner's empty collection; false when they
    /// could not be read, which was raised.
    bool loadMembers(Instance* owner, Association* association, const String& role,
                     ManyAssociatedInstances& ref);

private:
    class Loading;
    class Filling;

    void enterGroup(Delivery& delivery, Instance* instance, bool forReference);
    bool handOutFresh(Instance* instance);
    bool isFresh(const Instance* instance);
    void endReading();
    void judgePartners();
    void revealAhead(Instance* instance);
    void followLinks(Instance* instance);
    std::size_t room() const;
    std::vector<unsigned long> partnersOf(const SiblingGroup& group, std::size_t most,
                                          unsigned long wanted, const Association* association,
                                          const String& role);
    Instance* readPartner(unsigned long id, Class* cls);
    Instance* loadPartners(const std::vector<unsigned long>& ids, Class* cls);
    bool fill(Instance* owner, Association* association, const String& role,
              ManyAssociatedInstances& ref);
    bool fillFromPrefetched(Instance* owner, const Association* association, const String& role,
                            ManyAssociatedInstances& ref);
    std::vector<Instance*> unreadOwners(Instance* owner, const SiblingGroup& group,
                                        std::size_t most, const Association* association,
                                        const String& role);
    bool loadTogether(Instance* owner, SiblingGroup& group, Association* association,
                      const String& role);
    bool loadBatch(const std::vector<Instance*>& owners, Association* association,
                   const String& role);
    bool loadLinkedBatch(const std::vector<Instance*>& owners, Association* association,
                         const String& role);
    template <class Work>
    static bool succeedsForAll(Work work);
    bool abandonBatch();
    void storePrefetched(const Association* association, const String& role,
                         PrefetchedCollections::Collections&& collections, std::size_t members);
    std::size_t loadAlone(Instance* owner, Association* association, const String& role,
                          ManyAssociatedInstances& ref);

    Model* model;
    DriverDoor& door;
    SiblingGroups groups;

    Loading* loading = nullptr;  // the one for a reference that is under way
    bool readingAhead = false;
    bool sawNewer = false;                 // in the loading under way
    const Association* filling = nullptr;  // a collection of it
    Instance* latest = nullptr;            // filed, and not delivered yet
    std::uint64_t loadings = 0;            // until now
    ReadMoment loadingBegan;               // the one under way

    LinkFollower follower;
    Freshness freshness;
    PrefetchedCollections prefetched{freshness};
    Backoff partnersBackoff;
    ReadMoment partnersRead;         // latest
    std::size_t partnersLoaded = 0;  // and not judged yet
    std::size_t partnersUsed = 0;
    std::size_t membersLoaded = 0;  // to estimate how large a collection is
    std::size_t ownersLoaded = 0;
};

}  // namespace Kes
