// Null texts, which are taken for empty ones.

#pragma once

namespace Kes {

inline const char* orEmpty(const char* s) {
    return s != nullptr ? s : "";
}

}  // namespace Kes
