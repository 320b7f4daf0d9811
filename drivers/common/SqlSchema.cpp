#include "drivers/common/SqlSchema.h"

#include "drivers/common/SqlFailure.h"
#include "drivers/common/SqlUpgrade.h"

namespace Kes::sql {

namespace {

std::string textOf(const String& text) {
    return static_cast<const char*>(text);
}

}  // namespace

bool SqlSchema::exists(const std::string& table) {
    const std::unique_ptr<Statement> asking = connection.prepare(dialect.columnsOf());
    asking->bindText(0, table.data(), table.size());
    return asking->step();
}

void SqlSchema::prepare(bool mayWrite) {
    if (!exists("kes_versions")) {
        if (!mayWrite)
            return;
        connection.begin();
        connection.execute(
            "CREATE TABLE IF NOT EXISTS kes_versions (kind VARCHAR(10) NOT NULL, name TEXT NOT "
            "NULL, version INTEGER NOT NULL, PRIMARY KEY (kind, name))");
        for (const std::string& text : dialect.idStore())
            connection.execute(text);
        setVersion("kes", Format, "FORMAT");
        connection.commit();
    }
    const int format = getVersion("kes", "FORMAT");
    if (format > Format)
        throw SqlFailure("the database has the storage format " + std::to_string(format) +
                         ", and this driver knows formats up to " + std::to_string(Format) +
                         "; open it with a newer version");
}

int SqlSchema::getVersion(const std::string& name, const std::string& kind) {
    if (!exists("kes_versions"))
        return 0;
    const std::unique_ptr<Statement> asking =
        connection.prepare("SELECT version FROM kes_versions WHERE kind = ? AND name = ?");
    asking->bindText(0, kind.data(), kind.size());
    asking->bindText(1, name.data(), name.size());
    return asking->step() ? static_cast<int>(asking->integer(0)) : 0;
}

void SqlSchema::setVersion(const std::string& name, int version, const std::string& kind) {
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

std::string SqlSchema::newName(const Class* cls) const {
    return dialect.quote("kes_new_" + textOf(cls->getName()));
}

void SqlSchema::dropViewsOf(const Class* cls) {
    for (const Class* at = cls; at != nullptr; at = at->getSuperClass())
        connection.execute(dialect.dropView(dialect.quote(ClassTable::viewName(at))));
}

void SqlSchema::beginClassUpdate(Class* cls) {
    if (!namesChecked) {
        Names(dialect).check(*cls->getModel(), tables);
        namesChecked = true;
    }
    // The version was asked before this transaction held the database.
    if (getVersion(textOf(cls->getName()), "CLASS") >= cls->getVersion()) {
        finished.insert(cls);
        return;
    }
    dropViewsOf(cls);
    if (exists(textOf(cls->getName())))
        replaced.insert(cls);
}

void SqlSchema::createClass(Class* cls) {
    if (isDone(cls))
        return;
    const ClassTable& table = tables.of(cls);
    std::string list;
    for (std::size_t i = 0; i < table.columns().size(); ++i) {
        const Column& column = table.columns()[i];
        const bool isId = i == ClassTable::IdColumn;
        list += (i == 0 ? "" : ", ") + dialect.quote(column.name) + " " +
                (isId ? dialect.idType() : dialect.typeOf(column.kind));
    }
    const std::string name = isReplaced(cls) ? newName(cls) : table.table();
    if (isReplaced(cls))
        connection.execute("DROP TABLE IF EXISTS " + name);
    connection.execute("CREATE TABLE " + name + " (" + list + ")");
}

void SqlSchema::endClassUpdate(Class* cls) {
    if (isDone(cls))
        return;
    const ClassTable& table = tables.of(cls);
    if (isReplaced(cls)) {
        SqlUpgrade(table, dialect, connection).moveRows(newName(cls));
        connection.execute("DROP TABLE " + table.table());
        connection.execute(dialect.renameTable(newName(cls), table.table()));
    }
    createIndexes(table);
}

void SqlSchema::createIndexes(const ClassTable& table) {
    for (const IndexPlan& index : Names::indexesOf(table)) {
        std::string columns;
        for (const std::string& column : index.columns)
            columns += (columns.empty() ? "" : ", ") + dialect.quote(column);
        connection.execute(std::string("CREATE ") + (index.unique ? "UNIQUE " : "") + "INDEX " +
                           dialect.quote(index.name) + " ON " + table.table() + " (" + columns +
                           ")");
    }
}

// All concrete rows of the hierarchy: the class's columns, and the name of the
// concrete class.
void SqlSchema::createView(Class* cls) {
    const ClassTable& table = tables.of(cls);
    std::string list;
    for (const Column& column : table.columns())
        list += dialect.quote(column.name) + ", ";
    std::string parts;
    for (const Class* concrete : Tables::concreteClasses(cls)) {
        const std::string name = textOf(concrete->getName());
        std::string literal;
        for (const char c : name)
            literal += c == '\'' ? std::string("''") : std::string(1, c);
        parts += (parts.empty() ? "SELECT " : " UNION ALL SELECT ") + list + "'" + literal +
                 "' AS " + dialect.quote("KesClass") + " FROM " + dialect.quote(name);
    }
    if (parts.empty()) {
        for (const Column& column : table.columns())
            parts += (parts.empty() ? "SELECT NULL AS " : ", NULL AS ") +
                     dialect.quote(column.name);
        parts += ", NULL AS " + dialect.quote("KesClass") + " WHERE 1 = 0";
    }
    const std::string view = dialect.quote(ClassTable::viewName(cls));
    connection.execute(dialect.dropView(view));
    connection.execute("CREATE VIEW " + view + " AS " + parts);
}

// One-references lie in the classes' own tables.
void SqlSchema::createAssociation(const Association* association) {
    const std::string name = textOf(association->getName());
    if (!Tables::isManyToMany(association) || exists(name))
        return;
    const std::string one = dialect.quote(textOf(association->getOneRole()));
    const std::string other = dialect.quote(textOf(association->getOtherRole()));
    const std::string table = dialect.quote(name);
    connection.execute("CREATE TABLE " + table + " (" + one + " BIGINT NOT NULL, " + other +
                       " BIGINT NOT NULL, PRIMARY KEY (" + one + ", " + other + "))" +
                       dialect.linkTableOptions());
    connection.execute("CREATE INDEX " + dialect.quote("kes_second_" + name) + " ON " + table +
                       " (" + other + ")");
}

void SqlSchema::forget() {
    replaced.clear();
    finished.clear();
}

}  // namespace Kes::sql
