// The option text of an open: `key=value` pairs separated by `;`.

#pragma once

#include <map>
#include <string>
#include <vector>

namespace Kes::sql {

class Options {
public:
    /// Throws SqlFailure for a key that is not known, listing those that are.
    Options(const std::string& text, const std::vector<std::string>& known);

    /// What the text says of the key, else `otherwise`. Throws SqlFailure for a
    /// value of the wrong form or out of range.
    bool has(const std::string& key) const { return values.contains(key); }
    std::string getText(const std::string& key, const std::string& otherwise) const;
    bool getBool(const std::string& key, bool otherwise) const;
    long getNumber(const std::string& key, long least, long most, long otherwise) const;
    std::string getChoice(const std::string& key, const std::vector<std::string>& choices,
                          const std::string& otherwise) const;

private:
    std::map<std::string, std::string> values;
};

}  // namespace Kes::sql
