#include "drivers/common/WriteQueue.h"

#include <algorithm>
#include <cstring>
#include <tuple>

#include <kes/Class.h>
#include <kes/Model.h>

#include "drivers/common/IdList.h"
#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

void WriteQueue::enterColumn(Operation& operation, int column) {
    const auto position = static_cast<std::size_t>(column);
    if (operation.set.size() <= position / 64)
        operation.set.resize(position / 64 + 1);
    operation.set[position / 64] |= std::uint64_t{1} << position % 64;
}

std::string WriteQueue::nameOf(const Instance* instance) {
    return std::string(static_cast<const char*>(instance->getClass()->getName())) + " object " +
           std::to_string(instance->getObjectID());
}

WriteQueue::Operation& WriteQueue::add(Kind kind, Instance* instance) {
    if (used == operations.size())
        operations.emplace_back();
    Operation& fresh = operations[used++];
    fresh.kind = kind;
    fresh.raised = false;
    fresh.instance = instance;
    fresh.expected = 0;
    fresh.set.clear();
    fresh.links.clear();
    fresh.association = nullptr;
    fresh.role = nullptr;
    if (!isRow(kind))
        return fresh;
    positions.set(instance, used - 1);
    if (instance->getClass() != lastClass) {
        lastClass = instance->getClass();
        holdsUnique = holdsUnique || tables.of(instance->getClass()).hasUnique();
    }
    return fresh;
}

WriteQueue::Operation* WriteQueue::find(const Instance* instance) {
    const std::uint32_t position = positions.find(instance);
    return position != InstanceMap::None ? &operations[position] : nullptr;
}

void WriteQueue::insert(Instance* instance) {
    add(Kind::Insert, instance);
}

void WriteQueue::update(Instance* instance) {
    const ClassTable& table = tables.of(instance->getClass());
    Operation* known = find(instance);
    if (known != nullptr && known->kind == Kind::Insert)
        return;
    if (known == nullptr) {
        known = &add(Kind::Update, instance);
        known->expected = instance->getVersion() - 1;
    } else if (known->raised) {
        // One commit raises once: the library has done it by now.
        instance->previousVersion();
        known->raised = false;
    }
    addColumns(*known, table, instance);
}

// The fields that differ from the stored ones, or all where that is unknown.
void WriteQueue::addColumns(Operation& operation, const ClassTable& table, Instance* instance) {
    enterColumn(operation, ClassTable::VersionColumn);
    const bool known = instance->getClass()->getModel()->getChangedFields(instance, changed);
    for (std::size_t field = 2; field < table.fieldCount(); ++field)
        if (!known || changed.contains(field))
            enterColumn(operation, table.columnOfField(field));
}

void WriteQueue::remove(Instance* instance) {
    unsigned long expected = instance->getVersion() - 1;
    if (Operation* known = find(instance)) {
        const bool neverStored = known->kind == Kind::Insert;
        expected = known->expected;
        if (known->raised)
            instance->previousVersion();
        known->kind = Kind::Nothing;
        positions.erase(instance);
        if (neverStored)
            return;
    }
    add(Kind::Remove, instance).expected = expected;
}

void WriteQueue::flush(bool goesOn) {
    try {
        postAll();
        connection.settle();
    } catch (const PostFailure& failure) {
        fail(failure);
    }
    for (std::size_t i = 0; goesOn && i < used; ++i)
        if (operations[i].kind == Kind::Update && !operations[i].instance->inTransaction())
            raisedEarlier.insert(operations[i].instance);
    forget();
}

void WriteQueue::forget() {
    used = 0;
    positions.clear();
    holders.clear();
    dissolved.clear();
    holdsUnique = false;
    lastClass = nullptr;
}

void WriteQueue::clear() {
    forget();
    raisedEarlier.clear();
    inserted.clear();
    insertedIsSorted = true;
}

void WriteQueue::postAll() {
    checkPartners();
    emptyTaken();
    dissolveApart();
    postRows();
    postDissolvers();
    postLinks();
}

void WriteQueue::postInOrder(const std::vector<std::size_t>& order) {
    for (const std::size_t position : order)
        post(position);
}

std::vector<std::size_t> WriteQueue::all(bool (*isWanted)(Kind)) const {
    std::vector<std::size_t> found;
    for (std::size_t i = 0; i < used; ++i)
        if (isWanted(operations[i].kind))
            found.push_back(i);
    return found;
}

void WriteQueue::sortIntoRuns(std::vector<std::size_t>& order) {
    const auto keyOf = [&](std::size_t position) {
        const Operation& each = operations[position];
        return std::tuple<Kind, const Association*, const String*, const Class*, const ColumnSet&>(
            each.kind, each.association, each.role, each.instance->getClass(), each.set);
    };
    std::stable_sort(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
        return keyOf(left) < keyOf(right);
    });
}

// The same in all processes, so by name.
bool WriteQueue::precedes(std::size_t left, std::size_t right) const {
    const Instance* one = operations[left].instance;
    const Instance* other = operations[right].instance;
    if (one->getClass() != other->getClass())
        return std::strcmp(one->getClass()->getName(), other->getClass()->getName()) < 0;
    return one->getObjectID() < other->getObjectID();
}

