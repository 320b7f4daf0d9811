// The reference to at most one partner.

#pragma once

#include <kes/Export.h>
#include <kes/Forward.h>

namespace Kes {

/// One end of an association that refers to at most one instance, loaded lazily.
///
/// A reference read from the database knows the partner's
/// object id only, until Instance::get fills it. Applications use One<T>. The
/// order of the virtual operations is a contract with compiled applications.
class KES_EXPORT OneAssociatedInstance {
public:
    OneAssociatedInstance() = default;
    OneAssociatedInstance(const OneAssociatedInstance& other)
        : fetched(other.fetched),
          objectID(other.objectID) {}
    OneAssociatedInstance& operator=(const OneAssociatedInstance& other) {
        fetched = other.fetched;
        objectID = other.objectID;
        return *this;
    }

    /// Stores a borrowed instance, null for none. Stores only: links are made
    /// with Instance::set.
    virtual void setInstance(Instance* instance) = 0;

    /// The stored instance, borrowed; null when there is none or it is not
    /// fetched.
    virtual Instance* getInstance() = 0;

    /// False drops the stored instance, so that the next read loads again.
    virtual void setFetched(bool isFetchedNow);

    bool isFetched() const { return fetched; }

    /// The partner's object id as read from the database, 0 for none. Of no
    /// meaning once the reference is fetched.
    unsigned long getObjectID() const { return objectID; }

    /// For drivers, while they fill an instance; call setFetched(false) first.
    void setObjectID(unsigned long id) { objectID = id; }

protected:
    // Nobody deletes a reference through this class.
    ~OneAssociatedInstance() = default;

private:
    friend class ReferenceState;

    bool fetched = false;
    bool touched = false;  // the pending transaction remembers what it held; not copied
    unsigned long objectID = 0;
};

}  // namespace Kes
