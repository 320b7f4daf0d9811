#include "typed/Session.h"

#include <cstring>
#include <map>

#include "typed/DescribedClass.h"
#include "typed/SchemaRecord.h"

namespace Kes {

namespace {

bool isOneOf(const char* code, std::initializer_list<const char*> codes) {
    for (const char* each : codes)
        if (std::strcmp(code, each) == 0)
            return true;
    return false;
}

// What a call was refused for says its code, and what the database has met, the
// model.
ErrorKind kindOf(const Model& model, const char* code) {
    if (isOneOf(code, {"INSTERR", "REFERR", "NOTOPEN", "SELFAIL", "SORTFAIL", "EVENTERR", "MTERR",
                       "FORKERR"}))
        return ErrorKind::Misuse;
    switch (model.getFailureKind()) {
    case FailureKind::Conflict: return ErrorKind::Conflict;
    case FailureKind::UnknownOutcome: return ErrorKind::UnknownOutcome;
    case FailureKind::LostConnection: return ErrorKind::LostConnection;
    default: break;
    }
    if (isOneOf(code, {"DECLERR", "DELCLS", "CRECLS", "CREVW", "CREASS"}))
        return ErrorKind::Schema;
    return ErrorKind::Unclassified;
}

}  // namespace

Error errorOf(const Model& model, const Exception& raised) {
    return Error(kindOf(model, raised.getCode()), raised.getCode(), raised.getContext(),
                 raised.getMessage());
}

Session::Session(std::shared_ptr<SchemaRecord> itsSchema, int cacheCapacity)
    : Model(itsSchema->getName().c_str(), cacheCapacity),
      schema(std::move(itsSchema)) {}

// Each class has the version of the whole: the upgrade of one that has not
// changed keeps all its values.
void Session::declareModel() {
    const int declared = schema->getVersion();
    setVersion(declared);
    std::map<const ClassRecord*, Class*> made;
    for (const ClassRecord& record : schema->getClasses()) {
        Class* cls = record.isDescribed
                         ? new DescribedClass(record, declared, this)
                         : new Class(record.name.c_str(), declared, this, record.factory);
        cls->setAbstract(record.isAbstract);
        made[&record] = addClass(cls);
        byType[record.type] = cls;
    }
    for (const ClassRecord& record : schema->getClasses())
        if (record.super != nullptr)
            made[&record]->subclassOf(made[record.super]);
}

Session& Session::of(const Instance* instance, const char* operation) {
    auto* session = static_cast<Session*>(instance->getClass()->getModel());
    if (session->current == nullptr)
        throw Error(ErrorKind::Misuse, "TXERR", operation,
                    "No transaction is open; change objects, and their links, within one");
    return *session;
}

Class* Session::classOf(const std::type_info& type) const {
    const auto found = byType.find(type);
    if (found == byType.end())
        throw Error(ErrorKind::Declaration, "DECLERR", "Kes::Database",
                    "The class " + nameOf(type) + " is not in the schema " + schema->getName() +
                        "; add it there",
                    nameOf(type), 0);
    return found->second;
}

void Session::begin(Transaction* opened) {
    if (!isOpen())
        throw Error(ErrorKind::Misuse, "NOTOPEN", "Kes::Transaction",
                    "The database is closed; open another one");
    if (current != nullptr)
        throw Error(ErrorKind::Misuse, "TXERR", "Kes::Transaction",
                    "Another transaction of the database is open; end it first");
    guarded(*this, [&] { startTransaction(); });
    changed.clear();
    current = opened;
}

void Session::note(Instance* instance) {
    if (!isPending(instance))
        changed.emplace_back(instance);
}

void Session::noteLink(Instance* owner, Instance* partner) {
    note(owner);
    if (partner != nullptr && partner->getClass() != nullptr &&
        partner->getClass()->getModel() == this)
        note(partner);
}

void Session::checkValues() const {
    for (const Pointer<Instance>& each : changed)
        if (each != nullptr && !each->isRemoved())
            checkFields(each);
}

Instance* Session::refreshChanged() {
    Instance* first = nullptr;
    for (const Pointer<Instance>& each : changed) {
        if (each == nullptr || each->getObjectID() == 0)
            continue;
        const unsigned long before = each->getVersion();
        guarded(*this, [&] { refresh(each); });
        if (first == nullptr && (each->getVersion() != before || each->isRemoved()))
            first = each;
    }
    return first;
}

}  // namespace Kes
