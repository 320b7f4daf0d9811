#include "Shape.h"

#include <stdexcept>

#include <map>

#include <kes/Handler.h>

namespace Kes::check {

namespace {

std::set<std::string> myClassesLeft;

}  // namespace

Shape& Shape::field(const std::string& fieldName, Kind kind) {
    return field(fieldName, kind, plainValue(kind));
}

Shape& Shape::field(const std::string& fieldName, Kind kind, const Value& initial) {
    own.push_back(
        {Member::Field, fieldName.c_str(), kind, 40, initial, String(), Association::Unlink});
    return *this;
}

Shape& Shape::one(const std::string& association, const std::string& role,
                  Association::ConsistencyRule rule) {
    own.push_back({Member::One, role.c_str(), Kind::Int, 0, Value(), association.c_str(), rule});
    return *this;
}

Shape& Shape::many(const std::string& association, const std::string& role) {
    own.push_back({Member::Many, role.c_str(), Kind::Int, 0, Value(), association.c_str(),
                   Association::Unlink});
    return *this;
}

Shape& Shape::index(const std::string& fields, bool isUnique) {
    indexes.emplace_back(fields.c_str(), isUnique);
    return *this;
}

Shape& Shape::withVersion(int schemaVersion) {
    version = schemaVersion;
    return *this;
}

Shape& Shape::asAbstract(bool isAbstractNow) {
    isAbstract = isAbstractNow;
    return *this;
}

Shape& Shape::asShared(bool isSharedNow) {
    isShared = isSharedNow;
    return *this;
}

Object::Object(Class* c, const Shape& itsShape) : Instance(c), shape(itsShape) {
    for (const Member* member : shape.all) {
        if (member->what == Member::Field)
            values.push_back(member->initial);
        else if (member->what == Member::One)
            ones.push_back(std::make_unique<One<Object>>(this));
        else
            manies.push_back(std::make_unique<Many<Object>>(this));
    }
}

void Object::mayThrow() {
    if (patience > 0 && --patience == 0)
        throw std::runtime_error("the object's own handle has failed");
}

void Object::handle(Handler* h) {
    Instance::handle(h);
    mayThrow();
    std::size_t field = 0;
    std::size_t one = 0;
    std::size_t many = 0;
    for (const Member* member : shape.all) {
        const String& called = member->name;
        if (member->what == Member::One) {
            h->handleOneAssociated(member->association, called, ones[one++].get(), member->rule);
            continue;
        }
        if (member->what == Member::Many) {
            h->handleManyAssociated(member->association, called, manies[many++].get());
            continue;
        }
        Value& value = values[field++];
        switch (member->kind) {
        case Kind::ULong: h->handleULong(called, std::get<unsigned long>(value)); break;
        case Kind::Long: h->handleLong(called, std::get<long>(value)); break;
        case Kind::Text: h->handleString(called, std::get<String>(value), member->length); break;
        case Kind::Int: h->handleInt(called, std::get<int>(value)); break;
        case Kind::UInt: h->handleUInt(called, std::get<unsigned int>(value)); break;
        case Kind::Bool: h->handleBool(called, std::get<bool>(value)); break;
        case Kind::Float: h->handleFloat(called, std::get<float>(value)); break;
        case Kind::Double: h->handleDouble(called, std::get<double>(value)); break;
        case Kind::Time: h->handleTimestamp(called, std::get<Timestamp>(value)); break;
        case Kind::Blob: h->handleBlob(called, std::get<Blob>(value)); break;
        }
        mayThrow();
    }
}

// The member's place among the fields, the ones or the manies.
std::size_t Object::position(const std::string& memberName, bool isField) const {
    std::size_t places[3] = {0, 0, 0};
    for (const Member* member : shape.all) {
        const bool isWanted = (member->what == Member::Field) == isField;
        if (isWanted && memberName == static_cast<const char*>(member->name))
            return places[member->what];
        ++places[member->what];
    }
    throw Abandoned("the check itself names \"" + memberName + "\", which " + shape.name +
                    " does not have");
}

namespace {

bool isMany(const Shape& shape, const std::string& role) {
    for (const Member* member : shape.all)
        if (member->what == Member::Many && role == static_cast<const char*>(member->name))
            return true;
    return false;
}

}  // namespace

Value& Object::operator[](const std::string& fieldName) {
    return values[position(fieldName, true)];
}

std::vector<Object*> Object::partners(const std::string& role) {
    const std::size_t place = position(role, false);
    std::vector<Object*> found;
    if (isMany(shape, role)) {
        for (Object* other : *manies[place])
            found.push_back(other);
    } else if (Object* other = ones[place]->get()) {
        found.push_back(other);
    }
    return found;
}

Object* Object::partner(const std::string& role) {
    const std::vector<Object*> found = partners(role);
    return found.empty() ? nullptr : found.front();
}

void Object::link(const std::string& role, Object* other) {
    const std::size_t place = position(role, false);
    if (isMany(shape, role))
        manies[place]->add(other);
    else
        *ones[place] = other;
}

void Object::unlink(const std::string& role, Object* other) {
    const std::size_t place = position(role, false);
    if (isMany(shape, role))
        manies[place]->remove(other);
    else
        *ones[place] = nullptr;
}

void Object::reload(const std::string& role) {
    const std::size_t place = position(role, false);
    if (isMany(shape, role))
        get(*manies[place], true);
    else
        get(*ones[place], true);
}

CheckModel::CheckModel(const Check& check, const std::string& modelName,
                       std::vector<Shape> declared, int schemaVersion, Naming naming, int capacity)
    : Model((modelName + check.config().tag).c_str(), capacity),
      settings(check.config()),
      shapes(std::move(declared)),
      namesAre(naming) {
    setVersion(schemaVersion);
    setMaxUndoSize(0);
    std::map<std::string, const Shape*> known;
    for (Shape& shape : shapes) {
        if (!shape.super.empty())
            shape.all = known.at(shape.super)->all;
        for (Member& member : shape.own) {
            if (member.what != Member::Field)
                member.association = tagged(static_cast<const char*>(member.association)).c_str();
            shape.all.push_back(&member);
        }
        known[shape.name] = &shape;
    }
}

std::string CheckModel::tagged(const std::string& text) const {
    return namesAre == Exact ? text : text + settings.tag;
}

void CheckModel::declareModel() {
    for (const Shape& shape : shapes) {
        Class* cls = addClass(tagged(shape.name).c_str(),
                              shape.version != 0 ? shape.version : Model::getVersion(), make);
        if (cls == nullptr)
            continue;
        cls->setAbstract(shape.isAbstract);
        cls->setShared(shape.isShared);
        if (!shape.super.empty())
            cls->subclassOf((*this)[shape.super]);
        for (const Index& index : shape.indexes)
            cls->addIndex(index.getFields(), index.isUnique());
    }
}

Instance* CheckModel::make(Class* cls) {
    return new Object(cls, static_cast<CheckModel*>(cls->getModel())->shapeOf(cls));
}

const Shape& CheckModel::shapeOf(const Class* cls) const {
    const std::string wanted = static_cast<const char*>(cls->getName());
    for (const Shape& shape : shapes)
        if (tagged(shape.name) == wanted)
            return shape;
    throw Abandoned("no shape is called " + wanted);
}

void CheckModel::open() {
    Model::open(settings.driver.c_str(), settings.source.c_str(), settings.password.c_str(),
                settings.user.c_str(), settings.options.c_str());
    if (!isOpen())
        throw Abandoned("the session could not be opened");
    for (const Shape& shape : shapes)
        if (!shape.isAbstract)
            myClassesLeft.insert(tagged(shape.name));
}

const std::set<std::string>& classesLeft() {
    return myClassesLeft;
}

Class* CheckModel::operator[](const std::string& className) const {
    Class* cls = getClass(tagged(className).c_str());
    if (cls == nullptr)
        throw Abandoned("the check itself names the class " + className +
                        ", which it does not declare");
    return cls;
}

Object* CheckModel::make(const std::string& className) {
    return static_cast<Object*>((*this)[className]->newInstance());
}

Object* CheckModel::find(const std::string& className, unsigned long id) {
    return static_cast<Object*>(getInstance(id, (*this)[className]));
}

Object* CheckModel::get(const std::string& className, unsigned long id) {
    Object* object = find(className, id);
    if (object == nullptr)
        throw Abandoned("the object " + std::to_string(id) + " of the class " + className +
                        " is not to be found");
    return object;
}

std::vector<Pointer<Object>> allOf(Selection& selection) {
    std::vector<Pointer<Object>> found;
    while (selection.next())
        found.emplace_back(static_cast<Object*>(selection.value()));
    return found;
}

std::vector<unsigned long> idsOf(Selection& selection) {
    std::vector<unsigned long> found;
    while (selection.next())
        found.push_back(selection.value()->getObjectID());
    return found;
}

}  // namespace Kes::check
