#include "session/SchemaRecords.h"

#include <utility>
#include <vector>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/DBDriver.h>
#include <kes/Model.h>
#include <kes/SchemaReader.h>

#include "object/Plurality.h"

namespace Kes {

namespace {

constexpr const char* OwnerRecord = "OWNER";

std::string textOf(const String& text) {
    return static_cast<const char*>(text);
}

// A dot within the first part is not the one that ends it.
std::string join(const std::string& first, const std::string& second) {
    std::string name;
    for (const char c : first) {
        if (c == '.' || c == '\\')
            name += '\\';
        name += c;
    }
    return name + "." + second;
}

std::pair<std::string, std::string> split(const std::string& name) {
    std::string first;
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] == '.')
            return {first, name.substr(i + 1)};
        if (name[i] == '\\' && i + 1 < name.size())
            ++i;
        first += name[i];
    }
    return {first, ""};
}

// What a difference is about, as in "the field age".
std::string wordsFor(const ClassShape::key_type& part) {
    const std::string& name = part.second;
    if (part.first == LinkRecordKind)
        return "the many-to-many role " + name;
    return (part.first == IndexRecordKind ? "the index \"" : "the field ") + name +
           (part.first == IndexRecordKind ? "\"" : "");
}

std::string difference(const ClassShape& declared, const ClassShape& stored) {
    if (declared.empty() != stored.empty())
        return declared.empty() ? "is abstract, and has objects of its own"
                                : "is concrete, and has no objects of its own";
    for (const auto& [part, number] : declared) {
        const auto found = stored.find(part);
        if (found == stored.end())
            return "declares " + wordsFor(part) + ", which is missing";
        if (found->second != number)
            return "declares " + wordsFor(part) +
                   (part.first == FieldRecordKind ? " as " + wordsForField(number) + ", which is " +
                                                        wordsForField(found->second)
                                                  : " for another association");
    }
    for (const auto& [part, number] : stored)
        if (!declared.contains(part))
            return "no longer declares " + wordsFor(part) + ", which is there";
    return "";
}

}  // namespace

SchemaRecords::SchemaRecords(Model& itsModel, DBDriver& itsDriver)
    : model(itsModel),
      driver(itsDriver),
      reader(dynamic_cast<SchemaReader*>(&itsDriver)) {}

bool SchemaRecords::read() {
    storedModel = 0;
    versions.clear();
    records.clear();
    std::vector<StoredVersion> all;
    if (reader != nullptr && !reader->readVersions(all))
        return false;
    for (const StoredVersion& each : all) {
        const std::string kind = textOf(each.kind);
        if (kind == "MODEL") {
            if (each.name == model.getName())
                storedModel = each.version;
            continue;
        }
        if (kind == "CLASS") {
            versions[textOf(each.name)] = each.version;
            continue;
        }
        const auto [owner, part] = split(textOf(each.name));
        if (kind == OwnerRecord) {
            records[owner].owner = part;
            records[owner].version = each.version;
        } else if (kind == FieldRecordKind || kind == LinkRecordKind || kind == IndexRecordKind) {
            records[owner].parts[{kind, part}] = each.version;
        }
    }
    return true;
}

const SchemaRecords::Record* SchemaRecords::find(const String& name) const {
    const auto found = records.find(textOf(name));
    return found != records.end() && found->second.version > 0 ? &found->second : nullptr;
}

int SchemaRecords::storedVersion(const Class* cls) const {
    const auto found = versions.find(textOf(cls->getName()));
    return found != versions.end() ? found->second : 0;
}

String SchemaRecords::refuseOwner(const char* what, const String& name) const {
    const Record* record = find(name);
    if (record == nullptr || record->owner == textOf(model.getName()))
        return "";
    return String("The ") + what + " " + name + " of the model " + model.getName() +
           " belongs to the model " + record->owner.c_str() +
           " in this database; rename it, take another database, or, when both models are "
           "meant to have it, call setShared for the class";
}

String SchemaRecords::refusalOfOwner() const {
    for (const Class* cls : model.getDeclaredClasses()) {
        String words = cls->isShared() ? String("") : refuseOwner("class", cls->getName());
        if (words.size() != 0)
            return words;
    }
    for (const Association* association : model.getDeclaredAssociations()) {
        const bool isShared =
            association->getOneClass()->isShared() && association->getOtherClass()->isShared();
        String words = isShared ? String("") : refuseOwner("association", association->getName());
        if (words.size() != 0)
            return words;
    }
    return "";
}

