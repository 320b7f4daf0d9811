// Data mapper: binds an instance's fields to the parameters of a statement.

#pragma once

#include <deque>
#include <string>
#include <vector>

#include <kes/Blob.h>
#include <kes/Handler.h>

#include "drivers/common/TableMapping.h"
#include "drivers/common/TextForms.h"

namespace Kes::sql {

/// What a link does to a reference column: it puts the partner there, or, when
/// it is dissolved, takes it away where it stands there.
struct LinkValue {
    int column;
    unsigned long partner;  // 0 for none
    const Instance* check;  // the partner, when somebody may have removed it
    bool isDissolved = false;
};

/// Walks an instance and binds the wanted columns straight from its members.
///
/// Throws SqlFailure, with class, field and object named, for a value that the
/// databases do not all keep exactly.
class FieldBinder final : public Handler {
public:
    FieldBinder(const Dialect& itsDialect, const Connection& itsConnection)
        : dialect(itsDialect),
          connection(itsConnection) {}

    /// All columns, in order, to the parameters from `first` on; the values are
    /// good until a row is bound to parameter 0. References come from the links,
    /// else from what the instance holds in memory.
    void bindAll(Statement& target, const TableMapping& itsTable, Instance* instance,
                 const std::vector<LinkValue>& itsLinks, int first = 0);

    /// The columns of the set, in order, one parameter each; of one that is
    /// dissolved the partner that it may lead to. Returns the number of
    /// parameters.
    int bindSome(Statement& target, const TableMapping& itsTable, Instance* instance,
                 const std::vector<LinkValue>& itsLinks, const ColumnSet& itsSet);

    /// Whether each reference of the row that was bound last is as in memory, which
    /// knows of links that the queue is still to hear of.
    bool isAsInMemory() const { return asInMemory; }

    /// What was bound is not needed any more: it was written, or never will be.
    void forget();

    void handleULong(const String& name, unsigned long& value) override;
    void handleLong(const String& name, long& value) override;
    void handleString(const String& name, String& value, int length) override;
    void handleInt(const String& name, int& value) override;
    void handleUInt(const String& name, unsigned int& value) override;
    void handleBool(const String& name, bool& value) override;
    void handleFloat(const String& name, float& value) override;
    void handleDouble(const String& name, double& value) override;
    void handleTimestamp(const String& name, Timestamp& value) override;
    void handleBlob(const String& name, Blob& value) override;
    void handleOneAssociated(const String& association, const String& role,
                             OneAssociatedInstance* ref,
                             Association::ConsistencyRule rule) override;
    void handleManyAssociated(const String& association, const String& role,
                              ManyAssociatedInstances* ref) override;

private:
    void start(Statement& target, const TableMapping& itsTable, Instance* instance,
               const std::vector<LinkValue>& itsLinks, int first);

    // The parameter for the next column, or -1 when it is not wanted.
    int nextParameter();
    void bindInteger(std::int64_t value);
    void bindReal(const String& name, double value);
    void countBytes(const String& name, std::size_t size, bool isSent);
    void checkBytes() const;
    std::string boundName() const;
    [[noreturn]] void refuse(const String& name, const std::string& why) const;

    const Dialect& dialect;
    const Connection& connection;
    Statement* statement = nullptr;
    const TableMapping* table = nullptr;
    const Instance* bound = nullptr;
    const std::vector<LinkValue>* links = nullptr;
    const ColumnSet* set = nullptr;  // null for all columns
    int column = 0;
    int parameter = 0;
    bool asInMemory = true;

    // The texts and blobs of the row that is being bound.
    SizeLimit limit;
    std::size_t bytes = 0;     // that the limit counts
    std::size_t largest = 0;   // of them, in one field
    std::string largestField;  // no String: threads may share the name's text

    // Formatted values of the rows that are being bound.
    struct Formatted {
        char text[TimestampSize + 1];
    };
    std::deque<Formatted> formatted;
    std::size_t formattedUsed = 0;

    // A handle operation may report a text or a blob that is gone when it
    // returns; copies share the buffer.
    std::vector<String> texts;
    std::vector<Blob> blobs;
};

/// Says why a number of this kind is refused; empty when it is not.
std::string reasonToRefuse(double value);

}  // namespace Kes::sql
