#include "packages/Report.h"

#include <iomanip>

#include "packages/Text.h"

namespace packages {

namespace {

constexpr int listed = 10;
constexpr int numberWidth = 12;

void writeCount(Kes::Class* cls, std::ostream& out) {
    long count = 0;
    for (Kes::Selection all(cls); all.next();)
        ++count;
    out << std::setw(numberWidth) << grouped(count) << "  " << cls->getName() << '\n';
}

void writeMaintainers(PackageModel& model, std::ostream& out) {
    out << "\nMaintainers with most packages\n";
    Kes::SelectionOf<Maintainer> maintainers(model.maintainers());
    maintainers.orderBy(maintainers["packageCount"], false);
    maintainers.orderBy(maintainers["name"]);
    maintainers.orderBy(maintainers["address"]);
    for (int i = 0; i < listed && maintainers.next(); ++i) {
        const Maintainer* const maintainer = maintainers.value();
        out << std::setw(numberWidth) << grouped(maintainer->packageCount) << "  "
            << maintainer->name << " <" << maintainer->address << ">\n";
    }
}

// Returns the name of the package that most others depend on, "" if none.
Kes::String writeMostNeeded(PackageModel& model, std::ostream& out) {
    out << "\nEntries that most packages depend on\n";
    Kes::SelectionOf<CatalogueEntry> entries(model.entries());
    entries.where(entries["dependents"] > 0);
    entries.orderBy(entries["dependents"], false);
    entries.orderBy(entries["name"]);
    Kes::String first;
    for (int i = 0; i < listed && entries.next(); ++i) {
        const CatalogueEntry* const entry = entries.value();
        const bool isPackage = entry->getClass() == model.packages();
        if (isPackage && first.size() == 0)
            first = entry->name;
        out << std::setw(numberWidth) << grouped(entry->dependents) << "  " << entry->name
            << (isPackage ? "" : " (virtual)") << '\n';
    }
    return first;
}

void writeLargest(PackageModel& model, std::ostream& out) {
    out << "\nLargest by installed size, in KiB\n";
    Kes::SelectionOf<CatalogueEntry> entries(model.entries());
    entries.orderBy(entries["installedSize"], false);
    entries.orderBy(entries["name"]);
    for (int i = 0; i < listed && entries.next(); ++i)
        out << std::setw(numberWidth) << grouped(entries.value()->installedSize) << "  "
            << entries.value()->name << '\n';
}

// Finds the maintainer by the name of a package, across the association.
void writeMaintainerOf(PackageModel& model, const Kes::String& name, std::ostream& out) {
    out << "\nWho maintains " << name << '\n';
    Kes::Selection named(model.packages());
    named.where(named["name"] == name);
    Kes::SelectionOf<Maintainer> maintainers(model.maintainers());
    maintainers.where(maintainers("Maintains") == named);
    for (const Maintainer* maintainer : maintainers)
        out << "  " << maintainer->name << " <" << maintainer->address << ">\n";
}

}  // namespace

void writeReport(PackageModel& model, std::ostream& out) {
    out << "Objects\n";
    writeCount(model.packages(), out);
    writeCount(model.virtualPackages(), out);
    writeCount(model.maintainers(), out);
    writeCount(model.sections(), out);
    writeMaintainers(model, out);
    const Kes::String mostNeeded = writeMostNeeded(model, out);
    writeLargest(model, out);
    if (mostNeeded.size() != 0)
        writeMaintainerOf(model, mostNeeded, out);
}

}  // namespace packages
