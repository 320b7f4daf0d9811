// Walking the fields of an instance.
//
// The whole library relies on handle reporting each field once and in the same
// order at every call: images, digests and rows are read in step with it. A
// handle that does not keep to this mixes up values without a sign, so builds
// for development compare every walk with the first one of the class. Release
// builds just call handle.

#pragma once

#include <kes/Handler.h>
#include <kes/Instance.h>

#if !defined(NDEBUG) && !defined(KES_CHECKS)
#define KES_CHECKS
#endif

namespace Kes {

#ifdef KES_CHECKS

/// Lets the handler visit the fields. Raises DECLERR (ERROR) in the context
/// Instance::handle when a field is reported twice or not as in the class's
/// first walk, once in a walk; nothing else happens when the handler returns.
void walkFields(Instance* instance, Handler& handler);

/// The class goes: another one may come to lie at its address.
void forgetFields(const Class* cls);

#else

inline void walkFields(Instance* instance, Handler& handler) {
    instance->handle(&handler);
}

inline void forgetFields(const Class*) {}

#endif

}  // namespace Kes
