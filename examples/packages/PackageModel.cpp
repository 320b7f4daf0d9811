#include "packages/PackageModel.h"

namespace packages {

namespace {

// Made once, because handle runs for every object that is read or written.
const Kes::String nameField("name");
const Kes::String dependentsField("dependents");
const Kes::String installedSizeField("installedSize");
const Kes::String addressField("address");
const Kes::String packageCountField("packageCount");
const Kes::String versionField("version");
const Kes::String architectureField("architecture");
const Kes::String priorityField("priority");
const Kes::String homepageField("homepage");
const Kes::String summaryField("summary");
const Kes::String downloadSizeField("downloadSize");
const Kes::String essentialField("essential");
const Kes::String importedField("imported");
const Kes::String checksumField("checksum");
const Kes::String dependenciesField("dependencies");
const Kes::String atField("at");
const Kes::String fromVersionField("fromVersion");
const Kes::String toVersionField("toVersion");
const Kes::String entriesField("entries");

const Kes::String dependsName("Depends");
const Kes::String dependsOnRole("dependsOn");
const Kes::String neededByRole("neededBy");
const Kes::String providesName("Provides");
const Kes::String providesRole("provides");
const Kes::String providedByRole("providedBy");
const Kes::String maintainsName("Maintains");
const Kes::String maintainerRole("maintainer");
const Kes::String containsName("Contains");
const Kes::String sectionRole("section");
const Kes::String packagesRole("packages");

constexpr auto unlink = Kes::Association::Unlink;

template <class T>
Kes::Instance* make(Kes::Class* cls) {
    return new T(cls);
}

}  // namespace

void CatalogueEntry::handle(Kes::Handler* handler) {
    Instance::handle(handler);
    handler->handleString(nameField, name, 255);
    handler->handleInt(dependentsField, dependents);
    handler->handleLong(installedSizeField, installedSize);
    handler->handleManyAssociated(dependsName, dependsOnRole, &dependsOn);
    handler->handleManyAssociated(dependsName, neededByRole, &neededBy);
}

void VirtualPackage::handle(Kes::Handler* handler) {
    CatalogueEntry::handle(handler);
    handler->handleManyAssociated(providesName, providedByRole, &providedBy);
}

void Maintainer::handle(Kes::Handler* handler) {
    Instance::handle(handler);
    handler->handleString(nameField, name, 255);
    handler->handleString(addressField, address, 255);
    handler->handleInt(packageCountField, packageCount);
    handler->handleManyAssociated(maintainsName, packagesRole, &packages);
}

void Section::handle(Kes::Handler* handler) {
    Instance::handle(handler);
    handler->handleString(nameField, name, 255);
    handler->handleManyAssociated(containsName, packagesRole, &packages);
}

void Package::handle(Kes::Handler* handler) {
    CatalogueEntry::handle(handler);
    handler->handleString(versionField, version, 255);
    handler->handleString(architectureField, architecture, 63);
    handler->handleString(priorityField, priority, 63);
    handler->handleString(homepageField, homepage, 1000);
    handler->handleString(summaryField, summary, 1000);
    handler->handleLong(downloadSizeField, downloadSize);
    handler->handleBool(essentialField, essential);
    handler->handleTimestamp(importedField, imported);
    handler->handleBlob(checksumField, checksum);
    if (getClass()->getVersion() >= 2)
        handler->handleUInt(dependenciesField, dependencies);
    handler->handleOneAssociated(maintainsName, maintainerRole, &maintainer, unlink);
    handler->handleOneAssociated(containsName, sectionRole, &section, unlink);
    handler->handleManyAssociated(providesName, providesRole, &provides);
}

void Upgrade::handle(Kes::Handler* handler) {
    Instance::handle(handler);
    handler->handleTimestamp(atField, at);
    handler->handleInt(fromVersionField, fromVersion);
    handler->handleInt(toVersionField, toVersion);
    handler->handleULong(entriesField, entries);
}

// The capacity lets a whole catalogue stay in memory.
PackageModel::PackageModel(int modelVersion)
    : Model("packages", 1'000'000),
      declared(modelVersion) {}

int PackageModel::storedVersion() const {
    return getDriver()->getVersion(getName(), "MODEL");
}

void PackageModel::declareModel() {
    setVersion(declared);

    // An abstract class makes no objects; the library learns its fields from
    // one all the same.
    Kes::Class* const entry = addClass("CatalogueEntry", 1, make<CatalogueEntry>);
    entry->setAbstract(true);
    entry->addIndex(nameField, false);
    entry->addIndex("dependents,name", false);
    entry->addIndex(installedSizeField, false);
    addClass("Package", declared, make<Package>)->subclassOf(entry);
    addClass("VirtualPackage", 1, make<VirtualPackage>)->subclassOf(entry);

    Kes::Class* const maintainer = addClass("Maintainer", 1, make<Maintainer>);
    maintainer->addIndex("name,address", true);
    maintainer->addIndex(packageCountField, false);
    addClass("Section", 1, make<Section>)->addIndex(nameField, true);

    if (declared >= 2)
        addClass("Upgrade", 1, make<Upgrade>);
}

}  // namespace packages
