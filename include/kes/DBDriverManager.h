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
    /// any mix of cases; it is searched in the folder "kes" beside the library
    /// itself and then as the operating system searches libraries. A name with a
    /// slash is a path and loads just that file, which may do anything: take no
    /// names from users, or call setPathsAllowed(false).
    ///
    /// Raises LOADDRIV (ERROR) for a library that is no driver; null when the
    /// handler returns.
    static DBDriver* getDBDriver(const String& name);

    /// Why the calling thread's last getDBDriver, or the last Model::open that
    /// raised DRVERR or LOADDRIV, found no driver: every place where it has
    /// looked, each with the system's own words. "" after one that was found.
    static String getFailure();

    /// Whether names may be paths, as they may at first. Where they may not, one
    /// with a slash finds nothing unless it was loaded before. For all threads.
    static void setPathsAllowed(bool allowed);

    /// Where the LOADDRIV message sends its reader for an intact driver.
    static void setDownloadLocation(const String& location);
};

}  // namespace Kes
