#include "typed/SchemaRecord.h"

#include <algorithm>
#include <map>

#include <kes/Description.h>
#include <kes/Error.h>

namespace Kes {

namespace {

// Databases take names that differ in the case of letters for the same name.
std::string folded(std::string text) {
    for (char& each : text)
        if (each >= 'A' && each <= 'Z')
            each = static_cast<char>(each - 'A' + 'a');
    return text;
}

// What the other end of a link is called that names one end only.
std::string nameOfEnd(const ClassRecord& partner, bool isMany) {
    std::string name = partner.name;
    if (!name.empty() && name[0] >= 'A' && name[0] <= 'Z')
        name[0] = static_cast<char>(name[0] - 'A' + 'a');
    return isMany ? name + "s" : name;
}

// Notes every name that a class has in the database, with what it is.
class NameBook {
public:
    // What has the name already; "" when nothing has.
    std::string enter(const std::string& name, const std::string& what) {
        const auto [place, isNew] = known.try_emplace(folded(name), what);
        return isNew ? "" : place->second;
    }

private:
    std::map<std::string, std::string> known;
};

}  // namespace

std::string flagOf(const std::string& field) {
    return field + "_is_set";
}

ClassRecord& SchemaRecord::add(const std::type_info& type, const std::type_info& base,
                               Class::Factory factory, bool isDescribed,
                               std::string_view className) {
    if (isSettled)
        fail(nullptr, "",
             "is in use and takes no further class; add it before the first database "
             "is opened");
    ClassRecord& made = classes.emplace_back(*this, type, base, factory, isDescribed);
    made.name = className;
    return made;
}

void SchemaRecord::fail(const ClassRecord* cls, const std::string& field,
                        const std::string& fault) const {
    const std::string subject =
        cls == nullptr ? "The schema " + name
                       : "The class " + cls->name + (field.empty() ? "" : ", field " + field + ",");
    throw Error(ErrorKind::Declaration, "DECLERR", "Kes::schema", subject + " " + fault,
                cls == nullptr ? "" : cls->name, 0, field);
}

ClassRecord* SchemaRecord::find(std::type_index type) {
    const auto found = std::find_if(classes.begin(), classes.end(),
                                    [&](const ClassRecord& each) { return each.type == type; });
    return found != classes.end() ? &*found : nullptr;
}

void SchemaRecord::complete() {
    std::call_once(settled, [this] { join(); });
}

// Called anew after a failure, which leaves nothing behind.
void SchemaRecord::join() {
    for (ClassRecord& cls : classes) {
        cls.super = nullptr;
        cls.references.clear();
    }
    joinOnce();
    isSettled = true;
}

void SchemaRecord::joinOnce() {
    if (name.empty())
        fail(nullptr, "", "has no name; give it one, under which the database remembers it");
    if (version < 1)
        fail(nullptr, "", "has the version " + std::to_string(version) + "; count from 1");
    NameBook names;
    for (const ClassRecord& cls : classes) {
        checkName(cls);
        if (find(cls.type) != &cls)
            fail(&cls, "", "is in the schema " + name + " twice; name it once");
        if (!names.enter(cls.name, "class").empty())
            fail(&cls, "",
                 "has the name of another class of the schema " + name +
                     "; give one of them another name with Description::name");
    }
    for (ClassRecord& cls : classes)
        findSuper(cls);
    for (ClassRecord& cls : classes)
        for (LinkRecord& link : cls.links)
            joinLink(cls, link);
    for (const ClassRecord& cls : classes)
        checkMembers(cls);
}

void SchemaRecord::checkName(const ClassRecord& cls) const {
    if (cls.name.empty() || cls.name.find_first_of("<>(") != std::string::npos)
        fail(&cls, "",
             "has a name that is none for a database; give it one with "
             "Description::name");
}

void SchemaRecord::findSuper(ClassRecord& cls) {
    if (cls.base == typeid(ObjectBase) || cls.base == typeid(Instance))
        return;
    cls.super = find(cls.base);
    if (cls.super == nullptr)
        fail(&cls, "",
             "derives from " + nameOf(cls.base) + ", which is not in the schema " + name +
                 "; add it");
}

void SchemaRecord::joinLink(ClassRecord& cls, LinkRecord& link) {
    ClassRecord* partner = find(link.other);
    if (partner == nullptr)
        fail(&cls, link.name,
             "is linked with the class " + nameOf(link.other) + ", which is not in the schema " +
                 name + "; add it");
    const auto rule = link.isCascading ? Association::CascadeRemove : Association::Unlink;
    const std::string association = cls.name + "_" + link.name;
    const std::string otherName =
        link.otherName.empty() ? nameOfEnd(cls, link.isOtherMany) : link.otherName;
    cls.references.push_back({association, link.name, link.offset, link.isMany, rule});
    partner->references.push_back(
        {association, otherName, link.otherOffset, link.isOtherMany, rule});
}

// Of the class with all that it inherits.
void SchemaRecord::checkMembers(const ClassRecord& cls) const {
    NameBook names;
    std::map<std::size_t, std::string> places;
    names.enter("KesObjectID", "a field of the library's own");
    names.enter("KesVersion", "a field of the library's own");
    const auto enter = [&](const std::string& member, const std::string& what) {
        if (member.empty())
            fail(&cls, "", "has a member without a name; give it one");
        const std::string other = names.enter(member, what);
        if (!other.empty())
            fail(&cls, member,
                 "has the name of " + other +
                     (what == "a link" ? "; give it another one, or name both ends of the link"
                                       : "; give one of the two another name"));
    };
    const auto place = [&](const std::string& member, std::size_t offset) {
        const auto [known, isNew] = places.try_emplace(offset, member);
        if (!isNew)
            fail(&cls, member,
                 "is the member that is described as " + known->second +
                     " as well; describe each member, and each link, once");
    };
    for (const ClassRecord* each = &cls; each != nullptr; each = each->super) {
        for (const FieldRecord& field : each->fields) {
            enter(field.name, "another field");
            place(field.name, field.offset);
            if (field.codec->form == FieldForm::Optional)
                enter(flagOf(field.name), "the mark of the optional field " + field.name);
        }
        for (const ReferenceRecord& reference : each->references) {
            place(reference.role, reference.offset);
            enter(reference.role, "a link");
        }
    }
}

// --- what descriptions call ---

FieldDescription& FieldDescription::unique() {
    cls.fields[position].isUnique = true;
    return *this;
}

FieldDescription& FieldDescription::indexed() {
    cls.fields[position].isIndexed = true;
    return *this;
}

void LinkDescription::setCascading() {
    cls.links[position].isCascading = true;
}

void DescriptionBase::name(std::string_view className) {
    record.name = className;
}

void DescriptionBase::abstract() {
    record.isAbstract = true;
}

FieldDescription DescriptionBase::addField(std::string_view name, const FieldCodec& codec,
                                           MemberPlace place) {
    record.fields.push_back({std::string(name), &codec, place.offset});
    return FieldDescription(record, record.fields.size() - 1);
}

std::size_t DescriptionBase::addLink(std::string_view name, MemberPlace place, bool isMany,
                                     std::string_view otherName, MemberPlace otherPlace,
                                     bool isOtherMany) {
    record.links.push_back({std::string(name), place.offset, isMany, std::string(otherName),
                            otherPlace.owner, otherPlace.offset, isOtherMany});
    return record.links.size() - 1;
}

Schema::Schema(std::string_view name, int version)
    : record(std::make_shared<SchemaRecord>(name, version)) {}

ClassRecord& Schema::addDescribed(const std::type_info& type, const std::type_info& base,
                                  Class::Factory factory) {
    return record->add(type, base, factory, true, nameOf(type));
}

void Schema::addPlain(std::string_view name, const std::type_info& type, const std::type_info& base,
                      Class::Factory factory) {
    record->add(type, base, factory, false, name);
}

}  // namespace Kes
