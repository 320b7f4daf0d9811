// What a database holds, as texts that can be compared.

#pragma once

#include <map>
#include <string>

#include "tools/fault-check/FaultModel.h"

namespace Kes::faulty {

/// Fields and partners of one object, by field and role. Ids are left out:
/// they may differ from run to run.
using Fields = std::map<std::string, std::string>;

/// All objects by their names.
using State = std::map<std::string, Fields>;

/// Where the database is and how it is reached.
struct Target {
    std::string driver;
    std::string source;
    std::string password;
    std::string user;
    std::string options;
    std::string suffix;  // of all names, see FaultModel
};

/// The fields of an object as it is in memory. `load` says whether references
/// that are not fetched are loaded; otherwise they are left out.
Fields describe(Named* object, bool load);

/// Reads everything that is stored, in a session of its own. Throws
/// Kes::Exception.
State readDatabase(const Target& target, int schema);

/// The first difference in words, "" when there is none. Fields that one side
/// lacks count if `whole`.
std::string compare(const State& expected, const State& found, bool whole);

}  // namespace Kes::faulty
