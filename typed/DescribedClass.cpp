#include "typed/DescribedClass.h"

#include <typeinfo>

#include <kes/Error.h>
#include <kes/Object.h>

#include "typed/ReferenceAccess.h"
#include "typed/SchemaRecord.h"

namespace Kes {

namespace {

// On each thread, of the object that is made next.
thread_local Class* myNextClass = nullptr;

}  // namespace

DescribedClass::DescribedClass(const ClassRecord& record, int classVersion, Model* owner)
    : Class(record.name.c_str(), classVersion, owner, record.factory) {
    take(record);
}

// Names last as long as the process, and all threads share them.
void DescribedClass::take(const ClassRecord& record) {
    if (record.super != nullptr && record.super->isDescribed)
        take(*record.super);
    for (const FieldRecord& field : record.fields) {
        const bool hasFlag = field.codec->form == FieldForm::Optional;
        const String flag = hasFlag ? String::constant(flagOf(field.name).c_str()) : String();
        const String called = String::constant(field.name.c_str());
        fields.push_back({called, flag, field.codec, field.offset});
        if (field.isUnique || field.isIndexed)
            addIndex(hasFlag ? flag + "," + called : called, field.isUnique);
    }
    for (const ReferenceRecord& reference : record.references)
        references.push_back({String::constant(reference.association.c_str()),
                              String::constant(reference.role.c_str()), reference.offset,
                              reference.isMany, reference.rule});
}

const DescribedClass* DescribedClass::from(const Class* cls) {
    return cls != nullptr && typeid(*cls) == typeid(DescribedClass)
               ? static_cast<const DescribedClass*>(cls)
               : nullptr;
}

const DescribedClass* DescribedClass::of(const Instance* instance) {
    return from(instance->getClass());
}

ObjectConstruction::ObjectConstruction(Class* cls) : outer(myNextClass) {
    myNextClass = cls;
}

ObjectConstruction::~ObjectConstruction() {
    myNextClass = outer;
}

Class* ObjectConstruction::takeClass() {
    Class* cls = myNextClass;
    myNextClass = nullptr;
    return cls;
}

Instance* ObjectConstruction::complete(Instance* fresh) {
    if (const DescribedClass* cls = DescribedClass::of(fresh))
        for (const DescribedReference& reference : cls->getReferences())
            ReferenceAccess::attach(reference, fresh);
    return fresh;
}

ObjectBase::~ObjectBase() = default;

void ObjectBase::handle(Handler* handler) {
    Instance::handle(handler);
    reportDescribedFields(handler, this);
}

// One without a class is a local variable of the application's, and has no table.
void reportDescribedFields(Handler* handler, Instance* instance) {
    const DescribedClass* cls = DescribedClass::of(instance);
    if (cls == nullptr)
        return;
    for (const DescribedField& field : cls->getFields())
        reportField(*handler, field, instance);
    for (const DescribedReference& reference : cls->getReferences())
        ReferenceAccess::report(*handler, reference, instance);
}

void checkFields(Instance* instance) {
    const DescribedClass* cls = DescribedClass::of(instance);
    if (cls == nullptr)
        return;
    for (const DescribedField& field : cls->getFields()) {
        const std::string fault = reasonToRefuse(*field.codec, field.of(instance));
        if (fault.empty())
            continue;
        const std::string name(static_cast<const char*>(field.name));
        throw Error(ErrorKind::InvalidValue, "VALUEERR", "Transaction::commit",
                    describeField(instance, name) + " " + fault + "; give it another value",
                    static_cast<const char*>(cls->getName()), instance->getObjectID(), name);
    }
}

std::string describeField(const Instance* instance, const std::string& field) {
    return "The field " + field + " of the " +
           static_cast<const char*>(instance->getClass()->getName()) + " object " +
           std::to_string(instance->getObjectID());
}

}  // namespace Kes
