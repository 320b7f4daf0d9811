// The library's own tables, and the versions in them.

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "drivers/common/SqlFailure.h"
#include "drivers/common/SqlSchema.h"

namespace Kes::sql {

namespace {

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

}  // namespace Kes::sql
