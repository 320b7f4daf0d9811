#include "Properties.h"

#include <map>

namespace Kes::check {

namespace {

struct Property {
    const char* name;
    const char* meaning;
};

constexpr Property Properties[] = {
    {"nan", "reals that are not a number"},
    {"infinity", "infinite reals"},
    {"negative-zero", "the sign of -0.0"},
    {"unsigned64", "unsigned long values above 9223372036854775807"},
    {"invalid-utf8", "texts that are not valid UTF-8"},
    {"text64k", "texts of more than 65535 bytes"},
    {"text1m", "texts of 1 MiB"},
    {"text16m", "texts of 16 MiB"},
    {"blob16m", "blobs of 16 MiB"},
    {"blob100m", "blobs of 100 MB"},
    {"indexed-text1m", "texts of 1 MiB in a field with an index"},
    {"odd-time", "times outside the years 1 to 7899"},
    {"second-86400", "a time of day of 86400 seconds"},
    {"odd-second", "times of day below 0 or above 86400 seconds"},
    {"fields-300", "classes with 300 fields"},
    {"fields-1000", "classes with 1000 fields"},
    {"fields-2100", "classes with 2100 fields"},
    {"names-alike-64", "two names that agree in their first 64 bytes"},
    {"case-classes", "two classes whose names differ in case only"},
    {"case-fields", "two fields whose names differ in case only"},
    {"case-umlaut-classes", "two classes whose names differ in the case of an umlaut only"},
    {"case-umlaut-fields", "two fields whose names differ in the case of an umlaut only"},
    {"accent-fields", "two fields whose names differ in an accent only"},
    {"class-like-association", "a class and an association of one name"},
    {"class-like-view", "a class called like another one with \"_all\" behind it"},
    {"role-like-field", "a field and a one-reference of one name in a class"},
    {"deep-conditions", "operators that alternate 100 deep, or 12 nested selections"},
};

constexpr const char* NameOwners[] = {"class", "field", "association"};

constexpr Property NameHardships[] = {
    {"63", "names of 63 bytes, with those that are made of them"},
    {"64", "names of 64 bytes"},
    {"65", "names of 65 bytes"},
    {"200", "names of 200 bytes"},
    {"quotes", "names with quote characters"},
    {"emoji", "names with characters beyond the basic plane"},
    {"invalid-utf8", "names that are not valid UTF-8"},
};

std::map<std::string, std::string> allProperties() {
    std::map<std::string, std::string> all;
    for (const Property& each : Properties)
        all.emplace(each.name, each.meaning);
    for (const char* owner : NameOwners)
        for (const Property& each : NameHardships)
            all.emplace(std::string(owner) + "-name-" + each.name,
                        std::string(owner) + " " + each.meaning);
    return all;
}

}  // namespace

bool isProperty(const std::string& name) {
    return allProperties().contains(name);
}

void printProperties(std::ostream& out) {
    for (const auto& [name, meaning] : allProperties())
        out << name << std::string(30 - name.size(), ' ') << meaning << '\n';
}

}  // namespace Kes::check
