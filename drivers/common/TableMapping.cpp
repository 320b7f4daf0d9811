#include "drivers/common/TableMapping.h"

#include <algorithm>

#include <kes/Handler.h>
#include <kes/Instance.h>
#include <kes/Model.h>

#include "drivers/common/Names.h"
#include "drivers/common/ObjectFields.h"
#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

namespace {

std::string placeholders(std::size_t count) {
    std::string list;
    for (std::size_t i = 0; i < count; ++i)
        list += i == 0 ? "?" : ", ?";
    return list;
}

}  // namespace

// Walks a dummy and notes its fields.
class TableMapping::Learner final : public Handler {
public:
    explicit Learner(TableMapping& target) : table(target) {}

    void handleULong(const String& name, unsigned long&) override { add(name, FieldKind::ULong); }
    void handleLong(const String& name, long&) override { add(name, FieldKind::Long); }
    void handleString(const String& name, String&, int) override { add(name, FieldKind::Text); }
    void handleInt(const String& name, int&) override { add(name, FieldKind::Int); }
    void handleUInt(const String& name, unsigned int&) override { add(name, FieldKind::UInt); }
    void handleBool(const String& name, bool&) override { add(name, FieldKind::Bool); }
    void handleFloat(const String& name, float&) override { add(name, FieldKind::Float); }
    void handleDouble(const String& name, double&) override { add(name, FieldKind::Double); }
    void handleTimestamp(const String& name, Timestamp&) override {
        add(name, FieldKind::Timestamp);
    }
    void handleBlob(const String& name, Blob&) override { add(name, FieldKind::Blob); }
    void handleOneAssociated(const String& association, const String& role, OneAssociatedInstance*,
                             Association::ConsistencyRule) override {
        add(role, FieldKind::Reference, association);
    }
    void handleManyAssociated(const String&, const String&, ManyAssociatedInstances*) override {}

private:
    void add(const String& name, FieldKind kind, const String& association = String()) {
        const auto position = static_cast<int>(table.all.size());
        Column column{static_cast<const char*>(name), kind};
        if (kind == FieldKind::Reference)
            column.association = table.cls->getModel()->getAssociation(association);
        else
            table.plain.push_back(position);
        table.positions.emplace(column.name, position);
        table.all.push_back(column);
    }

    TableMapping& table;
};

TableMapping::TableMapping(Class* itsClass, const Dialect& itsDialect,
                           StatementCache& itsStatements)
    : cls(itsClass),
      dialect(itsDialect),
      statements(itsStatements),
      updates(itsStatements) {
    const std::unique_ptr<Instance> dummy(cls->getDummy());
    Learner learn(*this);
    handleFields(dummy.get(), &learn);
    if (all.size() < 2 || all[IdColumn].name != "KesObjectID" ||
        all[VersionColumn].name != "KesVersion")
        throw SqlFailure("the class " + name() +
                         " does not report KesObjectID and KesVersion first; let its handle "
                         "operation call the one of its base class before anything else");
    quotedTable = dialect.quote(name());
    for (const Column& each : all)
        columnList += (columnList.empty() ? "t." : ", t.") + dialect.quote(each.name);
}

int TableMapping::find(const std::string& column) const {
    const auto found = positions.find(column);
    return found != positions.end() ? found->second : -1;
}

std::string TableMapping::viewName(const Class* cls) {
    return std::string(static_cast<const char*>(cls->getName())) + "_all";
}

std::string TableMapping::source() const {
    return cls->getSubClasses().size() > 0 ? dialect.quote(viewName(cls)) : quotedTable;
}

std::string TableMapping::column(int position) const {
    return dialect.quote(all[static_cast<std::size_t>(position)].name);
}

Statement& TableMapping::insert(Statement*& kept, std::size_t rows) {
    if (kept == nullptr) {
        std::string names;
        for (std::size_t i = 0; i < all.size(); ++i)
            names += (i == 0 ? "" : ", ") + dialect.quote(all[i].name);
        const std::string row = "(" + placeholders(all.size()) + ")";
        std::string text = dialect.insertRows() + quotedTable + " (" + names + ") VALUES " + row;
        for (std::size_t i = 1; i < rows; ++i)
            text += ", " + row;
        kept = &statements.keep(text);
    }
    return *kept;
}