// Nothing would make the storage of such a class.
String SchemaRecords::refuseVersion(const Class* cls) const {
    const int stored = storedVersion(cls);
    const String is = stored > 0 ? String("is stored in version ") + std::to_string(stored).c_str()
                                 : String("is not stored yet");
    return String("The class ") + cls->getName() + " of version " +
           std::to_string(cls->getVersion()).c_str() + " " + is + ", and the model " +
           model.getName() + " is not upgraded: its version " +
           std::to_string(model.getVersion()).c_str() +
           " is not above the stored one; call setVersion with " +
           std::to_string(storedModel + 1).c_str() + " or more in declareModel";
}

// In words; empty when the class is stored as it is declared, or is not to be
// compared.
std::string SchemaRecords::differenceOf(Class* cls) const {
    if (storedVersion(cls) != cls->getVersion())
        return "";
    const Record* record = find(cls->getName());
    if (record != nullptr && record->version == cls->getVersion())
        return difference(shapeOf(cls), record->parts);
    if (cls->isAbstract())
        return "";
    const std::string missing = textOf(reader->findMissingField(cls));
    return missing.empty() ? "" : "declares the field " + missing + ", which is missing";
}

String SchemaRecords::refuseShape(bool upgrades) const {
    std::string first;
    std::string others;
    for (Class* cls : model.getDeclaredClasses()) {
        const std::string found = differenceOf(cls);
        const std::string name = textOf(cls->getName());
        if (found.empty())
            continue;
        if (first.empty())
            first = "The class " + name + " " + found + " in its stored version " +
                    std::to_string(cls->getVersion()) + "; raise the version of the class " + name;
        else
            others += ", " + name;
    }
    if (first.empty())
        return "";
    if (!others.empty())
        others = ", and those of the classes that differ as well:" + others.substr(1);
    const std::string ofModel = upgrades ? ""
                                         : ", and that of the model " + textOf(model.getName()) +
                                               " above " + std::to_string(storedModel);
    return (first + ofModel + others).c_str();
}

String SchemaRecords::refusal(bool upgrades) const {
    if (reader == nullptr)
        return "";
    String ofOwner = refusalOfOwner();
    if (ofOwner.size() != 0)
        return ofOwner;
    for (const Class* cls : model.getDeclaredClasses())
        if (!upgrades && storedVersion(cls) < cls->getVersion())
            return refuseVersion(cls);
    return refuseShape(upgrades);
}

bool SchemaRecords::writeOwner(const String& name, int version) {
    const Record* record = find(name);
    if (record != nullptr && record->version == version)
        return false;
    const std::string owner = record != nullptr ? record->owner : textOf(model.getName());
    driver.setVersion(join(textOf(name), owner).c_str(), version, OwnerRecord);
    return true;
}

bool SchemaRecords::writeClass(Class* cls) {
    const ClassShape declared = shapeOf(cls);
    const std::string name = textOf(cls->getName());
    const ClassShape stored = records[name].parts;
    bool wrote = writeOwner(cls->getName(), cls->getVersion());
    for (const auto& [part, number] : stored)
        if (!declared.contains(part)) {
            driver.setVersion(join(name, part.second).c_str(), 0, part.first.c_str());
            wrote = true;
        }
    for (const auto& [part, number] : declared) {
        const auto found = stored.find(part);
        if (found != stored.end() && found->second == number)
            continue;
        driver.setVersion(join(name, part.second).c_str(), number, part.first.c_str());
        wrote = true;
    }
    return wrote;
}

bool SchemaRecords::write() {
    if (reader == nullptr)
        return false;
    bool wrote = false;
    for (Class* cls : model.getDeclaredClasses())
        if (storedVersion(cls) <= cls->getVersion())
            wrote = writeClass(cls) || wrote;
    for (const Association* association : model.getDeclaredAssociations())
        if (isManyToMany(association))
            wrote = writeOwner(association->getName(), 1) || wrote;
    return wrote;
}

}  // namespace Kes
