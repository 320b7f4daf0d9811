// Asking objects for their fields, which is the application's code.

#pragma once

#include <exception>

#include <kes/Handler.h>
#include <kes/Instance.h>
#include <kes/Model.h>

#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

/// What an object, or the error handler that it called, has thrown. It is no
/// failure of the database and leaves the driver as it came.
struct ObjectFailure {
    std::exception_ptr cause;
};

/// As messages name an object.
inline std::string nameOf(const Instance* instance) {
    return std::string(static_cast<const char*>(instance->getClass()->getName())) + " object " +
           std::to_string(instance->getObjectID());
}

/// Calls the object's handle operation. Throws ObjectFailure, or the SqlFailure
/// of the handler.
inline void handleFields(Instance* instance, Handler* handler) {
    try {
        instance->handle(handler);
    } catch (const SqlFailure&) {
        throw;
    } catch (...) {
        throw ObjectFailure{std::current_exception()};
    }
}

/// Hands the object to Model::set, which looks at its fields. Throws
/// ObjectFailure.
inline void fileObject(Model* model, Instance* instance) {
    try {
        model->set(instance);
    } catch (...) {
        throw ObjectFailure{std::current_exception()};
    }
}

}  // namespace Kes::sql
