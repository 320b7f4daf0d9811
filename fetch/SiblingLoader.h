// Loading references of siblings together.
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

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <kes/Instance.h>
#include <kes/String.h>

#include "fetch/Freshness.h"
#include "fetch/KeptCollections.h"
#include "fetch/LinkFollower.h"

namespace Kes {

class SiblingLoader {
public:
    explicit SiblingLoader(Model* itsModel);
    SiblingLoader(const SiblingLoader&) = delete;
    SiblingLoader& operator=(const SiblingLoader&) = delete;

    /// What a selection keeps for this class.
    struct Reading {
        std::uint64_t token = 0;
        ReadMoment when;
    };

    /// Asked before the selection's first statement.
    static ReadMoment startReading(Model* model);

    /// A selection has read an instance, to deliver it now or later.
    static void delivered(Model* model, Reading& reading, Instance* instance);

    /// The selection delivers an instance now, which need not be fresh: its rows
    /// are those that it began with.
    static void deliverNow(Model* model, Instance* instance) {
        if (instance->flag(Instance::Ahead))
            deliverAhead(model, instance);
    }

    /// How many instances the selection should read ahead of the one that it
    /// has just delivered. What it reads counts as delivered here.
    static std::size_t wantedAhead(Model* model, const Reading& reading);

    /// While it lives, instances that are filed were not asked for yet.
    class AheadScope {
    public:
        explicit AheadScope(Model* model);
        AheadScope(const AheadScope&) = delete;
        AheadScope& operator=(const AheadScope&) = delete;
        ~AheadScope();

    private:
        SiblingLoader& loader;
        bool outer;
    };

    /// While it lives, the driver asks and not the application.
    class DriverScope {
    public:
        explicit DriverScope(const Model* model);
        DriverScope(const DriverScope&) = delete;
        DriverScope& operator=(const DriverScope&) = delete;
        ~DriverScope();

    private:
        SiblingLoader& loader;
        DroppedPartners* outer;
    };

    /// Whether the one who asks for an object by its id may find this one.
    bool isVisible(const Instance* instance) const {
        return !instance->flag(Instance::Ahead) || driverCalls > 0;
    }

    /// Hands the application an object of the cache; false when it has to be read
    /// again first.
    bool handOut(Instance* instance) {
        return !instance->flag(Instance::Ahead) || handOutFresh(instance);
    }

    /// A driver files an instance, or has brought a known one up to date.
    void noteFiled(Instance* instance) {
        latest = instance;
        if (readingAhead)
            instance->setFlag(Instance::Ahead, true);
    }
    void noteRenewed(Instance* instance);

    /// The application gets an object that may have been read ahead, and that
    /// is as it would be read now.
    void reveal(Instance* instance) {
        if (instance->flag(Instance::Ahead))
            revealAhead(instance);
    }

    /// The application has made an object of that class.
    void noteNew(const Class* cls) { follower.noteNew(cls); }

    /// A collection shows what is stored and what is pending.
    void noteCollection(Instance* owner, ManyAssociatedInstances& ref,
                        const Association* association, const String& role) {
        follower.noteCollections(association, role);
        follower.followMembers(owner, ref, association, role);
    }

    /// The instance was read again by itself.
    void noteRefreshed(Instance* instance) { follower.unfetchCollections(instance); }

    /// Loads the partner with that id, and partners of siblings beside it.
    /// Null when it is not stored. False when that could not be read, which was
    /// raised.
    bool loadPartner(Instance* owner, unsigned long id, const Association* association,
                     const String& role, Instance*& partner);

    /// Adds the stored members to the owner's empty collection; false when they
    /// could not be read, which was raised.
    bool loadMembers(Instance* owner, Association* association, const String& role,
                     ManyAssociatedInstances& ref);

    /// The application has done, or is about to do, what may show it a newer
    /// state than the one that was read ahead.
    void forget() {
        freshness.end();
        kept.forget();
    }

    /// A query is about to start that no reference asked for.
    void noteQuery() {
        if (!loading)
            forget();
    }

private:
    struct Group {
        std::uint32_t id = 0;
        std::size_t faults = 0;
        std::size_t inherited = 0;  // of these, taken over from the group before
        std::size_t answered = 0;   // of these, followed by reading ahead
        std::uint64_t loading = 0;  // that it was made in
        ReadMoment when;            // its members were read
        std::vector<unsigned long> members;
    };
    class LoadingScope;
    class Filling;

    void deliver(Reading& reading, Instance* instance);
    static void deliverAhead(Model* model, Instance* instance);
    bool handOutFresh(Instance* instance);
    std::size_t wantedAhead(std::uint64_t token);
    Group* groupOf(const Instance* owner);
    bool isFresh(const Instance* instance);
    void noteRead();
    void judgePartners();
    void revealAhead(Instance* instance);
    void followLinks(Instance* instance);
    std::size_t nextBatch(Group& group) const;
    std::size_t room() const;
    std::vector<unsigned long> partnersOf(const Group& group, std::size_t most,
                                          unsigned long wanted, const Association* association,
                                          const String& role);
    Instance* loadPartners(const std::vector<unsigned long>& ids, Class* cls);
    bool fill(Instance* owner, Association* association, const String& role,
              ManyAssociatedInstances& ref);
    bool takeKept(const Instance* owner, const Association* association, const String& role,
                  ManyAssociatedInstances& ref);
    std::vector<Instance*> unreadOwners(Instance* owner, const Group& group, std::size_t most,
                                        const Association* association, const String& role);
    bool loadTogether(Instance* owner, Group& group, Association* association, const String& role);
    bool loadBatch(const std::vector<Instance*>& owners, Association* association,
                   const String& role);
    bool loadLinkedBatch(const std::vector<Instance*>& owners, Association* association,
                         const String& role);
    template <class Work>
    static bool succeedsForAll(Work work);
    bool refuse();
    void keep(const Association* association, const String& role,
              KeptCollections::Collections&& collections, std::size_t members);
    std::size_t loadAlone(Instance* owner, Association* association, const String& role,
                          ManyAssociatedInstances& ref);

    Model* model;
    std::array<Group, 64> groups;  // the latest; a group's place is its id modulo the size
    std::uint32_t lastGroup = 0;

    bool loading = false;  // for a reference
    bool readingAhead = false;
    bool sawNewer = false;                 // in the loading under way
    const Association* filling = nullptr;  // a collection of it
    Instance* latest = nullptr;            // filed, and not delivered yet
    int driverCalls = 0;                   // within each other
    std::uint64_t loadings = 0;            // until now
    ReadMoment loadingBegan;               // the one under way

    LinkFollower follower;
    DroppedPartners dropped;  // in the driver's call
    Freshness freshness;
    KeptCollections kept{freshness};
    Pause partnersPause;
    ReadMoment partnersRead;         // latest
    std::size_t partnersLoaded = 0;  // and not judged yet
    std::size_t partnersUsed = 0;
    std::size_t membersLoaded = 0;  // to estimate how large a collection is
    std::size_t ownersLoaded = 0;
};

}  // namespace Kes
