#include "drivers/common/Options.h"

#include <algorithm>
#include <charconv>

#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

namespace {

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::string lowered(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c + 32);
    return text;
}

template <class List>
std::string join(const List& items) {
    std::string joined;
    for (const auto& item : items)
        joined += (joined.empty() ? "" : ", ") + std::string(item);
    return joined;
}

}  // namespace

Options::Options(const std::string& text, const std::vector<std::string>& known) {
    bool mayBeSecret = false;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(';', at), text.size());
        const std::string pair = trimmed(text.substr(at, end - at));
        at = end + 1;
        if (pair.empty())
            continue;
        const std::size_t equals = pair.find('=');
        const std::string key = trimmed(pair.substr(0, equals));
        const bool isKnown = std::find(known.begin(), known.end(), key) != known.end();
        // Perhaps the end of a value with a semicolon, which may be a secret.
        if (!isKnown && equals == std::string::npos)
            throw SqlFailure(
                "a part of the options has no name; write NAME=VALUE, separated by "
                "semicolons; the options are " +
                join(known));
        if (!isKnown && mayBeSecret)
            throw SqlFailure(
                "an option behind the password is unknown; a password with a semicolon is given "
                "by itself and not as an option; the options are " +
                join(known));
        if (!isKnown)
            throw SqlFailure("unknown option \"" + key + "\"; the options are " + join(known));
        if (equals == std::string::npos)
            throw SqlFailure("the option \"" + key + "\" has no value; write " + key + "=VALUE");
        mayBeSecret = mayBeSecret || key.find("password") != std::string::npos;
        if (!values.emplace(key, trimmed(pair.substr(equals + 1))).second)
            throw SqlFailure("the option \"" + key + "\" is given twice");
    }
}

std::string Options::getText(const std::string& key, const std::string& otherwise) const {
    const auto found = values.find(key);
    return found != values.end() ? found->second : otherwise;
}

bool Options::getBool(const std::string& key, bool otherwise) const {
    const std::string choice = getChoice(key, {"true", "false", "yes", "no", "on", "off", "1", "0"},
                                         otherwise ? "true" : "false");
    return choice == "true" || choice == "yes" || choice == "on" || choice == "1";
}

long Options::getNumber(const std::string& key, long least, long most, long otherwise) const {
    const auto found = values.find(key);
    if (found == values.end())
        return otherwise;
    const std::string& text = found->second;
    long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < least || value > most)
        throw SqlFailure("the option \"" + key + "\" takes a number from " + std::to_string(least) +
                         " to " + std::to_string(most) + ", not \"" + text + "\"");
    return value;
}

std::string Options::getChoice(const std::string& key, const std::vector<std::string>& choices,
                               const std::string& otherwise) const {
    const auto found = values.find(key);
    if (found == values.end())
        return otherwise;
    std::string value = lowered(found->second);
    if (std::find(choices.begin(), choices.end(), value) == choices.end())
        throw SqlFailure("the option \"" + key + "\" is one of " + join(choices) + ", not \"" +
                         found->second + "\"");
    return value;
}

}  // namespace Kes::sql
