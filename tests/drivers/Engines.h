// The databases that the driver suite was built for.

#pragma once

#include "tests/drivers/Engine.h"

namespace Kes::testing {

std::unique_ptr<Engine> makeSqliteEngine();
std::unique_ptr<Engine> makePostgresEngine();
std::unique_ptr<Engine> makeMariadbEngine();

/// PostgreSQL behind a pooler, which gives each transaction another session.
std::unique_ptr<Engine> makePgbouncerEngine();

/// The nodes of the cluster in turn: each model that is opened is on another one.
std::unique_ptr<Engine> makeGaleraEngine();

}  // namespace Kes::testing
