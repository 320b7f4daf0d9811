// The reference to many partners, and two small relatives.

#pragma once

#include <kes/Export.h>
#include <kes/Forward.h>

namespace Kes {

/// One end of an association that refers to many instances, loaded lazily by
/// Instance::get.
///
/// Applications use Many<T>. The order of the
/// virtual operations is a contract with compiled applications.
///
/// An application may derive a collection of its own, and owes that
///   - a member that is added twice is there once, and one that is none is removed
///     without an effect;
///   - `contains` leaves an iteration where it stands;
///   - members may be added and removed while an iteration is under way;
///   - members are held as plain pointers: what a fetched collection refers to is kept
///     in memory by the model as long as its owner is.
/// The model goes through it by its one iteration when it loads or drops the members,
/// when it removes the owner and when it frees objects. So an iteration over a
/// collection of one's own ends at the latest with the next call that loads, adds or
/// removes objects; a Many<T> does not know that limit. Both sides of an association
/// are kept in step as with Many<T>, at the cost of some 24 bytes for each link of
/// many to many.
class KES_EXPORT ManyAssociatedInstances {
public:
    ManyAssociatedInstances() = default;
    ManyAssociatedInstances(const ManyAssociatedInstances&) = default;
    ManyAssociatedInstances& operator=(const ManyAssociatedInstances&) = default;

    /// Store or drop a borrowed instance. They store only: links are made with
    /// Instance::add and Instance::remove.
    virtual void add(Instance* instance) = 0;
    virtual void remove(Instance* instance) = 0;

    /// Iteration: `reset(); while (next()) … value() …`.
    virtual void reset() = 0;
    virtual bool next() = 0;
    virtual Instance* value() = 0;

    /// Whether the instance is a member, of those that are in memory: nothing is loaded.
    virtual bool contains(Instance* instance) const = 0;

    /// Drops all members from memory; no link is dissolved.
    virtual void clear() = 0;

    bool isFetched() const { return fetched; }

    /// False also drops the members, so that the next read loads again.
    void setFetched(bool isFetchedNow);

protected:
    // Nobody deletes a reference through this class.
    ~ManyAssociatedInstances() = default;

private:
    bool fetched = false;
};

/// The many-interface over at most one instance. Still abstract: the constant
/// contains of the base is left to derived classes.
class KES_EXPORT AssociatedOneForOne : public ManyAssociatedInstances {
public:
    /// Replaces an earlier instance.
    void add(Instance* instance) override;
    void remove(Instance* instance) override;
    void reset() override;
    bool next() override;
    Instance* value() override;
    void clear() override;
    using ManyAssociatedInstances::contains;
    virtual bool contains(Instance* instance);

    /// Hide the base's: this reference keeps a mark of its own.
    bool isFetched() const { return fetched; }
    void setFetched(bool isFetchedNow);

private:
    bool fetched = false;
    Instance* held = nullptr;
    bool iterating = false;
};

/// A reference that is never anything, whatever is added.
class KES_EXPORT DummyAssociatedMany : public ManyAssociatedInstances {
public:
    void add(Instance* instance) override;
    void remove(Instance* instance) override;
    void reset() override;
    bool next() override;
    Instance* value() override;
    bool contains(Instance* instance) const override;
    void clear() override;
};

}  // namespace Kes
