#include <kes/DBDriver.h>
#include <kes/Export.h>

#include "drivers/mariadb/MariadbDriver.h"

extern "C" KES_EXPORT Kes::DBDriver* gdd();

Kes::DBDriver* gdd() {
    return new Kes::sql::MariadbDriver;
}