bool WriteQueue::isByRow(const std::vector<std::size_t>& order) const {
    return std::is_sorted(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
        return precedes(left, right);
    });
}

void WriteQueue::sortByRow(std::vector<std::size_t>& order) const {
    if (!isByRow(order))
        std::stable_sort(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
            return precedes(left, right);
        });
}

// Each row has one operation. Who goes makes room for who comes, in unique
// indexes too.
void WriteQueue::postRows() {
    std::vector<std::size_t> removals = all(isRemoval);
    std::vector<std::size_t> updates = all(isUpdate);
    for (const std::size_t position : updates)
        enterLinks(operations[position]);
    if (holdsUnique) {
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
}

// Runs are worth a statement that takes the locks in the order of the rows.
void WriteQueue::preferRuns(std::vector<std::size_t>& removals, std::vector<std::size_t>& updates) {
    std::vector<std::size_t> order(removals);
    order.insert(order.end(), updates.begin(), updates.end());
    const std::size_t runs = countRuns(order);
    sortIntoRuns(order);
    if (!holdsUnique && runs <= countRuns(order) + 1)
        return;
    sortIntoRuns(removals);
    sortIntoRuns(updates);
    order = removals;
    order.insert(order.end(), updates.begin(), updates.end());
    if (!isByRow(order))
        lockRows(std::move(order));
}

std::size_t WriteQueue::countRuns(const std::vector<std::size_t>& order) const {
    std::size_t runs = order.empty() ? 0 : 1;
    for (std::size_t i = 1; i < order.size(); ++i) {
        const Operation& one = operations[order[i - 1]];
        const Operation& other = operations[order[i]];
        if (one.kind != other.kind || one.instance->getClass() != other.instance->getClass() ||
            one.set != other.set)
            ++runs;
    }
    return runs;
}

// Where the order of the writes is another.
void WriteQueue::lockRows(std::vector<std::size_t> order) {
    sortByRow(order);
    for (std::size_t begin = 0; begin < order.size();) {
        Class* cls = operations[order[begin]].instance->getClass();
        std::vector<std::int64_t> ids;
        std::size_t end = begin;
        for (; end < order.size() && operations[order[end]].instance->getClass() == cls; ++end)
            ids.push_back(
                static_cast<std::int64_t>(operations[order[end]].instance->getObjectID()));
        const ClassTable& table = tables.of(cls);
        const std::string id = table.column(ClassTable::IdColumn);
        for (std::size_t at = 0; at < ids.size(); at += IdList::Longest) {
            const IdList list(ids, at, IdList::Longest);
            try {
                Statement& locking =
                    kept("SELECT " + id + " FROM " + table.table() + " WHERE " + id + " IN " +
                         list.text() + " ORDER BY " + id + dialect.rowLock());
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
void WriteQueue::setAside(const std::vector<std::size_t>& updates) {
    if (!holdsUnique)
        return;
    std::unordered_map<Class*, std::vector<std::size_t>> changing;
    for (const std::size_t position : updates) {
        Class* cls = operations[position].instance->getClass();
        if (tables.of(cls).changesUnique(operations[position].set))
            changing[cls].push_back(position);
    }
    bool hasMoved = false;
    for (const std::size_t position : updates) {
        const Operation& row = operations[position];
        const auto found = changing.find(row.instance->getClass());
        if (found == changing.end() || found->second.size() < 2)
            continue;
        ClassTable& table = tables.of(row.instance->getClass());
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
        connection.settle();
}

void WriteQueue::postInserts() {
    std::vector<std::size_t> order = all(isInsertion);
    const auto classAt = [&](std::size_t position) {
        return operations[position].instance->getClass();
    };
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

void WriteQueue::postMany(const std::size_t* run, std::size_t count) {
    ClassTable& table = tables.of(operations[*run].instance->getClass());
    Statement& statement = table.insertMany();
    std::size_t at = 0;
    try {
        for (; at < count; ++at) {
            const Operation& row = operations[run[at]];
            binder.bindAll(statement, table, row.instance, row.links,
                           static_cast<int>(at * table.columns().size()));
        }
        at = 0;
        statement.post(run[0], static_cast<long>(count));
    } catch (const PostFailure& failure) {
        throw PostFailure(run[std::min(failure.rowsBefore, count - 1)], failure);
    } catch (const SqlFailure& failure) {
        throw PostFailure(run[at], failure);
    }
    for (std::size_t i = 0; i < count; ++i)
        noteInserted(operations[run[i]].instance);
}

void WriteQueue::noteInserted(const Instance* instance) {
    const unsigned long id = instance->getObjectID();
    insertedIsSorted = insertedIsSorted && (inserted.empty() || inserted.back() < id);
    inserted.push_back(id);
}

void WriteQueue::post(std::size_t position) {
    const Operation& operation = operations[position];
    try {
        switch (operation.kind) {
        case Kind::Insert: return postInsert(position);
        case Kind::Update: return postUpdate(position);
        case Kind::Remove: return postRemove(position);
        case Kind::Link:
        case Kind::Unlink: return postLink(position);
        case Kind::Nothing: return;
        }
    } catch (const PostFailure&) {
        throw;
    } catch (const SqlFailure& failure) {
        throw PostFailure(position, failure);
    }
}

const char* WriteQueue::attemptOf(Kind kind) {
    switch (kind) {
    case Kind::Insert: return "inserting";
    case Kind::Update: return "updating";
    case Kind::Remove: return "removing";
    default: return "linking";
    }
}

void WriteQueue::fail(const PostFailure& failure) {
    const Operation& operation = operations[failure.ticket];
    std::string words = failure.what();
    if (failure.isStale) {
        try {
            words = faultOfVersion(operation);
        } catch (const SqlFailure&) {
            // A write behind it has failed too, and the database answers no more.
            words = "somebody else has changed or removed it; refresh it and try again";
        }
    }
    throw SqlFailure(std::string(attemptOf(operation.kind)) + " the " + nameOf(operation.instance) +
                         ": " + words,
                     failure.kind);
}

void WriteQueue::postInsert(std::size_t position) {
    const Operation& operation = operations[position];
    ClassTable& table = tables.of(operation.instance->getClass());
    Statement& statement = table.insert();
    binder.bindAll(statement, table, operation.instance, operation.links);
    statement.post(position, 1);
    noteInserted(operation.instance);
}

ColumnSet& WriteQueue::enterLinks(Operation& operation) {
    if (operation.kind != Kind::Update || operation.links.empty())
        return operation.set;
    const ClassTable& table = tables.of(operation.instance->getClass());
    for (const LinkValue& link : operation.links) {
        enterColumn(operation, link.column);
        if (link.isDissolved)
            enterColumn(operation, table.dissolvedBit(link.column));
    }
    return operation.set;
}

void WriteQueue::postUpdate(std::size_t position) {
    Operation& operation = operations[position];
    ClassTable& table = tables.of(operation.instance->getClass());
    const ColumnSet& set = enterLinks(operation);
    Statement& statement = table.update(set);
    const int next = binder.bindSome(statement, table, operation.instance, operation.links, set);
    statement.bind(next, static_cast<std::int64_t>(operation.instance->getObjectID()));
    statement.bind(next + 1, static_cast<std::int64_t>(operation.expected));
    statement.post(position, 1);
}

void WriteQueue::postRemove(std::size_t position) {
    const Operation& operation = operations[position];
    Statement& statement = tables.of(operation.instance->getClass()).remove();
    statement.bind(0, static_cast<std::int64_t>(operation.instance->getObjectID()));
    statement.bind(1, static_cast<std::int64_t>(operation.expected));
    statement.post(position, 1);
}

// Links to an object that others make meanwhile wait for the removal of its row,
// or are found here.
void WriteQueue::postDissolvers() {
    std::unordered_map<const Class*, std::vector<std::size_t>> removed;
    for (const std::size_t position : all(isRemoval)) {
        const Class* cls = operations[position].instance->getClass();
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
        postDissolver(*concern.first, concern.second);
}

void WriteQueue::postDissolver(const Referrer& referrer, const std::vector<std::size_t>& removed) {
    std::vector<std::int64_t> ids;
    for (const std::size_t position : removed)
        ids.push_back(static_cast<std::int64_t>(operations[position].instance->getObjectID()));
    if (referrer.isUnnamed()) {
        emptyRows(referrer.holder, referrer.association, *referrer.role,
                  readReferences(referrer.holder, *referrer.role, ids), removed.front());
        return;
    }
    const std::size_t longest = connection.prefersRuns() ? 1 : IdList::Longest;
    for (std::size_t begin = 0; begin < ids.size(); begin += longest) {
        const IdList list(ids, begin, longest);
        Statement& statement = kept(referrer.dissolver + list.text());
        list.bindTo(statement);
        statement.post(removed[begin], 0);
    }
}

// Where a later write has failed too, the database may answer nothing any more.
std::string WriteQueue::faultOfVersion(const Operation& operation) {
    try {
        return explainVersion(operation);
    } catch (const SqlFailure&) {
        if (!connection.inTransaction())
            throw;
        return "somebody else has changed it; refresh it and try again";
    }
}

std::string WriteQueue::explainVersion(const Operation& operation) {
    Statement& asking = tables.of(operation.instance->getClass()).versionOf();
    asking.bind(0, static_cast<std::int64_t>(operation.instance->getObjectID()));
    const bool isStored = asking.step();
    const std::int64_t stored = isStored ? asking.integer(0) : 0;
    asking.reset();
    if (!isStored)
        return "somebody else has removed it";
    // A transaction that reads what was stored when it began sees no change.
    if (stored == static_cast<std::int64_t>(operation.expected))
        return "somebody else has changed it; refresh it and try again";
    return "somebody else has changed it: version " + std::to_string(stored) +
           " is stored and version " + std::to_string(operation.expected) +
           " was read; refresh it and try again";
}

Statement& WriteQueue::kept(const std::string& text) {
    std::unique_ptr<Statement>& statement = statements[text];
    if (statement == nullptr)
        statement = connection.prepare(text);
    return *statement;
}

}  // namespace Kes::sql
