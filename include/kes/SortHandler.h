// Comparing instances by sort keys, across the cursors of a selection.

#pragma once

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/Handler.h>
#include <kes/PtrList.h>
#include <kes/PtrVector.h>
#include <kes/String.h>
#include <kes/ValVector.h>

namespace Kes {

/// One key value that was read from an instance.
class KES_EXPORT SortValueBase {
public:
    virtual ~SortValueBase();

    /// -1 when this value sorts before `other`, which is of the same type, +1
    /// when after, 0 when equal.
    virtual int compare(SortValueBase* other) = 0;
};

/// Reads the sort keys out of candidate instances, keeps the best seen so far
/// and tells whether the instance just visited beats it.
///
/// A pass: for each candidate `candidate->handle(&handler)` and isBetter; then
/// reinit. Only a strictly better candidate wins, so the first of equals stays.
class KES_EXPORT SortHandler : public Handler {
public:
    SortHandler() = default;

    /// Copies stand where the other handler stands and own values of their own.
    SortHandler(const SortHandler& other);
    SortHandler& operator=(const SortHandler& other);
    ~SortHandler() override;

    /// Once, with the keys in order, the major one first.
    void init(const PtrList<SortOrder>& orders);
    bool isBetter();
    void reinit();

    void handleULong(const String& name, unsigned long& value) override;
    void handleLong(const String& name, long& value) override;
    void handleString(const String& name, String& value, int length) override;
    void handleInt(const String& name, int& value) override;
    void handleUInt(const String& name, unsigned int& value) override;

    /// Raises SORTFAIL (ERROR) when the field is a key.
    void handleBool(const String& name, bool& value) override;
    void handleFloat(const String& name, float& value) override;
    void handleDouble(const String& name, double& value) override;
    void handleTimestamp(const String& name, Timestamp& value) override;
    void handleBlob(const String& name, Blob& value) override;
    void handleOneAssociated(const String& association, const String& role,
                             OneAssociatedInstance* ref,
                             Association::ConsistencyRule rule) override;
    void handleManyAssociated(const String& association, const String& role,
                              ManyAssociatedInstances* ref) override;

protected:
    /// +1 when the candidate is better, -1 when the best stays, 0 when they are
    /// equal on every key read so far.
    int isHandledBetter();

private:
    template <class T>
    void offer(const String& name, const T& value);
    void takeValues(const SortHandler& other);

    ValVector<String> names{10, 10};
    PtrVector<SortValueBase> best{10, 10};       // owned, per key, may be null
    PtrVector<SortValueBase> candidate{10, 10};  // owned, per key, may be null
    ValVector<bool> ascending{10, 10};
    bool first = true;
};

}  // namespace Kes
