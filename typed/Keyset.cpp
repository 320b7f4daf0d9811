// Going on behind an object: those that are behind it by the first key, or equal
// by that one and behind it by the next, and so on to the id, which decides. That
// they are not before it by the first key is said once more, for a database that
// looks for the beginning in an index.

#include "typed/Keyset.h"

#include <optional>

#include <kes/Error.h>
#include <kes/Instance.h>

#include "typed/DescribedClass.h"
#include "typed/Session.h"

namespace Kes {

namespace {

// The place of the object by one key.
struct KeyPlace {
    std::optional<PredicateBase> behind;     // none for the end of the order
    std::optional<PredicateBase> notBefore;  // none where it says little
    std::optional<PredicateBase> equal;      // none where nothing else is
};

PredicateBase both(const PredicateBase& a, const PredicateBase& b) {
    return PredicateBase(a, PredicateBase::Both, b);
}

PredicateBase either(const PredicateBase& a, const PredicateBase& b) {
    return PredicateBase(a, PredicateBase::Either, b);
}

const DescribedField& fieldOf(const PredicateScope& scope, FieldKey key) {
    const FieldPlace place = key();
    if (const auto* described = DescribedClass::from(scope.cls))
        for (const DescribedField& each : described->getFields())
            if (each.offset == place.offset)
                return each;
    static_cast<void>(scope.namesOf(key));  // raises
    std::terminate();
}

// Empty ones come before all values, and behind them in descending order.
KeyPlace placeOfEmpty(const SortKeyData& key) {
    const PredicateBase isSet(key.field);
    KeyPlace place;
    if (key.isAscending)
        place.behind = isSet;
    place.equal = PredicateBase(PredicateBase::Not, isSet);
    return place;
}

KeyPlace placeBy(const PredicateScope& scope, const SortKeyData& key, Instance* object) {
    const auto op = key.isAscending ? PredicateBase::Greater : PredicateBase::Less;
    if (key.field == nullptr) {
        KeyPlace place;
        place.behind = PredicateBase(nullptr, op, std::uint64_t{object->getObjectID()});
        return place;
    }
    const DescribedField& field = fieldOf(scope, key.field);
    const bool isOptional = field.codec->form == FieldForm::Optional;
    void* value = field.of(object);
    if (isOptional)
        value = field.codec->access(value, FieldCodec::Peek);
    if (value == nullptr)
        return placeOfEmpty(key);
    const FieldCodec& codec = isOptional ? *field.codec->inner : *field.codec;
    KeyPlace place;
    place.behind = PredicateBase(key.field, op, codec, value);
    place.equal = PredicateBase(key.field, PredicateBase::Equal, codec, value);
    if (isOptional && !key.isAscending)
        place.behind =
            either(*place.behind, PredicateBase(PredicateBase::Not, PredicateBase(key.field)));
    else
        place.notBefore = PredicateBase(
            key.field, key.isAscending ? PredicateBase::GreaterOrEqual : PredicateBase::LessOrEqual,
            codec, value);
    return place;
}

}  // namespace

ConditionPtr conditionBehind(const PredicateScope& scope, const std::vector<SortKeyData>& keys,
                             Instance* object) {
    requirePlace(scope.session, object);
    std::vector<KeyPlace> places;
    for (const SortKeyData& key : keys) {
        places.push_back(placeBy(scope, key, object));
        if (key.field == nullptr)
            break;
    }
    if (keys.empty() || places.back().equal.has_value())
        places.push_back(placeBy(scope, {nullptr, true}, object));
    PredicateBase all = *places.back().behind;
    for (std::size_t i = places.size() - 1; i-- > 0;) {
        all = both(*places[i].equal, all);
        if (places[i].behind.has_value())
            all = either(*places[i].behind, all);
    }
    if (places.front().notBefore.has_value())
        all = both(*places.front().notBefore, all);
    return all.getNode()->build(scope, false);
}

void requirePlace(const Session& session, const Instance* object) {
    if (object == nullptr)
        throw Error(ErrorKind::Misuse, "INSTERR", "Kes::Query::after",
                    "The Ref is empty, or its database was closed; go on after an object");
    if (object->getClass()->getModel() == &session)
        return;
    const std::string cls = static_cast<const char*>(object->getClass()->getName());
    throw Error(ErrorKind::Misuse, "INSTERR", "Kes::Query::after",
                "The " + cls + " object " + std::to_string(object->getObjectID()) +
                    " belongs to another database than the query; go on after one of that",
                cls, object->getObjectID());
}

}  // namespace Kes
