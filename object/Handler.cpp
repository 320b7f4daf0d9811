#include <kes/Handler.h>

#include <kes/InitAssocHandler.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/OneAssociatedInstance.h>

namespace Kes {

Handler::~Handler() = default;

EmptyHandler::~EmptyHandler() = default;
void EmptyHandler::handleULong(const String&, unsigned long&) {}
void EmptyHandler::handleLong(const String&, long&) {}
void EmptyHandler::handleString(const String&, String&, int) {}
void EmptyHandler::handleInt(const String&, int&) {}
void EmptyHandler::handleUInt(const String&, unsigned int&) {}
void EmptyHandler::handleBool(const String&, bool&) {}
void EmptyHandler::handleFloat(const String&, float&) {}
void EmptyHandler::handleDouble(const String&, double&) {}
void EmptyHandler::handleTimestamp(const String&, Timestamp&) {}
void EmptyHandler::handleBlob(const String&, Blob&) {}
void EmptyHandler::handleOneAssociated(const String&, const String&, OneAssociatedInstance*,
                                       Association::ConsistencyRule) {}
void EmptyHandler::handleManyAssociated(const String&, const String&, ManyAssociatedInstances*) {}

InitAssocHandler::InitAssocHandler() = default;
InitAssocHandler::InitAssocHandler(const InitAssocHandler& other) = default;
InitAssocHandler& InitAssocHandler::operator=(const InitAssocHandler& other) = default;
InitAssocHandler::~InitAssocHandler() = default;

void InitAssocHandler::handleOneAssociated(const String&, const String&, OneAssociatedInstance* ref,
                                           Association::ConsistencyRule) {
    ref->setFetched(true);
}

void InitAssocHandler::handleManyAssociated(const String&, const String&,
                                            ManyAssociatedInstances* ref) {
    ref->setFetched(true);
}

}  // namespace Kes
