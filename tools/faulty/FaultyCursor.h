// The rows of a real driver's cursor, but for those that a fault falls on.

#pragma once

#include <memory>

#include <kes/DBDriver.h>

#include "tools/faulty/FaultyDriver.h"

namespace Kes::faulty {

class FaultyCursor final : public DBDriverSelection {
public:
    FaultyCursor(DBDriverSelection* itsCursor, std::shared_ptr<FaultPlan> itsPlan,
                 std::shared_ptr<Report> itsReport)
        : real(itsCursor),
          plan(std::move(itsPlan)),
          report(std::move(itsReport)) {}
    FaultyCursor(const FaultyCursor&) = delete;
    FaultyCursor& operator=(const FaultyCursor&) = delete;
    ~FaultyCursor() override;

    bool next() override;
    Instance* getInstance() override;

private:
    [[noreturn]] void raise();

    std::unique_ptr<DBDriverSelection> real;  // null after a failure
    std::shared_ptr<FaultPlan> plan;
    std::shared_ptr<Report> report;
};

}  // namespace Kes::faulty
