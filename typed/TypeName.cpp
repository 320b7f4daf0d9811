#include <cstdlib>
#include <memory>

#include "typed/SchemaRecord.h"

#if __has_include(<cxxabi.h>)
#include <cxxabi.h>
#endif

namespace Kes {

namespace {

std::string fullNameOf(std::type_index type) {
#if __has_include(<cxxabi.h>)
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, nullptr), &std::free);
    if (name != nullptr)
        return name.get();
#endif
    return type.name();
}

}  // namespace

// Compilers that need no demangling put "struct " or "class " in front. What
// stands between angle brackets has namespaces of its own.
std::string nameOf(std::type_index type) {
    const std::string full = fullNameOf(type);
    const std::size_t end = full.find('<');
    const std::size_t before = full.find_last_of(": ", end == std::string::npos ? end : end - 1);
    return before == std::string::npos ? full : full.substr(before + 1);
}

}  // namespace Kes
