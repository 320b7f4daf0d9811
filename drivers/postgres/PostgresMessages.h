// What the server and the client library say.

#pragma once

#include <libpq-fe.h>

#include <string>

namespace Kes::sql {

// Messages of the client library have several lines.
inline std::string onOneLine(const char* words) {
    std::string line;
    for (const char* c = words; c != nullptr && *c != '\0'; ++c) {
        const bool isBlank = *c == '\n' || *c == '\t' || *c == ' ';
        if (!isBlank)
            line += *c;
        else if (!line.empty() && line.back() != ' ')
            line += ' ';
    }
    while (!line.empty() && line.back() == ' ')
        line.pop_back();
    return line;
}

inline std::string fieldOf(const pg_result* result, int code) {
    const char* text = PQresultErrorField(result, code);
    return text != nullptr ? text : "";
}

inline bool says(const std::string& words, const char* part) {
    return words.find(part) != std::string::npos;
}

}  // namespace Kes::sql
