// What a driver may refuse instead of keeping it exactly.

#pragma once

#include <ostream>
#include <string>

namespace Kes::check {

bool isProperty(const std::string& name);
void printProperties(std::ostream& out);

}  // namespace Kes::check
