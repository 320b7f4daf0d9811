#include "packages/Importer.h"

#include <chrono>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "packages/Progress.h"
#include "packages/Text.h"

namespace packages {

namespace {

int hexadecimalDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    return (c | 0x20) - 'a' + 10;
}

Kes::Blob bytesOf(const std::string& hexadecimal) {
    if (hexadecimal.empty())
        return {};
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hexadecimal.size(); i += 2)
        bytes += static_cast<char>(hexadecimalDigit(hexadecimal[i]) * 16 +
                                   hexadecimalDigit(hexadecimal[i + 1]));
    return {bytes.data(), static_cast<int>(bytes.size())};
}

Kes::String toString(std::string_view text) {
    return Kes::String(std::string(text).c_str());
}

// "Name <address>", of which either may be missing.
std::pair<std::string, std::string> splitMaintainer(std::string_view text) {
    const std::size_t open = text.find('<');
    if (open == std::string_view::npos)
        return {std::string(text), {}};
    const std::string_view address = text.substr(open + 1);
    return {std::string(trimmed(text.substr(0, open))),
            std::string(trimmed(address.substr(0, address.find('>'))))};
}

// Makes the objects. They are held by the transaction until it is committed,
// so plain pointers to them are safe.
class Importer {
public:
    Importer(PackageModel& m, const Catalogue& c) : model(m), catalogue(c) {}

    void storePackages(Progress& progress);
    void storeVirtualPackages(Progress& progress);
    void storeLinks(Progress& progress);

    std::size_t objectCount() const { return objects; }
    std::size_t linkCount() const { return links; }

private:
    template <class T>
    T* create(Kes::Class* cls) {
        ++objects;
        return static_cast<T*>(cls->newInstance());
    }
    void storePackage(const PackageRecord& record);
    void assignMaintainer(Package* package, const std::string& text);
    void assignSection(Package* package, const std::string& name);

    PackageModel& model;
    const Catalogue& catalogue;
    const Kes::Timestamp now;
    std::vector<CatalogueEntry*> entries;  // by number in the catalogue
    std::unordered_map<std::string, Maintainer*> maintainers;
    std::unordered_map<std::string, Section*> sections;
    std::size_t objects = 0;
    std::size_t links = 0;
};

void Importer::storePackages(Progress& progress) {
    entries.reserve(catalogue.entryCount());
    for (const PackageRecord& record : catalogue.packages()) {
        storePackage(record);
        progress.advance();
    }
}

void Importer::storePackage(const PackageRecord& record) {
    auto* const package = create<Package>(model.packages());
    entries.push_back(package);
    package->name = toString(record.name);
    package->version = toString(record.version);
    package->architecture = toString(record.architecture);
    package->priority = toString(record.priority);
    package->homepage = toString(record.homepage);
    package->summary = toString(record.summary);
    package->installedSize = record.installedSize;
    package->downloadSize = record.downloadSize;
    package->essential = record.essential;
    package->imported = now;
    package->checksum = bytesOf(record.sha256);
    if (!record.maintainer.empty())
        assignMaintainer(package, record.maintainer);
    if (!record.section.empty())
        assignSection(package, record.section);
}

void Importer::assignMaintainer(Package* package, const std::string& text) {
    auto [name, address] = splitMaintainer(text);
    Maintainer*& maintainer = maintainers[name + '<' + address];
    if (maintainer == nullptr) {
        maintainer = create<Maintainer>(model.maintainers());
        maintainer->name = toString(name);
        maintainer->address = toString(address);
    }
    ++maintainer->packageCount;
    package->maintainer = maintainer;
    ++links;
}

void Importer::assignSection(Package* package, const std::string& name) {
    Section*& section = sections[name];
    if (section == nullptr) {
        section = create<Section>(model.sections());
        section->name = toString(name);
    }
    package->section = section;
    ++links;
}

void Importer::storeVirtualPackages(Progress& progress) {
    for (const std::string& name : catalogue.virtualPackages()) {
        auto* const entry = create<VirtualPackage>(model.virtualPackages());
        entry->name = toString(name);
        entries.push_back(entry);
        progress.advance();
    }
}

void Importer::storeLinks(Progress& progress) {
    for (std::size_t i = 0; i < catalogue.packages().size(); ++i) {
        auto* const package = static_cast<Package*>(entries[i]);
        for (const std::size_t partner : catalogue.dependencies()[i]) {
            package->dependsOn.add(entries[partner]);
            ++entries[partner]->dependents;
        }
        for (const std::size_t partner : catalogue.provided()[i])
            package->provides.add(static_cast<VirtualPackage*>(entries[partner]));
        package->dependencies = static_cast<unsigned int>(catalogue.dependencies()[i].size());
        const std::size_t made =
            catalogue.dependencies()[i].size() + catalogue.provided()[i].size();
        links += made;
        progress.advance(made);
    }
}

template <class T>
void removeAll(Kes::Class* cls) {
    for (T* object : Kes::SelectionOf<T>(cls))
        object->remove();
}

void removeCatalogue(PackageModel& model) {
    removeAll<CatalogueEntry>(model.entries());
    removeAll<Maintainer>(model.maintainers());
    removeAll<Section>(model.sections());
}

std::size_t allLinks(const Catalogue& catalogue) {
    std::size_t count = catalogue.linkCount();
    for (const auto& provided : catalogue.provided())
        count += provided.size();
    return count;
}

// Records everything and commits it. Returns how long that took without the
// removal, in seconds.
double store(PackageModel& model, const Catalogue& catalogue, bool replace, Importer& importer,
             std::ostream& out, bool onTerminal) {
    if (replace) {
        Progress removal(out, onTerminal, "Removing the old catalogue", 0);
        removeCatalogue(model);
        removal.finish();
    }

    const auto start = std::chrono::steady_clock::now();
    Progress objects(out, onTerminal, "Making objects", catalogue.entryCount());
    importer.storePackages(objects);
    importer.storeVirtualPackages(objects);
    objects.finish();

    Progress links(out, onTerminal, "Making links", allLinks(catalogue));
    importer.storeLinks(links);
    links.finish();

    Progress writing(out, onTerminal, "Writing to the database", 0);
    model.commit();
    writing.finish();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    return elapsed.count();
}

}  // namespace

bool holdsCatalogue(PackageModel& model) {
    return Kes::Selection(model.entries()).next();
}

ImportResult importCatalogue(PackageModel& model, const Catalogue& catalogue, bool replace,
                             std::ostream& out, bool onTerminal) {
    // Nobody will undo an import, and its history would double the memory.
    model.setMaxUndoSize(0);
    Importer importer(model, catalogue);
    model.startTransaction();
    try {
        const double seconds = store(model, catalogue, replace, importer, out, onTerminal);
        return {importer.objectCount(), importer.linkCount(), seconds};
    } catch (...) {
        // A commit that failed has ended the transaction already.
        if (model.transactionStarted())
            model.rollback();
        throw;
    }
}

}  // namespace packages
