// The values that databases stumble over.

#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Shape.h"
#include "Value.h"

namespace Kes::check {

struct ValueCase {
    std::string label;
    Value value;
    const char* property = nullptr;  ///< null for a value that has to be kept
    std::size_t bytes = 0;           ///< of a long text or blob, which is made when needed

    Value get() const;
};

std::vector<ValueCase> valueCases(Kind kind);

/// Stores an object for each value that the driver may refuse and does not.
/// Not-a-numbers, which no comparison orders, and long values are left out.
std::vector<Pointer<Object>> storeOddCases(CheckModel& model, const std::string& className,
                                           const std::string& field, Kind kind);

bool isNan(const Value& value);

/// A text of that many bytes.
String longText(std::size_t bytes);

/// A blob in which every byte value occurs.
Blob longBlob(std::size_t bytes);

}  // namespace Kes::check
