// Problems that are known already and shall not fail a check.

#pragma once

#include <string>
#include <vector>

namespace Kes::faulty {

class KnownProblems {
public:
    /// Reads lines `FAULT SLOT: WORDS`; empty ones and those that begin with #
    /// count for nothing. Throws std::runtime_error for another line or a file
    /// that cannot be read.
    void read(const std::string& fileName);

    /// Whether a line has this fault and slot, and words that stand in
    /// `problem`.
    bool contains(const std::string& fault, const std::string& slot, const std::string& problem);

    /// The lines with this fault that contains() never said yes for.
    std::vector<std::string> unseen(const std::string& fault) const;

private:
    struct Entry {
        std::string fault;
        std::string slot;
        std::string words;
        bool seen = false;
    };
    std::vector<Entry> entries;
};

}  // namespace Kes::faulty
