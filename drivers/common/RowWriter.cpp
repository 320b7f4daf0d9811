#include "drivers/common/RowWriter.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>

#include <kes/Class.h>

#include "drivers/common/IdList.h"
#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

// Each row has one operation. Who goes makes room for who comes, in unique
// indexes too.
void RowWriter::write() {
    std::vector<std::size_t> removals = queue.all(WriteQueue::isRemoval);
    std::vector<std::size_t> updates = queue.all(WriteQueue::isUpdate);
    for (const std::size_t position : updates)
        queue.enterLinks(queue[position]);
    if (queue.takesUnique()) {
        sortByRow(removals);
        sortByRow(updates);
    } else {
        updates.insert(updates.end(), removals.begin(), removals.end());
        removals.clear();
        sortByRow(updates);
    }
    if (connection.prefersRuns())
        preferRuns(removals, updates);
    postInOrder(removals);
    setAside(updates);
    postInOrder(updates);
    postInserts();
    binder.forget();
}

// Runs are worth a statement that takes the locks in the order of the rows.
void RowWriter::preferRuns(std::vector<std::size_t>& removals, std::vector<std::size_t>& updates) {
    std::vector<std::size_t> order(removals);
    order.insert(order.end(), updates.begin(), updates.end());
    const std::size_t runs = countRuns(order);
    queue.sortIntoRuns(order);
    if (!queue.takesUnique() && runs <= countRuns(order) + 1)
        return;
    queue.sortIntoRuns(removals);
    queue.sortIntoRuns(updates);
    order = removals;
    order.insert(order.end(), updates.begin(), updates.end());
    if (!isByRow(order))
        lockRows(std::move(order));
}

// The same in all processes, so by name.
bool RowWriter::precedes(std::size_t left, std::size_t right) const {
    const Instance* one = queue[left].instance;
    const Instance* other = queue[right].instance;
    if (one->getClass() != other->getClass())
        return std::strcmp(one->getClass()->getName(), other->getClass()->getName()) < 0;
    return one->getObjectID() < other->getObjectID();
}

bool RowWriter::isByRow(const std::vector<std::size_t>& order) const {
    return std::is_sorted(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
        return precedes(left, right);
    });
}

void RowWriter::sortByRow(std::vector<std::size_t>& order) const {
    if (!isByRow(order))
        std::stable_sort(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
            return precedes(left, right);
        });
}

std::size_t RowWriter::countRuns(const std::vector<std::size_t>& order) const {
    std::size_t runs = order.empty() ? 0 : 1;
    for (std::size_t i = 1; i < order.size(); ++i) {
        const WriteQueue::Operation& one = queue[order[i - 1]];
        const WriteQueue::Operation& other = queue[order[i]];
        if (one.kind != other.kind || one.instance->getClass() != other.instance->getClass() ||
            one.set != other.set)
            ++runs;
    }
    return runs;
}

// Where the order of the writes is another.
void RowWriter::lockRows(std::vector<std::size_t> order) {
    sortByRow(order);
    for (std::size_t begin = 0; begin < order.size();) {
        Class* cls = queue[order[begin]].instance->getClass();
        std::vector<std::int64_t> ids;
        std::size_t end = begin;
        for (; end < order.size() && queue[order[end]].instance->getClass() == cls; ++end)
            ids.push_back(static_cast<std::int64_t>(queue[order[end]].instance->getObjectID()));
        const TableMapping& table = tables.of(cls);
        const std::string id = table.column(TableMapping::IdColumn);
        for (std::size_t at = 0; at < ids.size(); at += IdList::Longest) {
            const IdList list(ids, at, IdList::Longest);
            try {
                Statement& locking =
                    statements.keep("SELECT " + id + " FROM " + table.table() + " WHERE " + id +
                                    " IN " + list.text() + " ORDER BY " + id + dialect.rowLock());
                list.bindTo(locking);
                while (locking.step())
                    continue;
                locking.reset();
            } catch (const SqlFailure& failure) {
                throw PostFailure(order[begin + at], failure);
            }
        }
        begin = end;
    }
}

