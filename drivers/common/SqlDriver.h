// Every slot of a driver, over a connection and a dialect.

#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include <kes/Calculator.h>
#include <kes/DBDriver.h>
#include <kes/EmptiedReferences.h>
#include <kes/Failure.h>
#include <kes/LinkReader.h>
#include <kes/SchemaReader.h>
#include <kes/Tabulator.h>

#include "drivers/common/Connection.h"
#include "drivers/common/Dialect.h"
#include "drivers/common/IdSource.h"
#include "drivers/common/LinkRows.h"
#include "drivers/common/ModelMapping.h"
#include "drivers/common/QueryPlan.h"
#include "drivers/common/QueueWriter.h"
#include "drivers/common/RowCounter.h"
#include "drivers/common/RowLoader.h"
#include "drivers/common/SqlSchema.h"
#include "drivers/common/TableQuery.h"
#include "drivers/common/UnionReader.h"
#include "drivers/common/WriteQueue.h"

namespace Kes::sql {

class SqlDefinition;
class SqlSelection;

/// A concrete driver derives from it and says how to connect.
class SqlDriver : public DBDriver,
                  public Calculator,
                  public EmptyingDriver,
                  public FailureReporter,
                  public LinkReader,
                  public SchemaReader,
                  public Tabulator {
public:
    ~SqlDriver() override;

    bool open(const String& source, const String& password, const String& user,
              const String& options) final;
    bool close() final;
    int getVersion(const String& name, const String& kind) final;
    void setVersion(const String& name, int version, const String& kind) final;
    bool createClass(Class* cls) final;
    bool beginClassUpdate(Class* cls) final;
    bool endClassUpdate(Class* cls) final;
    bool createView(Class* cls) final;
    bool createAssociation(Association* association) final;
    const String& getErrorMessage() final;
    const DBDriverStatus* getStatus() final;
    unsigned long newObjectID() final;
    bool commit() final;
    bool rollback() final;
    bool addLink(Instance* first, const String& firstRole, Instance* second,
                 const String& secondRole, Association* association, bool linkFlag) final;
    bool insert(Instance* instance) final;
    bool update(Instance* instance) final;
    bool removeLink(Instance* first, const String& firstRole, Instance* second,
                    const String& secondRole, Association* association, bool linkFlag) final;
    bool remove(Instance* instance) final;
    bool refresh(Instance* instance) final;
    bool lock(Instance* instance) final;
    SelectionDefinition* defineSelection(AssociatedClass* associatedClass) final;
    DBDriverSelection* fetch(Class* cls, SelectionDefinition* definition) final;
    SelectionDefinition* definePart(AssociatedClass* associatedClass, std::uint64_t offset,
                                    std::uint64_t count) final;
    bool count(AssociatedClass* associatedClass, std::uint64_t most, std::uint64_t& number) final;
    bool tabulate(AssociatedClass* associatedClass, const Tabulation& wanted,
                  TableReader& reader) final;
    void traceSQLTo(std::ostream& stream) final;
    void disableSQLTrace() final;
    bool readLinks(Association* association, const String& role,
                   const std::vector<unsigned long>& owners, std::size_t most,
                   std::vector<StoredLink>& links) final;
    bool readVersions(std::vector<StoredVersion>& versions) final;
    String findMissingField(Class* cls) final;
    FailureKind getFailureKind() const final { return failureKind; }
    void forgetFailure() final { failureKind = FailureKind::None; }
    bool tellEmptiedTo(EmptiedListener* listener) final;

    // --- for cursors ---

    void enter(SqlSelection* cursor) { cursors.insert(cursor); }
    void leave(SqlSelection* cursor) { cursors.erase(cursor); }
    RowLoader& loader() { return rowLoader; }

    /// A cursor is about to raise.
    void noteKind(FailureKind kind) { failureKind = kind; }
    std::string describe(const std::string& attempt, const std::string& words) const;

protected:
    explicit SqlDriver(std::unique_ptr<Dialect> itsDialect);

    /// Connects as the texts say. Throws SqlFailure.
    virtual std::unique_ptr<Connection> connect(const String& source, const String& password,
                                                const String& user, const String& options) = 0;

    /// The source as messages may show it, without a password.
    virtual std::string shownSource(const String& source) const {
        return static_cast<const char*>(source);
    }

    Dialect& getDialect() { return *dialect; }

private:
    // What belongs to one connection.
    struct Session {
        Session(std::unique_ptr<Connection> itsConnection, const Dialect& itsDialect);

        std::unique_ptr<Connection> connection;
        StatementCache statements;
        ModelMapping tables;
        SqlSchema schema;
        WriteQueue queue;
        QueueWriter writer;
        IdSource ids;
        LinkRows links;
        RowCounter counter;
        TableQuery values;
        UnionReader unions;
        bool writing = false;  // a transaction was begun and not ended by the library
        std::string loss;      // why the database has ended it
        FailureKind lossKind = FailureKind::Unclassified;
    };

    SelectionDefinition* define(AssociatedClass* associatedClass, const RowRange& range);
    std::vector<std::string> sourcesOf(Class* cls, const QueryPlan& plan);
    template <class Work>
    bool attempt(std::string_view what, Work work, bool keepsSnapshot = false);
    void makeRoom(bool forSnapshot);
    void beginSnapshot(const SqlDefinition& query);
    void readTogether(const SqlDefinition& query);
    std::unique_ptr<SqlSelection> open(Class* cls, const SqlDefinition& query);
    void endSnapshot() noexcept;
    void prepareToWrite();
    void prepareSchema();
    void forgetModel();
    void noteVersionFailure();
    void requireVersions() const;
    void requireTransaction() const;
    void noteLoss(const std::string& words, FailureKind kind);
    void settleCursors();
    void abandonCursors();
    void flush(bool goesOn = true);
    void beforeReading(const Class* cls);
    bool link(bool made, Instance* first, const String& firstRole, Instance* second,
              const String& secondRole, Association* association, bool linkFlag);
    bool schemaStep(const std::string& what, void (SqlSchema::*step)(Class*), Class* cls);
    bool refreshFrom(Instance* instance);

    std::unique_ptr<Dialect> dialect;
    std::unique_ptr<Session> session;  // null while closed
    std::unordered_set<SqlSelection*> cursors;
    RowLoader rowLoader;
    String message;
    FailureKind failureKind = FailureKind::None;  // of the failure that message tells
    DBDriverStatus status;
    bool settling = false;

    // While the cursors of one selection over several classes are opened: its
    // number, how many are to come, and what holds its state.
    std::uint64_t opening = 0;
    std::size_t toOpen = 0;
    bool isInSnapshot = false;
    std::unordered_map<const Class*, std::unique_ptr<RowBuffer>> together;  // by one statement
    std::uint64_t definitions = 0;
    String versionFailure;  // of getVersion or setVersion, "" for none
    FailureKind versionKind = FailureKind::Unclassified;
    std::ostream* trace = nullptr;  // borrowed
};

}  // namespace Kes::sql
