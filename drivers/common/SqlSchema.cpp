#include "drivers/common/SqlSchema.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include <kes/Model.h>

#include "drivers/common/SqlFailure.h"
#include "drivers/common/SqlUpgrade.h"

namespace Kes::sql {

namespace {

std::string textOf(const String& text) {
    return static_cast<const char*>(text);
}

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

// One that cannot be read would pass for a very old one, or for none at all.
int versionAt(Statement& row, int column, const std::string& kind, const std::string& name) {
    const bool isInteger = row.kind(column) == Row::Integer;
    const std::int64_t stored = row.integer(column);
    if (!isInteger || !std::in_range<int>(stored))
        throw SqlFailure("the version of the " + kind + " " + name +
                         " in the table kes_versions is no number that a version can be; mend the "
                         "row in the database");
    return static_cast<int>(stored);
}

}  // namespace

bool SqlSchema::exists(const std::string& table) {
    const std::unique_ptr<Statement> asking = connection.prepare(dialect.columnsOf());
    asking->bindText(0, table.data(), table.size());
    return asking->step();
}

void SqlSchema::makeOwnTables() {
    connection.execute("CREATE TABLE IF NOT EXISTS kes_versions (kind VARCHAR(10) NOT NULL, name " +
                       dialect.keyTextType() +
                       ", version INTEGER NOT NULL, PRIMARY KEY (kind, name))");
    for (const std::string& text : dialect.idStore())
        connection.execute(text);
    writeVersion({"kes", Format, "FORMAT"});
}

bool SqlSchema::hasOwnTables() {
    if (reading != nullptr)
        return true;
    if (isBare || !exists("kes_versions")) {
        isBare = isStaging;
        return false;
    }
    reading = connection.prepare("SELECT version FROM kes_versions WHERE kind = ? AND name = ?");
    return true;
}

bool SqlSchema::requireOwnTables() {
    if (hasOwnTables())
        return false;
    isBare = false;
    const bool isStaged = connection.schemaStage() != nullptr;
    if (!isStaged && connection.inTransaction()) {
        isOwnUncommitted = true;
        makeOwnTables();
        return true;
    }
    // On a cluster a program on another node may do the same at the moment.
    // That one needs one try; ten end a refusal that is no race.
    constexpr int mostTries = 10;
    for (int tries = 1;; ++tries) {
        try {
            connection.beginSchema();
            makeOwnTables();
            connection.commit();
            return true;
        } catch (const SqlFailure&) {
            connection.rollback();
            if (!isStaged || tries == mostTries || !exists("kes_versions"))
                throw;
        }
    }
}

void SqlSchema::prepare() {
    const int format = getVersion("kes", "FORMAT");
    if (format > Format)
        throw SqlFailure("the database has the storage format " + std::to_string(format) +
                         ", and this driver knows formats up to " + std::to_string(Format) +
                         "; open it with a newer version");
}

int SqlSchema::getVersion(const std::string& name, const std::string& kind) {
    for (auto set = versions.rbegin(); set != versions.rend(); ++set)
        if (set->name == name && set->kind == kind)
            return set->version;
    if (!hasOwnTables())
        return 0;
    reading->bindText(0, kind.data(), kind.size());
    reading->bindText(1, name.data(), name.size());
    const Execution execution(*reading);
    return reading->step() ? versionAt(*reading, 0, kind, name) : 0;
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

// Nobody prepares the tables of abstract classes. The objects of one that has
// become abstract could not be seen any more.
void SqlSchema::checkAbstractClasses(const Model& model) {
    for (const Class* cls : model.getDeclaredClasses()) {
        const std::string name = textOf(cls->getName());
        if (cls->isAbstract() && getVersion(name, "CLASS") < cls->getVersion())
            checkAbstract(name);
    }
}

void SqlSchema::checkAbstract(const std::string& name) {
    if (!hasColumn(name, "KesObjectID") || !hasColumn(name, "KesVersion"))
        return;
    const std::unique_ptr<Statement> asking = connection.prepareCursor(
        "SELECT " + dialect.quote("KesObjectID") + " FROM " + dialect.quote(name));
    if (asking->step())
        throw SqlFailure("the class " + name + " has become abstract and its object " +
                         std::to_string(asking->integer(0)) +
                         " is still stored; remove the objects of the class, or leave it concrete");
}

void SqlSchema::setVersion(const std::string& name, int version, const std::string& kind) {
    if (kind == "CLASS" && !begun.contains(name))
        checkAbstract(name);
    if (kind != "CLASS" && kind != "MODEL") {
        records.push_back({name, version, kind});
        return;
    }
    if (connection.schemaStage() != nullptr) {
        versions.push_back({name, version, kind});
        return;
    }
    requireOwnTables();
    writeVersion({name, version, kind});
}

void SqlSchema::writeVersion(const Version& written) {
    const auto& [name, version, kind] = written;
    const std::unique_ptr<Statement> dropping =
        connection.prepare("DELETE FROM kes_versions WHERE kind = ? AND name = ?");
    dropping->bindText(0, kind.data(), kind.size());
    dropping->bindText(1, name.data(), name.size());
    dropping->run();
    const std::unique_ptr<Statement> entering =
        connection.prepare("INSERT INTO kes_versions (kind, name, version) VALUES (?, ?, ?)");
    entering->bindText(0, kind.data(), kind.size());
    entering->bindText(1, name.data(), name.size());
    entering->bind(2, std::int64_t{version});
    entering->run();
}

void SqlSchema::readVersions(std::vector<StoredVersion>& stored) {
    known.clear();
    isKnown = true;
    if (!hasOwnTables())
        return;
    const std::unique_ptr<Statement> asking =
        connection.prepare("SELECT kind, name, version FROM kes_versions WHERE kind <> 'FORMAT'");
    while (asking->step()) {
        std::size_t size = 0;
        const std::string kind = asking->text(0, size);
        const std::string name = asking->text(1, size);
        stored.push_back({name.c_str(), kind.c_str(), versionAt(*asking, 2, kind, name)});
        known.emplace(kind, name);
    }
}

std::string SqlSchema::findMissingColumn(Class* cls) {
    std::set<std::string> stored;
    const std::string table = textOf(cls->getName());
    const std::unique_ptr<Statement> asking = connection.prepare(dialect.columnsOf());
    asking->bindText(0, table.data(), table.size());
    while (asking->step()) {
        std::size_t size = 0;
        stored.insert(asking->text(0, size));
    }
    for (const Column& column : tables.of(cls).columns())
        if (!stored.empty() && !stored.contains(column.name))
            return column.name;
    return "";
}

// Hundreds of them, so none waits for the one before.
void SqlSchema::writeRecords() {
    if (records.empty())
        return;
    const std::unique_ptr<Statement> dropping =
        connection.prepare("DELETE FROM kes_versions WHERE kind = ? AND name = ?");
    const std::unique_ptr<Statement> entering =
        connection.prepare("INSERT INTO kes_versions (kind, name, version) VALUES (?, ?, ?)");
    const auto bind = [](Statement& target, const Version& record) {
        target.bindText(0, record.kind.data(), record.kind.size());
        target.bindText(1, record.name.data(), record.name.size());
    };
    std::size_t ticket = 0;
    for (const Version& record : records) {
        if (isKnown && !known.contains({record.kind, record.name}))
            continue;
        bind(*dropping, record);
        dropping->post(ticket++, 0);
    }
    for (const Version& record : records) {
        if (record.version <= 0)
            continue;
        bind(*entering, record);
        entering->bind(2, std::int64_t{record.version});
        entering->post(ticket++, 1);
    }
    connection.awaitPosts();
    records.clear();
}

bool SqlSchema::hasColumn(const std::string& table, const std::string& column) {
    const std::unique_ptr<Statement> asking = connection.prepare(dialect.columnsOf());
    asking->bindText(0, table.data(), table.size());
    while (asking->step()) {
        std::size_t size = 0;
        const char* text = asking->text(0, size);
        if (column == std::string(text, size))
            return true;
    }
    return false;
}

// Links do not move between rows and a table of their own, or from one end to
// the other. Where there are any, such a change of an association is refused.
void SqlSchema::checkLinks(const Class* cls) {
    for (const Class* at = cls; at != nullptr; at = at->getSuperClass())
        for (const Association* association : at->getAssociations())
            for (const String* role : {&association->getOneRole(), &association->getOtherRole()})
                if (cls->isA(association->getClassFor(*role)))
                    checkLinks(cls, *association, *role);
}

void SqlSchema::checkLinks(const Class* cls, const Association& association, const String& role) {
    const std::string table = textOf(cls->getName());
    const std::string links = textOf(association.getName());
    const std::string column = textOf(role);
    const std::string opposite = textOf(association.getAssociatedRole(role));
    const bool isTable = cls->getModel()->getClass(association.getName()) == nullptr &&
                         hasColumn(links, column) && hasColumn(links, opposite);
    if (isTable && !ModelMapping::isManyToMany(&association))
        refuseLinks(association, column, links);
    if (association.getPluralityFor(role) == Association::One || !hasColumn(table, column))
        return;
    for (const Class* holder :
         ModelMapping::concreteClasses(association.getClassFor(opposite.c_str())))
        if (hasColumn(textOf(holder->getName()), opposite))
            return;
    refuseLinks(association, column, table);
}

void SqlSchema::refuseLinks(const Association& association, const std::string& column,
                            const std::string& table) {
    const std::unique_ptr<Statement> asking = connection.prepareCursor(
        "SELECT " + dialect.quote(column) + " FROM " + dialect.quote(table) + " WHERE " +
        dialect.quote(column) + " IS NOT NULL");
    if (asking->step())
        throw SqlFailure("the association " + textOf(association.getName()) +
                         " has another plurality than before and still links the object " +
                         std::to_string(asking->integer(0)) + " by its role \"" + column +
                         "\"; dissolve its links or give the new association another name");
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
