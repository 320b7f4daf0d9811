// Checks of texts, and the stored form of timestamps.

#pragma once

#include <cstddef>
#include <string>

#include <kes/String.h>
#include <kes/Timestamp.h>

namespace Kes::sql {

inline std::string textOf(const String& text) {
    return static_cast<const char*>(text);
}

bool isValidUtf8(const char* text, std::size_t size);

/// "YYYY-MM-DD HH:MM:SS"; midnight at the end of a day is written 24:00:00.
constexpr std::size_t TimestampSize = 19;

/// False for years outside 1 to 7899 and seconds outside 0 to 86,400.
bool writeTimestamp(const Timestamp& value, char (&text)[TimestampSize + 1]);
bool readTimestamp(const char* text, std::size_t size, Timestamp& value);

}  // namespace Kes::sql
