// Cursor over the rows of one class.
//
// All cursors of one selection show one state: the first statement of several is
// executed within a snapshot that SqlDriver begins, and the last one ends it.

#pragma once

#include <exception>
#include <memory>
#include <string>

#include <kes/Calculator.h>
#include <kes/DBDriver.h>
#include <kes/Pointer.h>

#include "drivers/common/QueryPlan.h"
#include "drivers/common/RowBuffer.h"
#include "drivers/common/SqlFailure.h"
#include "drivers/common/TableMapping.h"

namespace Kes::sql {

class SqlDriver;

/// Streams from its statement until the connection is about to write; then it
/// is settled, which takes its remaining rows aside.
class SqlSelection final : public DBDriverSelection, public StoredKeys {
public:
    SqlSelection(SqlDriver* itsDriver, TableMapping& itsTable,
                 std::shared_ptr<const QueryPlan> itsPlan);

    /// Over rows that were taken aside.
    SqlSelection(SqlDriver* itsDriver, TableMapping& itsTable,
                 std::shared_ptr<const QueryPlan> itsPlan, std::unique_ptr<RowBuffer> rows);
    SqlSelection(const SqlSelection&) = delete;
    SqlSelection& operator=(const SqlSelection&) = delete;
    ~SqlSelection() override;

    /// Executes the query at once. A failure shows at the first advance.
    void begin() noexcept;

    bool next() override;
    Instance* getInstance() override;
    bool showKeys(Handler& handler) override;

    /// Keeps the remaining rows aside, for something else is to be sent. When they
    /// cannot be read or kept, the cursor says so at the next advance: what the
    /// driver is about to do does not fail for it.
    void bufferRows() noexcept;

    /// The driver goes: no further row is delivered.
    void abandon();

private:
    bool advance();
    void keepRows();
    void materialise();
    void finish();
    void giveBack() noexcept;
    Row& row();
    [[noreturn]] void raise(const SqlFailure& failure);

    SqlDriver* driver;  // null when finished
    TableMapping& table;
    std::shared_ptr<const QueryPlan> plan;
    SharedPool home;                       // null when finished
    std::unique_ptr<Statement> statement;  // null when settled or finished
    std::unique_ptr<RowBuffer> buffer;
    std::exception_ptr broken;  // what kept it from being settled
    bool isBegun = false;       // with the first row still to be delivered
    bool hasFirst = false;      // if there is one
    bool onRow = false;
    Pointer<Instance> current;
};

}  // namespace Kes::sql
