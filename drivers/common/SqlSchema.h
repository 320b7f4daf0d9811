// Making and upgrading the schema.
//
// A class whose table exists gets its new table under another name first; the
// rows are moved over, and only then does the new table take the place of the
// old one. All steps of a synchronisation lie in one transaction; where that
// does not hold schema statements, new tables wait on a stage, views and
// versions in a list, and commit() does what is left.

#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/SchemaReader.h>

#include "drivers/common/ModelMapping.h"
#include "drivers/common/Names.h"

namespace Kes::sql {

class SqlSchema {
public:
    /// The storage format that this driver reads and writes.
    static constexpr int Format = 1;

    SqlSchema(ModelMapping& itsTables, const Dialect& itsDialect, Connection& itsConnection)
        : tables(itsTables),
          dialect(itsDialect),
          connection(itsConnection) {}

    /// Throws SqlFailure for a database of a newer format.
    void prepare();

    /// Makes the library's own tables where they are missing, and returns whether
    /// they were: in the open transaction, or where schema statements commit by
    /// themselves in one of their own, which ends the open one. An open that is
    /// refused leaves none, so they come with what needs them.
    bool requireOwnTables();

    int getVersion(const std::string& name, const std::string& kind);
    void setVersion(const std::string& name, int version, const std::string& kind);

    /// All that is stored, of all kinds but the library's own.
    void readVersions(std::vector<StoredVersion>& stored);

    /// Empty when the table has all columns of the class, or there is none.
    std::string findMissingColumn(Class* cls);

    /// Called in a write transaction.
    void beginClassUpdate(Class* cls);
    void createClass(Class* cls);
    void endClassUpdate(Class* cls);
    void createView(Class* cls);
    void createAssociation(const Association* association);

    /// Does what of a synchronisation had to wait for the commit.
    void commit();

    /// Forgets what the synchronisation under way has done, and throws away
    /// what waits.
    void forget();

private:
    struct Version {
        std::string name;
        int version;
        std::string kind;
    };

    void makeOwnTables();
    bool hasOwnTables();
    bool exists(const std::string& table);
    bool hasColumn(const std::string& table, const std::string& column);
    void checkNames(const Model& model);
    void checkAbstract(const std::string& name);
    void checkAbstractClasses(const Model& model);
    void checkLinks(const Class* cls);
    void checkLinks(const Class* cls, const Association& association, const String& role);
    void refuseLinks(const Association& association, const std::string& column,
                     const std::string& table);
    bool isReplaced(const Class* cls) const { return replaced.contains(cls); }
    bool isDone(const Class* cls) const { return finished.contains(cls); }
    std::string newName(const Class* cls);
    std::string freeName();
    void beginStage();
    void createIndexes(const TableMapping& table, const std::string& quotedName);
    void dropViewsOf(const Class* cls);
    void writeVersion(const Version& written);
    void writeRecords();

    ModelMapping& tables;
    const Dialect& dialect;
    Connection& connection;
    std::unique_ptr<Statement> reading;  // a version; null until there is a table
    std::set<std::string> begun;         // the names of the concrete classes
    // The tables that are made for classes whose old one is still there.
    std::map<const Class*, std::string> replaced;
    std::set<const Class*> finished;  // that another process has upgraded
    bool isBare = false;  // known to have no tables of the library, as long as it is staging
    bool isOwnUncommitted = false;  // the open transaction has made them
    bool namesChecked = false;
    bool isStaging = false;
    std::vector<std::string> waiting;  // statements
    std::vector<Version> versions;     // that wait

    // Records of further kinds, which the library has many of; the pairs of kind
    // and name that were stored when they were read last.
    std::vector<Version> records;
    std::set<std::pair<std::string, std::string>> known;
    bool isKnown = false;
};

}  // namespace Kes::sql
