#include "drivers/common/PartnerCheck.h"

#include <algorithm>
#include <unordered_map>

#include <kes/Class.h>

#include "drivers/common/IdList.h"
#include "drivers/common/ObjectFields.h"
#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

namespace {

std::vector<std::int64_t> sortedIds(Statement& asking) {
    const Execution execution(asking);
    std::vector<std::int64_t> ids;
    while (asking.step())
        ids.push_back(asking.integer(0));
    std::sort(ids.begin(), ids.end());
    return ids;
}

}  // namespace

// A link to an object that somebody else has removed would dangle.
void PartnerCheck::run() {
    std::unordered_map<Class*, std::vector<std::int64_t>> unsure;
    const Instance* last = nullptr;
    const auto note = [&](const Instance* partner) {
        if (partner == nullptr || partner == last)
            return;
        last = partner;
        unsure[partner->getClass()].push_back(static_cast<std::int64_t>(partner->getObjectID()));
    };
    for (std::size_t i = 0; i < queue.size(); ++i) {
        const WriteQueue::Operation& operation = queue[i];
        if (operation.kind == WriteQueue::Kind::Insert ||
            operation.kind == WriteQueue::Kind::Update)
            for (const LinkValue& link : operation.links)
                note(link.check);
        if (operation.kind == WriteQueue::Kind::Link) {
            note(unlessWritten(operation.instance));
            note(unlessWritten(operation.other));
        }
    }
    for (auto& [cls, ids] : unsure) {
        std::sort(ids.begin(), ids.end());
        ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
        check(cls, ids);
    }
}

void PartnerCheck::check(Class* cls, const std::vector<std::int64_t>& ids) {
    const TableMapping& table = tables.of(cls);
    const std::string id = table.column(TableMapping::IdColumn);
    for (std::size_t begin = 0; begin < ids.size(); begin += IdList::Longest) {
        const IdList list(ids, begin, IdList::Longest);
        const std::string where = " WHERE " + id + " IN " + list.text();
        const std::string change = dialect.touchPartners(table.table());
        if (!change.empty()) {
            Statement& touching = statements.keep(change + where);
            list.bindTo(touching);
            touching.run();
        }
        // With the version, so that no index answers and is locked alone.
        Statement& asking =
            statements.keep("SELECT " + id + ", " + table.column(TableMapping::VersionColumn) +
                            " FROM " + table.table() + where + dialect.sharedLock());
        list.bindTo(asking);
        const std::vector<std::int64_t> stored = sortedIds(asking);
        for (std::size_t i = begin; i < list.end(); ++i)
            if (!std::binary_search(stored.begin(), stored.end(), ids[i]))
                failOnPartner(ids[i]);
    }
}

void PartnerCheck::failOnPartner(std::int64_t id) const {
    const auto isMissing = [&](const Instance* partner) {
        return partner != nullptr && partner->getObjectID() == static_cast<unsigned long>(id);
    };
    for (std::size_t i = 0; i < queue.size(); ++i) {
        const WriteQueue::Operation& operation = queue[i];
        const Instance* missing = nullptr;
        for (const LinkValue& link : operation.links)
            if (isMissing(link.check))
                missing = link.check;
        if (operation.kind == WriteQueue::Kind::Link)
            for (const Instance* end : {operation.instance, operation.other})
                if (isMissing(end))
                    missing = end;
        if (missing != nullptr)
            throw PostFailure(i,
                              "its partner, the " + nameOf(missing) +
                                  ", is not stored: somebody else has removed it",
                              0, FailureKind::Conflict);
    }
    throw SqlFailure("object " + std::to_string(id) + " is not stored", FailureKind::Conflict);
}

}  // namespace Kes::sql
