#include "Properties.h"

#include <algorithm>
#include <iterator>

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
    {"quoted-class", "class names with quote characters"},
    {"quoted-field", "field names with quote characters"},
    {"quoted-association", "association and role names with quote characters"},
    {"name-63", "names of 63 bytes"},
    {"name-64", "names of 64 bytes"},
    {"name-65", "names of 65 bytes"},
    {"name-200", "names of 200 bytes"},
    {"names-alike-63", "two names that agree in their first 63 bytes"},
    {"case-classes", "two classes whose names differ in case only"},
    {"case-fields", "two fields whose names differ in case only"},
    {"case-associations", "two associations whose names differ in case only"},
    {"case-umlaut", "two fields whose names differ in the case of an umlaut only"},
    {"class-like-association", "a class and an association of one name"},
    {"class-like-view", "a class called like another one with \"_all\" behind it"},
    {"system-names", "fields named like columns that databases have of their own"},
    {"wide-text", "types made narrower although every row fits"},
};

}  // namespace

bool isProperty(const std::string& name) {
    return std::any_of(std::begin(Properties), std::end(Properties),
                       [&](const Property& each) { return name == each.name; });
}

void printProperties(std::ostream& out) {
    for (const Property& each : Properties)
        out << each.name << std::string(25 - std::string(each.name).size(), ' ') << each.meaning
            << '\n';
}

}  // namespace Kes::check
