#include "packages/Digest.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace packages {

namespace {

// FNV-1a.
class Hash {
public:
    void add(const void* data, std::size_t size) {
        const auto* const bytes = static_cast<const unsigned char*>(data);
        for (std::size_t i = 0; i < size; ++i)
            value = (value ^ bytes[i]) * 0x100000001B3U;
    }
    // The length keeps "ab" + "c" apart from "a" + "bc".
    void add(std::string_view text) {
        add(static_cast<long>(text.size()));
        add(text.data(), text.size());
    }
    void add(long number) { add(&number, sizeof number); }
    void add(unsigned long number) { add(&number, sizeof number); }

    std::uint64_t value = 0xCBF29CE484222325U;
};

// Hashes the fields of one object that version 1 of the model has. The object's
// version is left out, since filling the new field counts as a change.
class FieldHasher : public Kes::EmptyHandler {
public:
    void handleULong(const Kes::String& name, unsigned long& value) override {
        if (name != "KesVersion")
            begin(name).add(value);
    }
    void handleLong(const Kes::String& name, long& value) override { begin(name).add(value); }
    void handleInt(const Kes::String& name, int& value) override {
        begin(name).add(static_cast<long>(value));
    }
    void handleString(const Kes::String& name, Kes::String& value, int) override {
        begin(name).add(std::string_view(value));
    }
    void handleBool(const Kes::String& name, bool& value) override {
        begin(name).add(static_cast<long>(value));
    }
    void handleTimestamp(const Kes::String& name, Kes::Timestamp& value) override {
        Hash& into = begin(name);
        into.add(static_cast<long>(value.getAllDays()));
        into.add(static_cast<long>(value.getAllSeconds()));
    }
    void handleBlob(const Kes::String& name, Kes::Blob& value) override {
        Hash& into = begin(name);
        into.add(static_cast<long>(value.isEmpty()));
        into.add(value.data(), static_cast<std::size_t>(value.size()));
    }

    std::uint64_t value() const { return hash.value; }

private:
    Hash& begin(const Kes::String& name) {
        hash.add(std::string_view(name));
        return hash;
    }

    Hash hash;
};

class Digester {
public:
    void addFields(Kes::Instance* object) {
        FieldHasher hasher;
        object->handle(&hasher);
        digest.fields += hasher.value();
        ++digest.objects;
    }
    void addLink(long kind, const Kes::Instance* from, const Kes::Instance* to) {
        Hash hash;
        hash.add(kind);
        hash.add(from->getObjectID());
        hash.add(to->getObjectID());
        digest.partners += hash.value;
        ++digest.links;
    }
    void addPackage(const Package* package) {
        for (const CatalogueEntry* entry : package->dependsOn)
            addLink(1, package, entry);
        for (const VirtualPackage* entry : package->provides)
            addLink(2, package, entry);
        if (const Maintainer* const maintainer = package->maintainer)
            addLink(3, package, maintainer);
        if (const Section* const section = package->section)
            addLink(4, package, section);
    }

    Digest digest;
};

}  // namespace

Digest digestOf(PackageModel& model) {
    Digester digester;
    for (Kes::Class* cls :
         {model.packages(), model.virtualPackages(), model.maintainers(), model.sections()})
        for (Kes::Instance* object : Kes::SelectionOf<Kes::Instance>(cls))
            digester.addFields(object);
    for (const Package* package : Kes::SelectionOf<Package>(model.packages()))
        digester.addPackage(package);
    return digester.digest;
}

}  // namespace packages
