// The persistent classes of the package catalogue.
//
//   CatalogueEntry (abstract)  dependsOn >---Depends---< neededBy  (itself)
//    |- Package                 maintainer --Maintains--< packages  Maintainer
//    |                          section ----Contains----< packages  Section
//    |                          provides >--Provides---< providedBy VirtualPackage
//    `- VirtualPackage
//
// Version 2 of the model adds the field `dependencies` to Package and the class
// Upgrade.

#pragma once

#include <kes/Kes.h>

namespace packages {

class Package;

/// Something that a package can depend on.
class CatalogueEntry : public Kes::Instance {
public:
    using Instance::Instance;
    void handle(Kes::Handler* handler) override;

    Kes::String name;

    /// The number of packages that depend on this entry. Kept with the entry,
    /// so that a report can order by it without reading a single link.
    int dependents = 0;

    /// KiB; 0 for what has no files of its own.
    long installedSize = 0;

    Kes::Many<CatalogueEntry> dependsOn{this};
    Kes::Many<CatalogueEntry> neededBy{this};
};

/// A name that packages provide and that no package has.
class VirtualPackage : public CatalogueEntry {
public:
    using CatalogueEntry::CatalogueEntry;
    void handle(Kes::Handler* handler) override;

    Kes::Many<Package> providedBy{this};
};

class Maintainer : public Kes::Instance {
public:
    using Instance::Instance;
    void handle(Kes::Handler* handler) override;

    Kes::String name;
    Kes::String address;

    /// The size of `packages`, kept for the same reason as `dependents`.
    int packageCount = 0;

    Kes::Many<Package> packages{this};
};

class Section : public Kes::Instance {
public:
    using Instance::Instance;
    void handle(Kes::Handler* handler) override;

    Kes::String name;
    Kes::Many<Package> packages{this};
};

class Package : public CatalogueEntry {
public:
    using CatalogueEntry::CatalogueEntry;
    void handle(Kes::Handler* handler) override;

    Kes::String version;
    Kes::String architecture;
    Kes::String priority;
    Kes::String homepage;
    Kes::String summary;
    long downloadSize = 0;  ///< bytes
    bool essential = false;
    Kes::Timestamp imported;
    Kes::Blob checksum;  ///< SHA-256 of the package file, 32 bytes; empty when unknown

    /// The size of `dependsOn`. Stored from version 2 of the model on.
    unsigned int dependencies = 0;

    Kes::One<Maintainer> maintainer{this};
    Kes::One<Section> section{this};
    Kes::Many<VirtualPackage> provides{this};
};

/// An upgrade of the model that the database went through. From version 2 on.
class Upgrade : public Kes::Instance {
public:
    using Instance::Instance;
    void handle(Kes::Handler* handler) override;

    Kes::Timestamp at;
    int fromVersion = 0;
    int toVersion = 0;
    unsigned long entries = 0;  ///< that were in the catalogue
};

/// A session with a catalogue.
class PackageModel : public Kes::Model {
public:
    static constexpr int firstVersion = 1;
    static constexpr int latestVersion = 2;

    explicit PackageModel(int modelVersion);

    Kes::Class* entries() const { return getClass("CatalogueEntry"); }
    Kes::Class* packages() const { return getClass("Package"); }
    Kes::Class* virtualPackages() const { return getClass("VirtualPackage"); }
    Kes::Class* maintainers() const { return getClass("Maintainer"); }
    Kes::Class* sections() const { return getClass("Section"); }

    /// Null in version 1.
    Kes::Class* upgrades() const { return getClass("Upgrade"); }

    /// The version of the model that the open database has.
    int storedVersion() const;

protected:
    void declareModel() override;

private:
    int declared;
};

}  // namespace packages
