// Small helpers for text that comes from outside.

#pragma once

#include <string>
#include <string_view>

namespace packages {

/// Whether `text` is well-formed UTF-8: no overlong form, no surrogate, nothing
/// above U+10FFFF.
bool isUtf8(std::string_view text);

/// Without blanks and tabs at both ends.
std::string_view trimmed(std::string_view text);

/// The number with a comma between groups of three digits: 63666 is "63,666".
std::string grouped(long number);

/// The text in quotation marks for a message; a long one is cut, between two
/// characters, and ends with "...".
std::string inQuotes(std::string_view text);

}  // namespace packages
