#include "packages/Browse.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "packages/Text.h"

namespace packages {

namespace {

constexpr std::size_t shownNames = 12;

Kes::Pointer<CatalogueEntry> findEntry(PackageModel& model, const std::string& name) {
    Kes::SelectionOf<CatalogueEntry> entries(model.entries());
    entries.where(entries["name"] == name.c_str());
    CatalogueEntry* const entry = entries.nextValue();
    if (entry == nullptr)
        throw std::runtime_error("there is no entry named " + inQuotes(name));
    return entry;
}

bool isPackage(const PackageModel& model, const CatalogueEntry* entry) {
    return entry->getClass() == model.packages();
}

template <class T>
void sortByName(std::vector<T*>& entries) {
    std::sort(entries.begin(), entries.end(), [](T* a, T* b) { return a->name < b->name; });
}

template <class T>
std::string listOf(const Kes::Many<T>& members) {
    std::vector<T*> sorted;
    for (T* member : members)
        sorted.push_back(member);
    sortByName(sorted);
    std::string text;
    for (std::size_t i = 0; i < sorted.size() && i < shownNames; ++i)
        text += (i == 0 ? "" : ", ") + std::string(sorted[i]->name);
    if (sorted.size() > shownNames)
        text += ", ... (" + grouped(static_cast<long>(sorted.size())) + " in all)";
    return text;
}

void writeLine(std::ostream& out, std::string_view label, std::string_view value) {
    constexpr std::size_t width = 16;
    if (!value.empty())
        out << label << ": " << std::string(width - label.size(), ' ') << value << '\n';
}

std::string hexadecimal(const Kes::Blob& blob) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    const auto* const bytes = static_cast<const unsigned char*>(blob.data());
    for (int i = 0; i < blob.size(); ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 0xF];
    }
    return text;
}

void showPackage(Package& package, std::ostream& out) {
    writeLine(out, "Version", std::string(package.version));
    writeLine(out, "Architecture", std::string(package.architecture));
    writeLine(out, "Summary", std::string(package.summary));
    if (const Maintainer* const maintainer = package.maintainer)
        writeLine(out, "Maintainer",
                  std::string(maintainer->name) + " <" + std::string(maintainer->address) + ">");
    if (const Section* const section = package.section)
        writeLine(out, "Section", std::string(section->name));
    writeLine(out, "Priority", std::string(package.priority));
    writeLine(out, "Essential", package.essential ? "yes" : "no");
    writeLine(out, "Installed size", grouped(package.installedSize) + " KiB");
    writeLine(out, "Download size", grouped(package.downloadSize) + " bytes");
    writeLine(out, "Homepage", std::string(package.homepage));
    writeLine(out, "SHA-256", hexadecimal(package.checksum));
    writeLine(out, "Imported", std::string(package.imported.asString("%Y-%m-%d %H:%M:%S")));
    writeLine(out, "Depends on", listOf(package.dependsOn));
    writeLine(out, "Provides", listOf(package.provides));
}

// Everything that can be reached, breadth first. Circles end because each entry
// is taken once.
std::vector<CatalogueEntry*> reachableFrom(CatalogueEntry* root) {
    std::vector<CatalogueEntry*> reached;
    std::unordered_set<CatalogueEntry*> met{root};
    const auto takePartners = [&](CatalogueEntry* entry) {
        for (CatalogueEntry* partner : entry->dependsOn)
            if (met.insert(partner).second)
                reached.push_back(partner);
    };
    takePartners(root);
    for (std::size_t i = 0; i < reached.size(); ++i)
        takePartners(reached[i]);
    return reached;
}

}  // namespace

void showEntry(PackageModel& model, const std::string& name, std::ostream& out) {
    const Kes::Pointer<CatalogueEntry> entry = findEntry(model, name);
    if (isPackage(model, entry)) {
        writeLine(out, "Package", std::string(entry->name));
        showPackage(*static_cast<Package*>(entry.getInstance()), out);
    } else {
        writeLine(out, "Virtual package", std::string(entry->name));
        writeLine(out, "Provided by",
                  listOf(static_cast<VirtualPackage*>(entry.getInstance())->providedBy));
    }
    writeLine(out, "Needed by", entry->neededBy.empty() ? "nothing" : listOf(entry->neededBy));
}

void showNeeds(PackageModel& model, const std::string& name, std::ostream& out) {
    // Everything reached hangs on the root's references and stays with it.
    const Kes::Pointer<CatalogueEntry> root = findEntry(model, name);
    std::vector<CatalogueEntry*> needed = reachableFrom(root);
    sortByName(needed);
    long size = 0;
    for (CatalogueEntry* entry : needed) {
        size += entry->installedSize;
        out << entry->name;
        if (!isPackage(model, entry))
            out << " (virtual; provided by "
                << listOf(static_cast<VirtualPackage*>(entry)->providedBy) << ')';
        out << '\n';
    }
    out << name << " needs " << grouped(static_cast<long>(needed.size()))
        << (needed.size() == 1 ? " entry, " : " entries, ") << grouped(size) << " KiB installed\n";
}

}  // namespace packages
