#include "drivers/common/WriteQueue.h"

#include <algorithm>
#include <functional>
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
    if (isRow(kind))
        positions.set(instance, used - 1);
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

void WriteQueue::flush() {
    try {
        postAll();
        connection.settle();
    } catch (const PostFailure& failure) {
        fail(failure);
    }
    used = 0;
    hasEmpties = false;
    positions.clear();
    holders.clear();
}

void WriteQueue::clear() {
    used = 0;
    hasEmpties = false;
    positions.clear();
    holders.clear();
    inserted.clear();
    insertedIsSorted = true;
}

void WriteQueue::postAll() {
    checkPartners();
    if (hasEmpties)
        postEmpties();
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

// One row may take what another gives up in a unique index, so changes of these
// keep their order.
void WriteQueue::sortIntoRuns(std::vector<std::size_t>& order) {
    static const ColumnSet inOrder;
    const auto keyOf = [&](std::size_t position) {
        const Operation& each = operations[position];
        Class* cls = each.instance->getClass();
        const bool isFree = each.set.empty() || !tables.of(cls).changesUnique(each.set);
        return std::tuple<Kind, const Association*, const String*, const Class*, const ColumnSet&>(
            each.kind, each.association, each.role, cls, isFree ? each.set : inOrder);
    };
    std::stable_sort(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
        return keyOf(left) < keyOf(right);
    });
}

// Each row has one operation. Who goes makes room for who comes, in unique
// indexes too.
void WriteQueue::postRows() {
    postRun(isRemoval);
    postRun(isUpdate);
    postInserts();
}

void WriteQueue::postRun(bool (*isWanted)(Kind)) {
    std::vector<std::size_t> order = all(isWanted);
    if (connection.prefersRuns()) {
        for (const std::size_t position : order)
            enterLinks(operations[position]);
        sortIntoRuns(order);
    }
    postInOrder(order);
}

void WriteQueue::postInserts() {
    std::vector<std::size_t> order = all(isInsertion);
    const auto classAt = [&](std::size_t position) {
        return operations[position].instance->getClass();
    };
    const auto isBefore = [&](std::size_t left, std::size_t right) {
        return std::less<>()(classAt(left), classAt(right));
    };
    if (!std::is_sorted(order.begin(), order.end(), isBefore))
        std::stable_sort(order.begin(), order.end(), isBefore);
    for (std::size_t begin = 0; begin < order.size();) {
        Class* cls = classAt(order[begin]);
        const std::size_t most = tables.of(cls).insertedRows();
        const bool isMany = most > 1 && most <= order.size() - begin &&
                            classAt(order[begin + most - 1]) == cls;
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
        case Kind::Empty: return postEmpty(position);
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
    const std::string words = failure.isStale ? faultOfVersion(operation) : failure.what();
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
    if (operation.kind == Kind::Update)
        for (const LinkValue& link : operation.links)
            enterColumn(operation, link.column);
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
        if (!tables.dissolvers(cls).empty())
            removed[cls].push_back(position);
    }

    // Sub classes share their associations. In the order of the texts, so that
    // sessions do not wait for each other crosswise.
    std::map<std::string, std::vector<std::size_t>> concerned;
    for (const auto& [cls, those] : removed)
        for (const std::string& text : tables.dissolvers(cls)) {
            std::vector<std::size_t>& known = concerned[text];
            known.insert(known.end(), those.begin(), those.end());
        }
    for (const auto& [text, those] : concerned)
        postDissolver(text, those);
}

void WriteQueue::postDissolver(const std::string& text, const std::vector<std::size_t>& removed) {
    std::vector<std::int64_t> ids;
    for (const std::size_t position : removed)
        ids.push_back(static_cast<std::int64_t>(operations[position].instance->getObjectID()));
    const std::size_t longest = connection.prefersRuns() ? 1 : IdList::Longest;
    for (std::size_t begin = 0; begin < ids.size(); begin += longest) {
        const IdList list(ids, begin, longest);
        Statement& statement = kept(text + list.text());
        list.bindTo(statement);
        statement.post(removed[begin], 0);
    }
}

std::string WriteQueue::faultOfVersion(const Operation& operation) {
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