// Rows may take each other's values in a unique index, in a circle even. So where
// several change such values, they first get values that no row has.
void RowWriter::setAside(const std::vector<std::size_t>& updates) {
    if (!queue.takesUnique())
        return;
    std::unordered_map<Class*, std::vector<std::size_t>> changing;
    for (const std::size_t position : updates) {
        Class* cls = queue[position].instance->getClass();
        if (tables.of(cls).changesUnique(queue[position].set))
            changing[cls].push_back(position);
    }
    bool hasMoved = false;
    for (const std::size_t position : updates) {
        const WriteQueue::Operation& row = queue[position];
        const auto found = changing.find(row.instance->getClass());
        if (found == changing.end() || found->second.size() < 2)
            continue;
        TableMapping& table = tables.of(row.instance->getClass());
        const ColumnSet columns = table.movableOf(row.set);
        if (columns.empty())
            continue;
        Statement& moving = table.update(columns);
        const int next = spares.bind(moving, table, columns, row.instance->getObjectID());
        moving.bind(next, static_cast<std::int64_t>(row.instance->getObjectID()));
        moving.bind(next + 1, static_cast<std::int64_t>(row.expected));
        moving.post(position, 1);
        hasMoved = true;
    }

    // A row that somebody else has changed did not move, and its value would be
    // in the way of another.
    if (hasMoved)
        connection.awaitPosts();
}

void RowWriter::postInserts() {
    std::vector<std::size_t> order = queue.all(WriteQueue::isInsertion);
    const auto classAt = [&](std::size_t position) { return queue[position].instance->getClass(); };
    const auto isBefore = [&](std::size_t left, std::size_t right) {
        return classAt(left) != classAt(right) &&
               std::strcmp(classAt(left)->getName(), classAt(right)->getName()) < 0;
    };
    if (!std::is_sorted(order.begin(), order.end(), isBefore))
        std::stable_sort(order.begin(), order.end(), isBefore);
    for (std::size_t begin = 0; begin < order.size();) {
        Class* cls = classAt(order[begin]);
        const std::size_t most = tables.of(cls).insertedRows();
        const bool isMany =
            most > 1 && most <= order.size() - begin && classAt(order[begin + most - 1]) == cls;
        if (isMany)
            postMany(&order[begin], most);
        else
            post(order[begin]);
        begin += isMany ? most : 1;
    }
}

void RowWriter::postMany(const std::size_t* run, std::size_t count) {
    TableMapping& table = tables.of(queue[*run].instance->getClass());
    Statement& statement = table.insertMany();
    std::size_t at = 0;
    try {
        for (; at < count; ++at) {
            const WriteQueue::Operation& row = queue[run[at]];
            binder.bindAll(statement, table, row.instance, row.links,
                           static_cast<int>(at * table.columns().size()));
            queue.noteInserted(row.instance, binder.isAsInMemory());
        }
        at = 0;
        statement.post(run[0], static_cast<long>(count));
    } catch (const PostFailure& failure) {
        throw PostFailure(run[std::min(failure.rowsBefore, count - 1)], failure);
    } catch (const SqlFailure& failure) {
        throw PostFailure(run[at], failure);
    }
}

void RowWriter::post(std::size_t position) {
    postAs(position, [&] {
        switch (queue[position].kind) {
        case WriteQueue::Kind::Insert: return postInsert(position);
        case WriteQueue::Kind::Update: return postUpdate(position);
        case WriteQueue::Kind::Remove: return postRemove(position);
        default: return;
        }
    });
}

void RowWriter::postInOrder(const std::vector<std::size_t>& order) {
    for (const std::size_t position : order)
        post(position);
}

void RowWriter::postInsert(std::size_t position) {
    const WriteQueue::Operation& operation = queue[position];
    TableMapping& table = tables.of(operation.instance->getClass());
    Statement& statement = table.insert();
    binder.bindAll(statement, table, operation.instance, operation.links);
    statement.post(position, 1);
    queue.noteInserted(operation.instance, binder.isAsInMemory());
}

void RowWriter::postUpdate(std::size_t position) {
    WriteQueue::Operation& operation = queue[position];
    TableMapping& table = tables.of(operation.instance->getClass());
    const ColumnSet& set = queue.enterLinks(operation);
    Statement& statement = table.update(set);
    const int next = binder.bindSome(statement, table, operation.instance, operation.links, set);
    statement.bind(next, static_cast<std::int64_t>(operation.instance->getObjectID()));
    statement.bind(next + 1, static_cast<std::int64_t>(operation.expected));
    statement.post(position, 1);
}

void RowWriter::postRemove(std::size_t position) {
    const WriteQueue::Operation& operation = queue[position];
    Statement& statement = tables.of(operation.instance->getClass()).remove();
    statement.bind(0, static_cast<std::int64_t>(operation.instance->getObjectID()));
    statement.bind(1, static_cast<std::int64_t>(operation.expected));
    statement.post(position, 1);
}

}  // namespace Kes::sql
