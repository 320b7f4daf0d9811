#include "drivers/common/WriteQueue.h"

#include <algorithm>

#include <kes/Class.h>
#include <kes/Model.h>

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
    if (kind == Kind::Insert || kind == Kind::Update || kind == Kind::Remove)
        positions[instance] = used - 1;
    return fresh;
}

WriteQueue::Operation* WriteQueue::find(const Instance* instance) {
    const auto found = positions.find(instance);
    return found != positions.end() ? &operations[found->second] : nullptr;
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
    for (std::size_t i = 0; i < used; ++i) {
        Operation& operation = operations[i];
        if (operation.kind != Kind::Nothing)
            execute(operation);
    }
    used = 0;
    positions.clear();
}

void WriteQueue::clear() {
    used = 0;
    positions.clear();
    inserted.clear();
    insertedIsSorted = true;
    lastChecked = 0;
}

void WriteQueue::execute(Operation& operation) {
    const char* attempt = "linking";
    try {
        switch (operation.kind) {
        case Kind::Insert:
            attempt = "inserting";
            return executeInsert(operation);
        case Kind::Update:
            attempt = "updating";
            return executeUpdate(operation);
        case Kind::Remove:
            attempt = "removing";
            return executeRemove(operation);
        case Kind::Link:
        case Kind::Unlink: return executeLink(operation);
        case Kind::Empty: return executeEmpty(operation);
        case Kind::Nothing: return;
        }
    } catch (const SqlFailure& failure) {
        throw SqlFailure(std::string(attempt) + " the " + nameOf(operation.instance) + ": " +
                         failure.what());
    }
}

void WriteQueue::executeInsert(Operation& operation) {
    ClassTable& table = tables.of(operation.instance->getClass());
    for (const LinkValue& link : operation.links)
        if (link.check != nullptr)
            checkPartner(link.check);
    Statement& statement = table.insert();
    binder.bindAll(statement, table, operation.instance, operation.links);
    statement.run();
    const unsigned long id = operation.instance->getObjectID();
    insertedIsSorted = insertedIsSorted && (inserted.empty() || inserted.back() < id);
    inserted.push_back(id);
}

void WriteQueue::executeUpdate(Operation& operation) {
    ClassTable& table = tables.of(operation.instance->getClass());
    for (const LinkValue& link : operation.links) {
        if (link.check != nullptr)
            checkPartner(link.check);
        enterColumn(operation, link.column);
    }
    Statement& statement = table.update(operation.set);
    const int next = binder.bindSome(statement, table, operation.instance, operation.links,
                                     operation.set);
    statement.bind(next, static_cast<std::int64_t>(operation.instance->getObjectID()));
    statement.bind(next + 1, static_cast<std::int64_t>(operation.expected));
    if (statement.run() != 1)
        failOnVersion(operation);
}

void WriteQueue::executeRemove(Operation& operation) {
    Class* cls = operation.instance->getClass();
    const auto id = static_cast<std::int64_t>(operation.instance->getObjectID());
    Statement& statement = tables.of(cls).remove();
    statement.bind(0, id);
    statement.bind(1, static_cast<std::int64_t>(operation.expected));
    if (statement.run() != 1)
        failOnVersion(operation);
    for (const auto& dissolver : tables.dissolvers(cls)) {
        dissolver->bind(0, id);
        dissolver->run();
    }
}

void WriteQueue::failOnVersion(const Operation& operation) {
    Statement& asking = tables.of(operation.instance->getClass()).versionOf();
    asking.bind(0, static_cast<std::int64_t>(operation.instance->getObjectID()));
    const bool isStored = asking.step();
    const std::int64_t stored = isStored ? asking.integer(0) : 0;
    asking.reset();
    if (!isStored)
        throw SqlFailure("somebody else has removed it");
    throw SqlFailure("somebody else has changed it: version " + std::to_string(stored) +
                     " is stored and version " + std::to_string(operation.expected) +
                     " was read; refresh it and try again");
}

Statement& WriteQueue::kept(const std::string& text) {
    std::unique_ptr<Statement>& statement = statements[text];
    if (statement == nullptr)
        statement = connection.prepare(text);
    return *statement;
}

// A link to an object that somebody else has removed would dangle.
void WriteQueue::checkPartner(const Instance* partner) {
    const unsigned long id = partner->getObjectID();
    if (id == lastChecked)
        return;
    Statement& asking = tables.of(partner->getClass()).versionOf();
    asking.bind(0, static_cast<std::int64_t>(id));
    const bool isStored = asking.step();
    asking.reset();
    if (!isStored)
        throw SqlFailure("its partner, the " + nameOf(partner) +
                         ", is not stored: somebody else has removed it");
    lastChecked = id;
}

}  // namespace Kes::sql
