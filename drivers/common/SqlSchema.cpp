#include "drivers/common/SqlSchema.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include <kes/Model.h>

#include "drivers/common/SqlUpgrade.h"
#include "drivers/common/TextForms.h"

namespace Kes::sql {

namespace {

// All rows of some queries. A database takes so many in one union only, and each
// level of groups of them costs more than the one below.
std::string unionOf(std::vector<std::string> queries) {
    constexpr std::size_t most = 150;
    while (queries.size() > most) {
        std::vector<std::string> groups;
        for (std::size_t first = 0; first < queries.size(); first += most) {
            const std::size_t end = std::min(first + most, queries.size());
            const auto at = queries.begin();
            std::vector<std::string> group(at + static_cast<std::ptrdiff_t>(first),
                                           at + static_cast<std::ptrdiff_t>(end));
            groups.push_back("SELECT * FROM (" + unionOf(std::move(group)) + ") AS part");
        }
        queries = std::move(groups);
    }
    std::string text;
    for (const std::string& each : queries)
        text += (text.empty() ? "" : " UNION ALL ") + each;
    return text;
}

}  // namespace

bool SqlSchema::exists(const std::string& table) {
    const std::unique_ptr<Statement> asking = connection.prepare(dialect.columnsOf());
    asking->bindText(0, table.data(), table.size());
    return asking->step();
}

// A record of an owner is named CLASS.MODEL, with a backslash before each dot and
// backslash of the first part.
void SqlSchema::checkNames(const Model& model) {
    Names names(dialect);
    names.check(model, tables);
    if (!hasOwnTables())
        return;
    std::vector<OtherOwner> others;
    const std::unique_ptr<Statement> asking =
        connection.prepare("SELECT name FROM kes_versions WHERE kind = 'OWNER' AND version > 0");
    while (asking->step()) {
        std::size_t size = 0;
        const std::string record = asking->text(0, size);
        OtherOwner other;
        std::size_t at = 0;
        for (; at < record.size() && record[at] != '.'; ++at)
            other.name += record[at] == '\\' && at + 1 < record.size() ? record[++at] : record[at];
        other.model = record.substr(std::min(at + 1, record.size()));
        if (other.model != textOf(model.getName()))
            others.push_back(std::move(other));
    }
    names.checkOthers(model, others);
}

// The table that is made for the class.
std::string SqlSchema::newName(const Class* cls) {
    const std::string name = textOf(cls->getName());
    if (isStaging)
        return connection.schemaStage()->place(name);
    return dialect.quote(isReplaced(cls) ? replaced[cls] : name);
}

// Whatever there is of that name, it is not to be lost.
std::string SqlSchema::freeName() {
    for (std::size_t number = replaced.size() + 1;; ++number) {
        std::string name = std::string(Names::Own) + "new_" + std::to_string(number);
        const bool isTaken = std::any_of(replaced.begin(), replaced.end(),
                                         [&](const auto& each) { return each.second == name; });
        if (!isTaken && !exists(name))
            return name;
    }
}

void SqlSchema::beginStage() {
    if (connection.schemaStage() == nullptr || isStaging)
        return;
    isStaging = true;
    connection.schemaStage()->begin();
}

void SqlSchema::dropViewsOf(const Class* cls) {
    for (const Class* at = cls; at != nullptr; at = at->getSuperClass())
        connection.execute(dialect.dropView(dialect.quote(TableMapping::viewName(at))));
}

void SqlSchema::beginClassUpdate(Class* cls) {
    if (!namesChecked)
        checkNames(*cls->getModel());
    namesChecked = true;
    beginStage();
    if (!isStaging)
        requireOwnTables();
    if (begun.empty())
        checkAbstractClasses(*cls->getModel());
    begun.insert(textOf(cls->getName()));
    // The version was asked before this transaction held the database.
    if (getVersion(textOf(cls->getName()), "CLASS") >= cls->getVersion()) {
        finished.insert(cls);
        return;
    }
    if (!isStaging)
        dropViewsOf(cls);
    if (!exists(textOf(cls->getName())))
        return;
    checkLinks(cls);
    if (isStaging)
        connection.schemaStage()->freeze(textOf(cls->getName()));
    replaced.emplace(cls, isStaging ? std::string() : freeName());
}

void SqlSchema::createClass(Class* cls) {
    if (isDone(cls))
        return;
    const TableMapping& table = tables.of(cls);
    std::string list;
    for (std::size_t i = 0; i < table.columns().size(); ++i) {
        const Column& column = table.columns()[i];
        const bool isId = i == TableMapping::IdColumn;
        list += (i == 0 ? "" : ", ") + dialect.quote(column.name) + " " +
                (isId ? dialect.idType() : dialect.typeOf(column.kind));
    }
    const std::string name = newName(cls);
    connection.execute("CREATE TABLE " + name + " (" + list + dialect.hiddenColumns() + ")");
}

void SqlSchema::endClassUpdate(Class* cls) {
    if (isDone(cls))
        return;
    const TableMapping& table = tables.of(cls);
    if (isReplaced(cls)) {
        SqlUpgrade(table, dialect, connection).moveRows(newName(cls), isStaging);
        if (!isStaging) {
            connection.execute("DROP TABLE " + table.table());
            connection.execute(dialect.renameTable(newName(cls), table.table()));
        }
    }
    createIndexes(table, isStaging ? newName(cls) : table.table());
}

void SqlSchema::createIndexes(const TableMapping& table, const std::string& quotedName) {
    std::vector<IndexText> texts;
    for (const IndexPlan& index : Names::indexesOf(table)) {
        std::string columns;
        for (const std::string& column : index.columns) {
            const auto position = static_cast<std::size_t>(table.find(column));
            columns += (columns.empty() ? "" : ", ") +
                       dialect.indexed(dialect.quote(column), table.columns()[position].kind,
                                       index.unique);
        }
        texts.push_back({dialect.quote(index.name), columns, index.unique});
    }
    for (const std::string& text : dialect.createIndexes(quotedName, texts))
        connection.execute(text);
}

// All concrete rows of the hierarchy: the class's columns, and the name of the
// concrete class.
void SqlSchema::createView(Class* cls) {
    const TableMapping& table = tables.of(cls);
    std::string list;
    for (const Column& column : table.columns())
        list += dialect.quote(column.name) + ", ";
    std::vector<std::string> parts;
    for (const Class* concrete : ModelMapping::concreteClasses(cls)) {
        const std::string name = textOf(concrete->getName());
        std::string literal;
        for (const char c : name)
            literal += c == '\'' ? std::string("''") : std::string(1, c);
        parts.push_back("SELECT " + list + "'" + literal + "' AS " + dialect.quote("KesClass") +
                        " FROM " + dialect.quote(name));
    }
    if (parts.empty()) {
        std::string none;
        for (const Column& column : table.columns())
            none += (none.empty() ? "SELECT NULL AS " : ", NULL AS ") + dialect.quote(column.name);
        parts.push_back(none + ", NULL AS " + dialect.quote("KesClass") + " WHERE 1 = 0");
    }
    const std::string view = dialect.quote(TableMapping::viewName(cls));
    const std::string text = dialect.createView(view) + " AS " + unionOf(std::move(parts));
    if (connection.schemaStage() != nullptr) {
        waiting.push_back(text);
        return;
    }
    connection.execute(dialect.dropView(view));
    connection.execute(text);
}

// One-references lie in the classes' own tables.
void SqlSchema::createAssociation(const Association* association) {
    const std::string name = textOf(association->getName());
    // Without a transaction around both, the index may be what is missing.
    if (!ModelMapping::isManyToMany(association) ||
        (connection.schemaStage() == nullptr && exists(name)))
        return;
    const std::string one = dialect.quote(textOf(association->getOneRole()));
    const std::string other = dialect.quote(textOf(association->getOtherRole()));
    const std::string table = dialect.quote(name);
    connection.execute("CREATE TABLE IF NOT EXISTS " + table + " (" + one + " BIGINT NOT NULL, " +
                       other + " BIGINT NOT NULL, PRIMARY KEY (" + one + ", " + other + "))" +
                       dialect.linkTableOptions());
    connection.execute("CREATE INDEX IF NOT EXISTS " +
                       dialect.quote(Names(dialect).secondIndexOf(name)) + " ON " + table + " (" +
                       other + ")");
}

// Each step can be done again, so the versions, after which none is, come last.
void SqlSchema::commit() {
    SchemaStage* stage = connection.schemaStage();
    const bool isSchema = isStaging || !waiting.empty() || !versions.empty();
    if (stage != nullptr && isSchema) {
        if (isStaging)
            stage->swap();
        for (const std::string& text : waiting)
            connection.execute(text);
        waiting.clear();
    }
    const bool isFirst = (!versions.empty() || !records.empty()) && requireOwnTables();
    if (stage != nullptr && (isSchema || isFirst)) {
        connection.begin();
        for (const Version& each : versions)
            writeVersion(each);
        versions.clear();
    }
    writeRecords();
}

void SqlSchema::forget() {
    isBare = false;
    if (std::exchange(isOwnUncommitted, false))
        reading.reset();  // a rollback drops the table that it asks
    replaced.clear();
    finished.clear();
    begun.clear();
    waiting.clear();
    versions.clear();
    records.clear();
    known.clear();
    isKnown = false;
    if (isStaging) {
        isStaging = false;
        connection.schemaStage()->end();
    }
}

}  // namespace Kes::sql
