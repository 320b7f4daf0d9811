#include <kes/Transaction.h>

#include <kes/Class.h>
#include <kes/Database.h>
#include <kes/Error.h>

#include "typed/DescribedClass.h"
#include "typed/Session.h"

namespace Kes {

namespace {

[[noreturn]] void fail(ErrorKind kind, const char* operation, const Instance* object,
                       const std::string& fault) {
    const std::string cls = static_cast<const char*>(object->getClass()->getName());
    throw Error(kind, kind == ErrorKind::Misuse ? "INSTERR" : "REMOVED", operation,
                "The " + cls + " object " + std::to_string(object->getObjectID()) + " " + fault,
                cls, object->getObjectID());
}

// The object is one that the session has.
void requireObject(const Session& session, const Instance* object, const char* operation) {
    if (object == nullptr)
        throw Error(ErrorKind::Misuse, "INSTERR", operation,
                    "The Ref is empty; ask before whether it refers to an object");
    if (object->getClass()->getModel() != &session)
        fail(ErrorKind::Misuse, operation, object,
             "belongs to another database; look for it in the one of the transaction");
}

}  // namespace

Transaction::Transaction(Database& database) : session(database.session) {
    session->begin(this);
}

Transaction::~Transaction() {
    if (over)
        return;
    try {
        rollback();
    } catch (...) {
        // The session is closed, or closes: nothing of it is stored either way.
    }
}

Session& Transaction::open(const char* operation) const {
    if (over)
        throw Error(ErrorKind::Misuse, "TXERR", operation,
                    "The transaction was committed or rolled back; begin another one");
    if (!session->isOpen())
        throw Error(ErrorKind::Misuse, "NOTOPEN", operation,
                    "The database is closed; open another one");
    return *session;
}

Instance* Transaction::makeObject(const std::type_info& type) {
    Session& in = open("Transaction::make");
    Class* cls = in.classOf(type);
    Instance* made = guarded(in, [&] { return cls->newInstance(); });
    in.noteNew(made);
    return made;
}

Instance& Transaction::editObject(Instance* object) {
    Session& in = open("Transaction::edit");
    requireObject(in, object, "Transaction::edit");
    if (object->isRemoved())
        fail(ErrorKind::Removed, "Transaction::edit", object, "was removed; look for another one");
    if (object->getObjectID() == 0)
        fail(ErrorKind::Removed, "Transaction::edit", object,
             "was made by a transaction that was rolled back; make another one");
    in.note(object);
    guarded(in, [&] { object->change(); });
    return *object;
}

void Transaction::removeObject(Instance* object) {
    Session& in = open("Transaction::remove");
    requireObject(in, object, "Transaction::remove");
    if (object->isRemoved())
        return;
    in.note(object);
    guarded(in, [&] { object->remove(); });
}

void Transaction::commit() {
    Session& in = open("Transaction::commit");
    try {
        in.checkValues();
    } catch (...) {
        rollback();
        throw;
    }
    over = true;
    in.end();
    guarded(in, [&] { in.Model::commit(); });
}

void Transaction::rollback() {
    Session& in = open("Transaction::rollback");
    over = true;
    in.end();
    guarded(in, [&] { in.Model::rollback(); });
}

}  // namespace Kes
