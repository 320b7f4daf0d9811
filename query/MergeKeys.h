// The sort keys of the heads of a merge.
//
// Choosing the next row among k sorted cursors compares k heads, but only one
// of them is new. Each head's keys are therefore read once, when its cursor
// advances, and kept until it advances again. Comparison follows SortHandler to
// the letter: a key that an instance does not report leaves the comparison
// undecided, and of equals the first stays.

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
    explicit MergeKeys(const PtrList<SortOrder>& orders);

    /// Reads the keys of a head. Raises SORTFAIL (ERROR) for a boolean key.
    void read(Instance* head, std::vector<MergeKey>& keys);

    /// Whether the candidate comes strictly before the best so far.
    bool isBetter(const std::vector<MergeKey>& candidate,
                  const std::vector<MergeKey>& best) const;

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
    std::vector<MergeKey>* target = nullptr;  // during read
};

}  // namespace Kes
