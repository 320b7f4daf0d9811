// The rows of a real driver's cursor, but for those that a fault falls on.

#pragma once

#include <memory>

#include <kes/DBDriver.h>

#include "tools/faulty/FaultyDriver.h"

namespace Kes::faulty {

class FaultyCursor final : public DBDriverSelection {
public:
    FaultyCursor(std::unique_ptr<DBDriverSelection> itsCursor, std::shared_ptr<Faults> itsFaults,
                 std::shared_ptr<Report> itsReport)
        : real(std::move(itsCursor)),
          faults(std::move(itsFaults)),
          report(std::move(itsReport)) {}
    FaultyCursor(const FaultyCursor&) = delete;
    FaultyCursor& operator=(const FaultyCursor&) = delete;
    ~FaultyCursor() override;

    bool next() override;
    Instance* getInstance() override;

private:
    bool fails(const char* slot);
    [[noreturn]] void raise();

    std::unique_ptr<DBDriverSelection> real;  // null after a failure
    std::shared_ptr<Faults> faults;
    std::shared_ptr<Report> report;
};

}  // namespace Kes::faulty
