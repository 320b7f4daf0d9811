#include <string>

#include <kes/Error.h>

#include "typed/DescribedClass.h"
#include "typed/PredicateNode.h"
#include "typed/SchemaRecord.h"

namespace Kes {

namespace {

constexpr int MostLevels = 1000;

// "Ticket::title" of the name of a function that has it as an argument.
std::string memberOf(const FieldPlace& field) {
    const std::string whole = field.signature;
    const std::string mark = "Member = &";
    const std::size_t begin = whole.find(mark);
    if (begin == std::string::npos)
        return "a member of " + nameOf(*field.owner);
    const std::size_t from = begin + mark.size();
    return "the member " + whole.substr(from, whole.find_first_of(";,]", from) - from);
}

}  // namespace

PredicateScope PredicateScope::below(Class* target) const {
    if (level >= MostLevels)
        throw Error(ErrorKind::Misuse, "SELERR", "Kes::Query",
                    "A condition on " + nameOfClass(*this) +
                        " objects is nested too deep: && and || in turn, and partners of partners, "
                        "go more than " +
                        std::to_string(MostLevels) +
                        " levels down, which no database takes; find the inner objects first, or "
                        "ask several queries",
                    nameOfClass(*this), 0);
    return {session, target, knowsNotLike, level + 1};
}

const String& idName() {
    static const String name = String::constant("KesObjectID");
    return name;
}

std::string nameOfClass(const PredicateScope& scope) {
    return static_cast<const char*>(scope.cls->getName());
}

PredicateScope::Names PredicateScope::namesOf(FieldKey field) const {
    if (field == nullptr)
        return {idName(), String()};
    const FieldPlace place = field();
    if (const auto* described = DescribedClass::from(cls))
        for (const DescribedField& each : described->getFields())
            if (each.offset == place.offset)
                return {each.name, each.flag};
    throw Error(ErrorKind::Declaration, "DECLERR", "Kes::Query",
                "A query for " + nameOfClass(*this) + " objects names " + memberOf(place) +
                    ", which is not described; describe it",
                nameOfClass(*this), 0);
}

}  // namespace Kes
