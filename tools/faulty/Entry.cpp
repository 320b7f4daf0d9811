#include <kes/DBDriver.h>
#include <kes/Export.h>

#include "tools/faulty/FaultyDriver.h"

extern "C" KES_EXPORT Kes::DBDriver* gdd();

Kes::DBDriver* gdd() {
    return new Kes::faulty::FaultyDriver;
}
