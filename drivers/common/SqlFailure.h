// How the parts of a driver tell each other of a failure.

#pragma once

#include <stdexcept>
#include <string>

namespace Kes::sql {

/// Thrown inside a driver and turned into a false flag at its slots. The text
/// is what the user reads.
class SqlFailure : public std::runtime_error {
public:
    explicit SqlFailure(const std::string& text) : std::runtime_error(text) {}
};

}  // namespace Kes::sql
