#include "tools/faulty/FaultyCursor.h"

#include <kes/Exception.h>

namespace Kes::faulty {

FaultyCursor::~FaultyCursor() {
    if (faults->isDue("cursor.destroy", ""))
        faults->strike("cursor.destroy", false);
}

bool FaultyCursor::fails(const char* slot) {
    if (!faults->strike(slot, true))
        return false;
    report->tell(faults->describe(slot), faults->getKind());
    return true;
}

// As the contract has it: the failure is raised and the cursor is at its end.
void FaultyCursor::raise() {
    real.reset();
    Exception error(Exception::ERROR, "SELERR", "Selection::next", report->message);
    error.handle();

    // The handler returned, but the row that was asked for does not exist.
    throw Exception(error);
}

bool FaultyCursor::next() {
    report->told = false;
    const bool due = faults->isDue("cursor.next", "");
    if (due && faults->strikesAfter() && real != nullptr)
        real->next();
    if (due && fails("cursor.next"))
        raise();
    return real != nullptr && real->next();
}

Instance* FaultyCursor::getInstance() {
    report->told = false;
    if (faults->isDue("cursor.getInstance", "") && fails("cursor.getInstance"))
        return nullptr;
    return real != nullptr ? real->getInstance() : nullptr;
}

}  // namespace Kes::faulty
