#include "drivers/common/LinkWriter.h"

#include <algorithm>

#include <kes/Class.h>
#include <kes/Model.h>

#include "drivers/common/IdList.h"
#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

// Takes the partners of the queue's one-to-one links from those who have them.
void LinkWriter::emptyTaken() {
    using Key = std::pair<Association*, bool>;
    std::map<Key, std::unordered_map<unsigned long, const Instance*>> takers;
    for (const auto& [held, holder] : queue.getHolders()) {
        const auto& [association, isOneRole, partner] = held;
        if (holder.mayHaveForerunner)
            takers[{association, isOneRole}][partner->getObjectID()] = holder.instance;
    }
    for (const auto& entry : takers) {
        const auto& key = entry.first;
        const auto& taken = entry.second;
        Association* association = key.first;
        const String& role = key.second ? association->getOneRole() : association->getOtherRole();
        std::vector<std::int64_t> partners;
        partners.reserve(taken.size());
        for (const auto& [partner, taker] : taken)
            partners.push_back(static_cast<std::int64_t>(partner));
        std::sort(partners.begin(), partners.end());
        for (Class* holder : ModelMapping::concreteClasses(association->getClassFor(role))) {
            std::vector<StoredReference> found = readReferences(holder, role, partners);
            std::erase_if(found, [&](const StoredReference& each) {
                return taken.at(each.partner)->getObjectID() == each.id;
            });
            const std::uint32_t ticket =
                found.empty() ? 0 : queue.positionOf(taken.at(found.front().partner));
            emptyRows(holder, association, role, found, ticket != InstanceMap::None ? ticket : 0);
        }
    }
}

// The rows that lead to one of the partners, which nobody else changes from then
// on.
std::vector<LinkWriter::StoredReference> LinkWriter::readReferences(
    Class* holder, const String& role, const std::vector<std::int64_t>& partners) {
    const TableMapping& table = tables.of(holder);
    const std::string id = table.column(TableMapping::IdColumn);
    const std::string column = dialect.quote(static_cast<const char*>(role));
    std::vector<StoredReference> found;
    for (std::size_t begin = 0; begin < partners.size(); begin += IdList::Longest) {
        const IdList list(partners, begin, IdList::Longest);
        Statement& asking =
            statements.keep("SELECT " + id + ", " + column + " FROM " + table.table() + " WHERE " +
                            column + " IN " + list.text() + " ORDER BY " + id + dialect.rowLock());
        list.bindTo(asking);
        const Execution execution(asking);
        while (asking.step())
            found.push_back({holder, static_cast<unsigned long>(asking.integer(0)),
                             static_cast<unsigned long>(asking.integer(1))});
    }
    return found;
}

// Empties the references of rows that nobody else can change any more.
void LinkWriter::emptyRows(Class* holder, Association* association, const String& role,
                           const std::vector<StoredReference>& found, std::size_t ticket) {
    const int column = tables.of(holder).find(static_cast<const char*>(role));
    std::vector<std::int64_t> raised;
    std::vector<std::int64_t> others;
    for (const StoredReference& each : found) {
        Instance* owner = holder->getModel()->get(each.id);
        if (owner != nullptr && queue.isForgotten(owner, column))
            continue;
        if (owner != nullptr)
            queue.noteRewritten(owner);
        const bool raises = owner == nullptr || !queue.isWritten(owner);
        (raises ? raised : others).push_back(static_cast<std::int64_t>(each.id));
        if (listener != nullptr)
            listener->referenceEmptied(association, role, each.id, holder, each.partner, raises);
    }
    postEmptied(holder, role, others, false, ticket);
    postEmptied(holder, role, raised, true, ticket);
}

void LinkWriter::postEmptied(Class* holder, const String& role,
                             const std::vector<std::int64_t>& ids, bool raising,
                             std::size_t ticket) {
    const TableMapping& table = tables.of(holder);
    const std::string version = table.column(TableMapping::VersionColumn);
    const std::string change = "UPDATE " + table.table() + " SET " +
                               dialect.quote(static_cast<const char*>(role)) + " = NULL" +
                               (raising ? ", " + version + " = " + version + " + 1" : "") +
                               " WHERE " + table.column(TableMapping::IdColumn) + " IN ";
    for (std::size_t begin = 0; begin < ids.size(); begin += IdList::Longest) {
        const IdList list(ids, begin, IdList::Longest);
        Statement& statement = statements.keep(change + list.text());
        list.bindTo(statement);
        statement.post(ticket, 0);
    }
}

// The row itself is written, with its version, by its own operation.
void LinkWriter::dissolveApart() {
    for (const WriteQueue::Dissolved& each : queue.getDissolved()) {
        const WriteQueue::Operation& row = queue[each.position];
        if (row.kind != WriteQueue::Kind::Update)
            continue;
        const TableMapping& table = tables.of(row.instance->getClass());
        const std::string column = table.column(each.column);
        Statement& statement =
            statements.keep("UPDATE " + table.table() + " SET " + column + " = NULL WHERE " +
                            table.column(TableMapping::IdColumn) + " = ? AND " + column + " = ?");
        statement.bind(0, static_cast<std::int64_t>(row.instance->getObjectID()));
        statement.bind(1, each.partner);
        statement.post(each.position, 0);
    }
}

