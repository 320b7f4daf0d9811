// How a model tells what went wrong.

#pragma once

#include <kes/Exception.h>
#include <kes/String.h>

namespace Kes {

/// Of the severity ERROR; goes on where the error handler returns.
inline void raise(const char* code, const char* context, const String& message) {
    Exception(Exception::ERROR, code, context, message).handle();
}

}  // namespace Kes