Statement& TableMapping::remove() {
    if (removing == nullptr)
        removing = &statements.keep("DELETE FROM " + quotedTable + " WHERE " + column(IdColumn) +
                                    " = ? AND " + column(VersionColumn) + " = ?");
    return *removing;
}

std::string TableMapping::versionQuery() const {
    return "SELECT " + column(VersionColumn) + " FROM " + quotedTable + " WHERE " +
           column(IdColumn) + " = ?";
}

Statement& TableMapping::versionOf() {
    if (asking == nullptr)
        asking = &statements.keep(versionQuery());
    return *asking;
}

Statement& TableMapping::lockRow() {
    if (locking == nullptr)
        locking = &statements.keep(versionQuery() + dialect.rowLock());
    return *locking;
}

Statement* TableMapping::touchRow() {
    const std::string change = dialect.touch(quotedTable);
    if (change.empty())
        return nullptr;
    if (touching == nullptr)
        touching = &statements.keep(change + " WHERE " + column(IdColumn) + " = ?");
    return touching;
}

std::unique_ptr<Statement> TableMapping::takeById() {
    if (!idPool->empty()) {
        std::unique_ptr<Statement> taken = std::move(idPool->back());
        idPool->pop_back();
        return taken;
    }
    return statements.make("SELECT " + columnList + " FROM " + quotedTable + " AS t WHERE t." +
                           column(IdColumn) + " = ?");
}

Statement& TableMapping::update(const ColumnSet& set) {
    return updates.of(set, [&](StatementCache& cache) { return cache.make(updateOf(set)); });
}

std::string TableMapping::updateOf(const ColumnSet& set) const {
    const auto has = [&](std::size_t bit) {
        return bit / 64 < set.size() && (set[bit / 64] >> bit % 64 & 1) != 0;
    };
    std::string assignments;
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (!has(i))
            continue;
        const std::string name = dialect.quote(all[i].name);
        assignments += (assignments.empty() ? "" : ", ") + name + " = " +
                       (has(all.size() + i) ? "NULLIF(" + name + ", ?)" : "?");
    }
    return "UPDATE " + quotedTable + " SET " + assignments + " WHERE " + column(IdColumn) +
           " = ? AND " + column(VersionColumn) + " = ?";
}

const std::vector<int>& TableMapping::unique() {
    if (!knowsUnique)
        for (const IndexPlan& index : Names::indexesOf(*this))
            if (index.unique)
                for (const std::string& each : index.columns)
                    uniqueColumns.push_back(find(each));
    knowsUnique = true;
    return uniqueColumns;
}

bool TableMapping::changesUnique(const ColumnSet& set) {
    return std::any_of(unique().begin(), unique().end(), [&](int at) {
        const auto position = static_cast<std::size_t>(at);
        return position / 64 < set.size() && (set[position / 64] >> position % 64 & 1) != 0;
    });
}

ColumnSet TableMapping::movableOf(const ColumnSet& set) {
    ColumnSet movable;
    for (const int at : unique()) {
        const auto position = static_cast<std::size_t>(at);
        const bool isSet =
            position / 64 < set.size() && (set[position / 64] >> position % 64 & 1) != 0;
        if (!isSet || all[position].kind == FieldKind::Bool)
            continue;
        movable.resize(std::max(movable.size(), position / 64 + 1));
        movable[position / 64] |= std::uint64_t{1} << position % 64;
    }
    return movable;
}

// A statement that is still in use goes back to its pool, and both go with the
// last cursor.
SharedPool TableMapping::pool(const std::string& tail) {
    const auto known = pools.find(tail);
    if (known != pools.end())
        return known->second;
    if (pools.size() >= StatementsByText::Most)
        pools.clear();
    return pools.emplace(tail, std::make_shared<StatementPool>()).first->second;
}

std::unique_ptr<Statement> TableMapping::take(StatementPool& from, const std::string& tail,
                                              bool hasFew) {
    if (from.empty()) {
        const std::string text = "SELECT " + columnList + " FROM " + quotedTable + " AS t" + tail;
        return hasFew ? statements.make(text) : statements.makeCursor(text);
    }
    std::unique_ptr<Statement> taken = std::move(from.back());
    from.pop_back();
    return taken;
}

}  // namespace Kes::sql