// Links to an object that others make meanwhile wait for the removal of its row,
// or are found here.
void LinkWriter::postDissolvers(bool goesOn) {
    std::unordered_map<const Class*, std::vector<std::size_t>> removed;
    for (const std::size_t position : queue.all(WriteQueue::isRemoval)) {
        const Class* cls = queue[position].instance->getClass();
        if (!tables.referrers(cls).empty())
            removed[cls].push_back(position);
    }

    // Sub classes share their associations. In the order of the texts, so that
    // sessions do not wait for each other crosswise.
    using Concern = std::pair<const Referrer*, std::vector<std::size_t>>;
    std::map<std::string, Concern> concerned;
    for (const auto& [cls, those] : removed)
        for (const Referrer& referrer : tables.referrers(cls)) {
            Concern& known = concerned[referrer.dissolver];
            known.first = &referrer;
            known.second.insert(known.second.end(), those.begin(), those.end());
        }
    for (const auto& [text, concern] : concerned)
        postDissolver(*concern.first, concern.second, goesOn);
}

void LinkWriter::postDissolver(const Referrer& referrer, const std::vector<std::size_t>& removed,
                               bool goesOn) {
    std::vector<std::int64_t> ids;
    ids.reserve(removed.size());
    for (const std::size_t position : removed)
        ids.push_back(static_cast<std::int64_t>(queue[position].instance->getObjectID()));
    // Of links that the library names no row is left, but where it has parted who was
    // not linked, and where the row itself goes later: what is written, and its version
    // raised, by its own operation is none of this one's business.
    const bool isOfOthers = !goesOn && !queue.hasParted(referrer.association);
    if (referrer.isUnnamed() || (referrer.holder != nullptr && !isOfOthers)) {
        emptyRows(referrer.holder, referrer.association, *referrer.role,
                  readReferences(referrer.holder, *referrer.role, ids), removed.front());
        return;
    }
    const std::size_t longest = connection.prefersRuns() ? 1 : IdList::Longest;
    for (std::size_t begin = 0; begin < ids.size(); begin += longest) {
        const IdList list(ids, begin, longest);
        Statement& statement = statements.keep(referrer.dissolver + list.text());
        list.bindTo(statement);
        statement.post(removed[begin], 0);
    }
}

void LinkWriter::postLinks() {
    std::vector<std::size_t> order = queue.all(WriteQueue::isLink);
    if (connection.prefersRuns()) {
        keepLastOfPairs(order);
        queue.sortIntoRuns(order);
    }
    for (const std::size_t position : order)
        postAs(position, [&] { postLink(position); });
}

// Of what befalls one pair the last counts, so the order of the others is free.
void LinkWriter::keepLastOfPairs(std::vector<std::size_t>& order) const {
    const auto pairAt = [&](std::size_t position) {
        const WriteQueue::Operation& row = queue[position];
        return std::pair(row.association, endsOf(row));
    };
    std::stable_sort(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
        return pairAt(left) < pairAt(right);
    });
    std::size_t count = 0;
    for (std::size_t i = 0; i < order.size(); ++i)
        if (i + 1 == order.size() || pairAt(order[i]) != pairAt(order[i + 1]))
            order[count++] = order[i];
    order.resize(count);
}

// Whom the one role leads to and whom the other role leads to, as the columns
// named by the roles hold them.
std::pair<const Instance*, const Instance*> LinkWriter::endsOf(const WriteQueue::Operation& row) {
    return row.role == &row.association->getOneRole() ? std::pair(row.other, row.instance)
                                                      : std::pair(row.instance, row.other);
}

void LinkWriter::postLink(std::size_t position) {
    const WriteQueue::Operation& operation = queue[position];
    const Association* association = operation.association;
    Statement*& statement = linking[{association, operation.kind}];
    if (statement == nullptr) {
        const std::string table = dialect.quote(static_cast<const char*>(association->getName()));
        const std::string one = dialect.quote(static_cast<const char*>(association->getOneRole()));
        const std::string other =
            dialect.quote(static_cast<const char*>(association->getOtherRole()));
        statement = &statements.keep(
            operation.kind == WriteQueue::Kind::Link
                ? dialect.insertOrKeep(table + " (" + one + ", " + other + ") VALUES (?, ?)")
                : "DELETE FROM " + table + " WHERE " + one + " = ? AND " + other + " = ?");
    }
    const auto [one, other] = endsOf(operation);
    statement->bind(0, static_cast<std::int64_t>(one->getObjectID()));
    statement->bind(1, static_cast<std::int64_t>(other->getObjectID()));
    statement->post(position, 0);
}

}  // namespace Kes::sql
