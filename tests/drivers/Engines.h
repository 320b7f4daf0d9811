// The databases that the driver suite was built for.

#pragma once

#include "tests/drivers/Engine.h"

namespace Kes::testing {

std::unique_ptr<Engine> makeSqliteEngine();
std::unique_ptr<Engine> makePostgresEngine();
std::unique_ptr<Engine> makeMariadbEngine();

}  // namespace Kes::testing
