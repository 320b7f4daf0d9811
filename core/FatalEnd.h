// The end of a process that cannot go on.

#pragma once

namespace Kes {

/// Writes out what the standard streams hold and leaves at once, with status 1.
///
/// No static object is destroyed, no library is released and no exit handler of
/// the application runs: other threads are at work with all of these. What an
/// application has to do in the end, it does in its exception handler, which has
/// been called before.
[[noreturn]] void endProcess();

}  // namespace Kes
