// A driver that outlived its model's session.

#pragma once

#include <kes/DBDriver.h>
#include <kes/String.h>

namespace Kes {

/// A parked driver with the texts that it was opened with.
class DriverCache {
public:
    DriverCache(DBDriver* parked, const String& name, const String& from, const String& by,
                const String& with)
        : driver(parked), driverName(name), source(from), user(by), options(with) {}
    DriverCache(const DriverCache&) = delete;
    DriverCache& operator=(const DriverCache&) = delete;
    virtual ~DriverCache() { delete driver; }

    /// Gives the driver to the caller; destroying the entry leaves it alone.
    DBDriver* release() {
        DBDriver* released = driver;
        driver = nullptr;
        return released;
    }

    DBDriver* driver;  // owned
    const String driverName;
    const String source;
    const String user;
    const String options;
};

}  // namespace Kes
