// Connection pool: a driver that outlived its model's session waits for the next
// model that is opened with the same texts.

#pragma once

#include <cstdint>

#include <kes/DBDriver.h>
#include <kes/String.h>

#include "core/Platform.h"

namespace Kes {

/// A parked driver with the texts that it was opened with.
class DriverCache {
public:
    DriverCache(DBDriver* parked, const String& name, const String& from, const String& by,
                const String& with)
        : driver(parked),
          driverName(name.unshared()),
          source(from.unshared()),
          user(by.unshared()),
          options(with.unshared()),
          forks(platform::forkCount()) {}
    DriverCache(const DriverCache&) = delete;
    DriverCache& operator=(const DriverCache&) = delete;
    virtual ~DriverCache() { delete driver; }

    /// Gives the driver to the caller; destroying the entry leaves it alone.
    DBDriver* release() {
        DBDriver* released = driver;
        driver = nullptr;
        return released;
    }

    /// Parked by a process that this one was forked from: the connection is
    /// that one's, not even to be closed here.
    bool isInherited() const { return forks != platform::forkCount(); }

    DBDriver* driver;  // owned

    // Shared with no model, since models of other threads look at them.
    const String driverName;
    const String source;
    const String user;
    const String options;

private:
    const std::uint32_t forks;
};

}  // namespace Kes
