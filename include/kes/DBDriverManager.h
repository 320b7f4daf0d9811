// Finding and loading drivers.

#pragma once

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/String.h>

namespace Kes {

/// Loads each driver library once per process and releases it at the end of
/// the process. Safe to use from several threads.
class KES_EXPORT DBDriverManager {
public:
    DBDriverManager() = delete;

    /// A new driver object, for the caller; null when no library of that name
    /// can be loaded.
    ///
    /// The file is `name` with ".dll" appended, unless `name` ends in ".dll" in
    /// any mix of cases; it is searched as the operating system searches
    /// libraries, and beside the library itself in the folder "kes". Raises
    /// LOADDRIV (ERROR) for a library that is no driver; null when the handler
    /// returns.
    static DBDriver* getDBDriver(const String& name);

    /// Where the LOADDRIV message sends its reader for an intact driver.
    static void setDownloadLocation(const String& location);
};

}  // namespace Kes
