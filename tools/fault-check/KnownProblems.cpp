#include "tools/fault-check/KnownProblems.h"

#include <fstream>
#include <stdexcept>

namespace Kes::faulty {

void KnownProblems::read(const std::string& fileName) {
    std::ifstream file(fileName);
    if (!file)
        throw std::runtime_error("\"" + fileName + "\" cannot be read");
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line.front() == '#')
            continue;
        const std::size_t blank = line.find(' ');
        const std::size_t colon = line.find(": ", blank);
        if (blank == std::string::npos || colon == std::string::npos)
            throw std::runtime_error("\"" + line + "\" does not read FAULT SLOT: WORDS");
        entries.push_back({line.substr(0, blank), line.substr(blank + 1, colon - blank - 1),
                           line.substr(colon + 2)});
    }
}

bool KnownProblems::contains(const std::string& fault, const std::string& slot,
                             const std::string& problem) {
    for (Entry& entry : entries)
        if (entry.fault == fault && entry.slot == slot &&
            problem.find(entry.words) != std::string::npos) {
            entry.seen = true;
            return true;
        }
    return false;
}

std::vector<std::string> KnownProblems::unseen(const std::string& fault) const {
    std::vector<std::string> lines;
    for (const Entry& entry : entries)
        if (entry.fault == fault && !entry.seen)
            lines.push_back(entry.fault + " " + entry.slot + ": " + entry.words);
    return lines;
}

}  // namespace Kes::faulty
