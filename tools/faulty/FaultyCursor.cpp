#include "tools/faulty/FaultyCursor.h"

#include <kes/Exception.h>

namespace Kes::faulty {

FaultyCursor::~FaultyCursor() {
    if (plan->isDue("cursor.destroy", ""))
        plan->strike("cursor.destroy", false);
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
    const bool due = plan->isDue("cursor.next", "");
    if (due && plan->strikesAfter() && real != nullptr)
        real->next();
    if (due && plan->strike("cursor.next", true)) {
        report->told = true;
        report->message = plan->describe("cursor.next").c_str();
        raise();
    }
    return real != nullptr && real->next();
}

Instance* FaultyCursor::getInstance() {
    report->told = false;
    if (plan->isDue("cursor.getInstance", "") && plan->strike("cursor.getInstance", true)) {
        report->told = true;
        report->message = plan->describe("cursor.getInstance").c_str();
        return nullptr;
    }
    return real != nullptr ? real->getInstance() : nullptr;
}

}  // namespace Kes::faulty
