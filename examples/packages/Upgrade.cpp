#include "packages/Upgrade.h"

#include <stdexcept>

#include "packages/Digest.h"
#include "packages/Importer.h"
#include "packages/Text.h"

namespace packages {

namespace {

std::string describe(const Digest& digest) {
    return grouped(digest.objects) + " objects and " + grouped(digest.links) + " links";
}

void requireSame(const Digest& before, const Digest& after, const char* when) {
    if (before != after)
        throw std::runtime_error("the catalogue differs " + std::string(when) + ": it had " +
                                 describe(before) + ", now it has " + describe(after));
}

// Gives the new field its values and makes the first object of the new class.
void fillWhatIsNew(PackageModel& model, const Digest& before) {
    model.setMaxUndoSize(0);
    model.startTransaction();
    for (Package* package : Kes::SelectionOf<Package>(model.packages())) {
        package->dependencies = static_cast<unsigned int>(package->dependsOn.size());
        package->change();
    }
    auto* const upgrade = static_cast<Upgrade*>(model.upgrades()->newInstance());
    upgrade->fromVersion = PackageModel::firstVersion;
    upgrade->toVersion = PackageModel::latestVersion;
    upgrade->entries = static_cast<unsigned long>(before.objects);
    model.commit();
}

void writeWhatIsNew(PackageModel& model, std::ostream& out) {
    long packages = 0;
    long dependencies = 0;
    for (const Package* package : Kes::SelectionOf<Package>(model.packages())) {
        ++packages;
        dependencies += package->dependencies;
    }
    out << "New field Package.dependencies: " << grouped(dependencies) << " in "
        << grouped(packages) << " packages\n";
    for (const Upgrade* upgrade : Kes::SelectionOf<Upgrade>(model.upgrades()))
        out << "New class Upgrade: from version " << upgrade->fromVersion << " to "
            << upgrade->toVersion << " with " << grouped(static_cast<long>(upgrade->entries))
            << " objects\n";
}

}  // namespace

void upgradeCatalogue(const OpenModel& open, std::ostream& out) {
    std::unique_ptr<PackageModel> model = open(PackageModel::firstVersion);
    if (model->storedVersion() >= PackageModel::latestVersion) {
        out << "The database has version " << model->storedVersion() << " of the model already\n";
        return;
    }
    if (!holdsCatalogue(*model))
        throw std::runtime_error("the database holds no catalogue; run `packages import` first");
    const Digest before = digestOf(*model);
    out << "Version 1: " << describe(before) << '\n';

    model->close();
    model = open(PackageModel::latestVersion);
    requireSame(before, digestOf(*model), "after the upgrade");
    fillWhatIsNew(*model, before);

    // Once more from the database, and not from what is in memory.
    model->close();
    model = open(PackageModel::latestVersion);
    const Digest after = digestOf(*model);
    requireSame(before, after, "after filling the new field");
    out << "Version 2: " << describe(after) << '\n';
    writeWhatIsNew(*model, out);
    out << "Nothing was lost: every field and every link of version 1 is as it was\n";
}

}  // namespace packages
