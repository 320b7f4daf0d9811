// What of the declaration of a class its storage depends on.

#pragma once

#include <map>
#include <string>
#include <utility>

#include <kes/Forward.h>

namespace Kes {

/// The parts of a class's storage, each by the kind of its record and its name,
/// with a number that is another one when the part has to be stored otherwise.
/// An abstract class has none.
using ClassShape = std::map<std::pair<std::string, std::string>, int>;

constexpr const char* FieldRecordKind = "FIELD";  // fields and one-references
constexpr const char* LinkRecordKind = "LINK";    // roles of many-to-many associations
constexpr const char* IndexRecordKind = "INDEX";  // declared ones, inherited ones included

ClassShape shapeOf(Class* cls);

/// All fields and roles that the objects of a class report, abstract or not;
/// a role counts as a LinkRecordKind where it is a many-reference.
ClassShape reportOf(Class* cls);

/// What a field of this number holds, as in "a text".
std::string wordsForField(int number);

}  // namespace Kes
