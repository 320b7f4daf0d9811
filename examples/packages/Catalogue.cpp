#include "packages/Catalogue.h"

#include <algorithm>
#include <set>
#include <utility>

#include "packages/Circles.h"
#include "packages/Text.h"

namespace packages {

namespace {

// Calls `visit` for each piece between separators.
template <class Visit>
void forEachPiece(std::string_view text, char separator, const Visit& visit) {
    for (std::size_t start = 0; start <= text.size();) {
        const std::size_t end = std::min(text.find(separator, start), text.size());
        visit(text.substr(start, end - start));
        start = end + 1;
    }
}

bool saysInstalled(const std::string& status) {
    return status.empty() || status.ends_with(" installed");
}

// "bash", "bash and dash", "bash, dash and zsh"; a long list is cut.
std::string enumerated(const std::vector<std::string>& names) {
    constexpr std::size_t shown = 5;
    std::string text = names.front();
    const std::size_t listed = std::min(names.size(), shown);
    for (std::size_t i = 1; i < listed; ++i)
        text += (i + 1 == names.size() ? " and " : ", ") + names[i];
    if (names.size() > shown)
        text += " and " + std::to_string(names.size() - shown) + " more";
    return text;
}

}  // namespace

std::vector<std::vector<std::string>> parseRelation(std::string_view relation) {
    std::vector<std::vector<std::string>> groups;
    forEachPiece(relation, ',', [&](std::string_view group) {
        std::vector<std::string> names;
        forEachPiece(group, '|', [&](std::string_view alternative) {
            alternative = trimmed(alternative);
            const std::string_view name =
                alternative.substr(0, alternative.find_first_of(" \t(:[<"));
            if (!name.empty())
                names.emplace_back(name);
        });
        if (!names.empty())
            groups.push_back(std::move(names));
    });
    return groups;
}

void Catalogue::add(PackageRecord record) {
    if (!saysInstalled(record.status)) {
        ++skippedStates;
        return;
    }
    if (!numbers.try_emplace(record.name, records.size()).second) {
        ++skippedVersions;
        return;
    }
    records.push_back(std::move(record));
}

const std::string& Catalogue::nameOf(std::size_t entry) const {
    return entry < records.size() ? records[entry].name : virtualNames[entry - records.size()];
}

std::size_t Catalogue::linkCount() const {
    std::size_t count = 0;
    for (const auto& partners : links)
        count += partners.size();
    return count;
}

void Catalogue::resolve(const std::function<void(const Problem&)>& report) {
    findVirtualPackages();
    links.resize(records.size());
    provisions.resize(records.size());
    for (std::size_t package = 0; package < records.size(); ++package) {
        linkProvisions(package);
        if (linkDependencies(package))
            report({records[package].line,
                    records[package].name + " depends on itself; this link is left out"});
    }
    reportCircles(report);
}

void Catalogue::findVirtualPackages() {
    std::set<std::string> names;
    for (const PackageRecord& record : records)
        for (const auto& group : parseRelation(record.provides))
            for (const std::string& name : group)
                if (!numbers.contains(name))
                    names.insert(name);
    virtualNames.assign(names.begin(), names.end());
    for (std::size_t i = 0; i < virtualNames.size(); ++i)
        numbers.emplace(virtualNames[i], records.size() + i);
}

void Catalogue::linkProvisions(std::size_t package) {
    std::vector<std::size_t>& mine = provisions[package];
    for (const auto& group : parseRelation(records[package].provides))
        for (const std::string& name : group)
            if (const std::size_t entry = numbers.at(name); entry >= records.size())
                mine.push_back(entry);
    std::sort(mine.begin(), mine.end());
    mine.erase(std::unique(mine.begin(), mine.end()), mine.end());
}

// True when the package names itself among its dependencies.
bool Catalogue::linkDependencies(std::size_t package) {
    std::vector<std::size_t>& mine = links[package];
    for (const auto& group : parseRelation(records[package].depends)) {
        bool found = false;
        for (const std::string& name : group)
            if (const auto entry = numbers.find(name); entry != numbers.end()) {
                found = true;
                mine.push_back(entry->second);
            }
        if (!found)
            ++unresolvedCount;
    }
    std::sort(mine.begin(), mine.end());
    mine.erase(std::unique(mine.begin(), mine.end()), mine.end());
    return std::erase(mine, package) != 0;
}

void Catalogue::reportCircles(const std::function<void(const Problem&)>& report) const {
    // Virtual packages depend on nothing, so no circle passes through one.
    for (const std::vector<std::size_t>& circle : findCircles(links)) {
        std::vector<std::string> names;
        names.reserve(circle.size());
        for (const std::size_t package : circle)
            names.push_back(records[package].name);
        report({records[circle.front()].line, enumerated(names) + " depend on one another"});
    }
}

}  // namespace packages
