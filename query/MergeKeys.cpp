#include "query/MergeKeys.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

#include <kes/Calculator.h>
#include <kes/Exception.h>
#include <kes/Instance.h>
#include <kes/Selection.h>

#include "object/FieldWalk.h"

namespace Kes {

namespace {

// -1, 0 or 1, as the sort values compare.
template <class T>
int compareValues(const T& a, const T& b) {
    if constexpr (std::is_same_v<T, std::monostate>) {
        return 0;
    } else if constexpr (std::is_same_v<T, String>) {
        const int order = a.compare(b);
        return order < 0 ? -1 : order > 0 ? 1 : 0;
    } else if constexpr (std::is_floating_point_v<T>) {
        // A NaN sorts before all numbers, and with its like: a heap needs an order.
        if (std::isnan(a) || std::isnan(b))
            return static_cast<int>(std::isnan(b)) - static_cast<int>(std::isnan(a));
        return a < b ? -1 : a > b ? 1 : 0;
    } else {
        return a < b ? -1 : a > b ? 1 : 0;
    }
}

int compareKeys(const MergeKey& a, const MergeKey& b) {
    return std::visit(
        [&](const auto& value) {
            return compareValues(value, *std::get_if<std::decay_t<decltype(value)>>(&b));
        },
        a);
}

bool isMissing(const MergeKey& key) {
    return std::holds_alternative<std::monostate>(key);
}

}  // namespace

// A field that is named once more cannot decide, and is no reason to leave what
// follows undecided.
MergeKeys::MergeKeys(const PtrList<SortOrder>& sortOrders, bool takes) : takesFlags(takes) {
    for (const SortOrder* order : sortOrders) {
        const String& name = order->getAttribute().getName();
        const bool isNamed = std::any_of(orders.begin(), orders.end(),
                                         [&](const Order& before) { return before.name == name; });
        if (!isNamed)
            orders.push_back({name, order->isAscending()});
    }
}

void MergeKeys::read(StoredKeys* row, Instance* head, std::vector<MergeKey>& keys) {
    keys.assign(orders.size(), MergeKey());
    target = &keys;
    if (row == nullptr || !row->showKeys(*this))
        walkFields(head, *this);
    target = nullptr;
}

int MergeKeys::compare(const std::vector<MergeKey>& a, const std::vector<MergeKey>& b) const {
    for (std::size_t i = 0; i < orders.size(); ++i) {
        if (isMissing(a[i]) || a[i].index() != b[i].index())
            return 0;
        const int order = compareKeys(a[i], b[i]);
        if (order != 0)
            return orders[i].ascending ? order : -order;
    }
    return 0;
}

bool MergeKeys::isAlike(const std::vector<MergeKey>& head) {
    std::size_t count = 0;
    while (count < head.size() && !isMissing(head[count]))
        ++count;
    if (!kindsKnown) {
        for (std::size_t i = 0; i < count; ++i)
            kinds.push_back(head[i].index());
        kindsKnown = true;
    }
    if (count != kinds.size())
        return false;
    for (std::size_t i = 0; i < count; ++i)
        if (head[i].index() != kinds[i])
            return false;
    return true;
}

template <class T>
void MergeKeys::offer(const String& name, const T& value) {
    for (std::size_t i = 0; i < orders.size(); ++i)
        if (orders[i].name == name) {
            (*target)[i] = value;
            return;
        }
}

void MergeKeys::handleULong(const String& name, unsigned long& value) {
    offer(name, value);
}

void MergeKeys::handleLong(const String& name, long& value) {
    offer(name, value);
}

void MergeKeys::handleString(const String& name, String& value, int) {
    offer(name, value);
}

void MergeKeys::handleInt(const String& name, int& value) {
    offer(name, static_cast<long>(value));
}

void MergeKeys::handleUInt(const String& name, unsigned int& value) {
    offer(name, static_cast<unsigned long>(value));
}

void MergeKeys::handleBool(const String& name, bool& value) {
    if (takesFlags) {
        offer(name, long{value});
        return;
    }
    for (const Order& order : orders)
        if (order.name == name) {
            Exception(Exception::ERROR, "SORTFAIL", "Selection::next",
                      "You can not sort on boolean attributes")
                .handle();
            return;
        }
}

void MergeKeys::handleFloat(const String& name, float& value) {
    offer(name, value);
}

void MergeKeys::handleDouble(const String& name, double& value) {
    offer(name, value);
}

void MergeKeys::handleTimestamp(const String& name, Timestamp& value) {
    offer(name, value);
}

void MergeKeys::handleBlob(const String&, Blob&) {}

void MergeKeys::handleOneAssociated(const String&, const String&, OneAssociatedInstance*,
                                    Association::ConsistencyRule) {}

void MergeKeys::handleManyAssociated(const String&, const String&, ManyAssociatedInstances*) {}

}  // namespace Kes
