// What a query is made of.

#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <kes/Pointer.h>
#include <kes/QueryBase.h>
#include <kes/Selection.h>

#include "typed/PredicateNode.h"
#include "typed/Session.h"

namespace Kes {

struct QueryBase::Definition {
    // Sorts by the keys that were given; the id decides where these do not.
    void sort(Selection& selection) const;
    void restrict(Selection& selection) const;
    bool isPart() const { return most != UINT64_MAX || skipped != 0; }

    std::shared_ptr<Session> session;
    Class* cls;
    std::vector<NodePtr> conditions;
    std::vector<SortKeyData> keys;
    std::uint64_t most = UINT64_MAX;
    std::uint64_t skipped = 0;
    Pointer<Instance> before{};
    bool isBehind = false;  // an object, that is
};

}  // namespace Kes
