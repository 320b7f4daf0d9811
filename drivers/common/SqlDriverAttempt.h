// What all slots of a driver do around their work.

#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "drivers/common/ObjectFields.h"
#include "drivers/common/SqlDriver.h"
#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

// Runs the work of a slot. Of what it throws the driver's own becomes the message,
// and the application's passes.
template <class Work>
bool SqlDriver::attempt(std::string_view what, Work work, bool keepsSnapshot) {
    if (!keepsSnapshot)
        endSnapshot();
    std::string words;
    FailureKind kind = FailureKind::Unclassified;
    try {
        if (session != nullptr) {
            work();
            return true;
        }
        words = "the driver is not open";
    } catch (const ObjectFailure& failure) {
        std::rethrow_exception(failure.cause);
    } catch (const SqlFailure& failure) {
        words = failure.what();
        kind = failure.kind;
    } catch (const std::exception& failure) {
        words = failure.what();
    }
    endSnapshot();
    noteLoss(words, kind);
    failureKind = kind;
    message = describe(std::string(what), words).c_str();
    return false;
}

}  // namespace Kes::sql
