// The sort keys of the heads of a merge.
//
// Each head's keys are read once, when its cursor advances, and kept until it
// advances again. They are compared as SortHandler compares them, with one
// difference: SortHandler reads no field after the one that decides, so a best
// head can lack its minor keys and lose no tie by them, whereas here all keys
// are read and every tie is decided.

#pragma once

#include <cstddef>
#include <variant>
#include <vector>

#include <kes/Forward.h>
#include <kes/Handler.h>
#include <kes/PtrList.h>
#include <kes/String.h>
#include <kes/Timestamp.h>

namespace Kes {

/// One key of one head; monostate when the instance did not report it.
using MergeKey =
    std::variant<std::monostate, unsigned long, long, float, double, String, Timestamp>;

class MergeKeys final : public Handler {
public:
    /// Where boolean keys are not taken, read raises SORTFAIL (ERROR) for one.
    MergeKeys(const PtrList<SortOrder>& orders, bool takesFlags);

    /// Reads the keys of a head: those of its row, which null stands for when the
    /// driver does not show them, or else those of the object.
    void read(StoredKeys* row, Instance* head, std::vector<MergeKey>& keys);

    /// -1 when `a` comes before `b`, 1 when after, 0 when they are equal or
    /// undecided: a key that one of them does not report, or as another kind,
    /// ends the comparison.
    int compare(const std::vector<MergeKey>& a, const std::vector<MergeKey>& b) const;

    /// Whether the head reports the same keys, in the same kinds, as the first
    /// one that was asked for: heads that all do are in order.
    bool isAlike(const std::vector<MergeKey>& head);

    void handleULong(const String& name, unsigned long& value) override;
    void handleLong(const String& name, long& value) override;
    void handleString(const String& name, String& value, int length) override;
    void handleInt(const String& name, int& value) override;
    void handleUInt(const String& name, unsigned int& value) override;
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

private:
    struct Order {
        String name;
        bool ascending;
    };

    template <class T>
    void offer(const String& name, const T& value);

    std::vector<Order> orders;
    bool takesFlags;
    std::vector<std::size_t> kinds;  // of the first head, to the first missing key
    bool kindsKnown = false;
    std::vector<MergeKey>* target = nullptr;  // during read
};

}  // namespace Kes
