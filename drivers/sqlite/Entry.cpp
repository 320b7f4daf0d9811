#include <kes/DBDriver.h>
#include <kes/Export.h>

#include "drivers/sqlite/SqliteDriver.h"

extern "C" KES_EXPORT Kes::DBDriver* gdd();

Kes::DBDriver* gdd() {
    return new Kes::sql::SqliteDriver;
}
