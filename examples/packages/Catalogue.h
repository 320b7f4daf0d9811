// A catalogue in memory, before it is stored: which entries there are and which
// of them depends on which.

#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "packages/ControlParser.h"

namespace packages {

/// Package records and names that are only provided, resolved into a graph.
///
/// Entries are numbered: first the packages in the order in which they came,
/// then the virtual packages by name.
class Catalogue {
public:
    /// Of several versions of one package the first counts. A package that the
    /// dpkg status file does not call installed is passed over.
    void add(PackageRecord record);

    /// Ends adding: finds the virtual packages and what every dependency means.
    ///
    /// Reports packages that depend on themselves, whose link is left out, and
    /// packages that depend on one another in a circle, which stays.
    void resolve(const std::function<void(const Problem&)>& report);

    const std::vector<PackageRecord>& packages() const { return records; }
    const std::vector<std::string>& virtualPackages() const { return virtualNames; }
    std::size_t entryCount() const { return records.size() + virtualNames.size(); }
    const std::string& nameOf(std::size_t entry) const;

    /// By number of the package: the entries that it depends on, each once.
    const std::vector<std::vector<std::size_t>>& dependencies() const { return links; }

    /// By number of the package: the virtual packages that it provides.
    const std::vector<std::vector<std::size_t>>& provided() const { return provisions; }

    std::size_t linkCount() const;
    long otherVersions() const { return skippedVersions; }
    long notInstalled() const { return skippedStates; }

    /// Dependencies that no entry of the catalogue can satisfy.
    long unresolved() const { return unresolvedCount; }

private:
    void findVirtualPackages();
    void linkProvisions(std::size_t package);
    bool linkDependencies(std::size_t package);
    void reportCircles(const std::function<void(const Problem&)>& report) const;

    std::vector<PackageRecord> records;
    std::unordered_map<std::string, std::size_t> numbers;  // by name
    std::vector<std::string> virtualNames;
    std::vector<std::vector<std::size_t>> links;
    std::vector<std::vector<std::size_t>> provisions;
    long skippedVersions = 0;
    long skippedStates = 0;
    long unresolvedCount = 0;
};

/// The names in a relation such as "a (>= 1) | b:any, c": the groups between
/// commas, each with its alternatives. Versions and architectures are dropped.
std::vector<std::vector<std::string>> parseRelation(std::string_view relation);

}  // namespace packages
