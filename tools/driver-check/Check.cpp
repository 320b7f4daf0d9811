#include "Check.h"

#include "Properties.h"

namespace Kes::check {

void Refusals::declare(const std::set<std::string>& properties) {
    isDeclared = true;
    declared = properties;
}

std::string Refusals::note(const std::string& property, bool wasRefused) {
    const auto [place, isFirst] = found.emplace(property, wasRefused);
    if (isDeclared && declared.contains(property) != wasRefused)
        return wasRefused ? "was refused, but \"" + property + "\" is not declared as refused"
                          : "was accepted, but \"" + property + "\" is declared as refused";
    if (!isFirst && place->second != wasRefused)
        return std::string(wasRefused ? "was refused" : "was accepted") +
               ", unlike another value of the property \"" + property + "\"";
    return "";
}

std::vector<std::string> Refusals::seen() const {
    std::vector<std::string> names;
    for (const auto& [property, wasRefused] : found)
        if (wasRefused)
            names.push_back(property);
    return names;
}

bool Check::expect(bool holds, const std::string& what) {
    if (!holds)
        failed.push_back(what);
    return holds;
}

void Check::require(bool holds, const std::string& what) {
    if (!holds)
        throw Abandoned(what);
}

void Check::noteProperty(const std::string& property, bool wasRefused) {
    require(isProperty(property), "the check itself notes \"" + property + "\", no property");
    refused = refused || wasRefused;
    const std::string fault = refusals.note(property, wasRefused);
    expect(fault.empty(), fault);
}

}  // namespace Kes::check
