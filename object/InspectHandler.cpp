#include <kes/InspectHandler.h>

#include <iostream>

#include <kes/Blob.h>
#include <kes/Timestamp.h>

namespace Kes {

namespace {

// The blank before the end of line is part of the format.
template <class T>
void writeField(const String& name, const T& value) {
    std::cout << static_cast<const char*>(name) << ":" << value << " " << std::endl;
}

}  // namespace

InspectHandler::InspectHandler() = default;
InspectHandler::InspectHandler(const InspectHandler& other) = default;
InspectHandler& InspectHandler::operator=(const InspectHandler& other) = default;
InspectHandler::~InspectHandler() = default;

void InspectHandler::handleULong(const String& name, unsigned long& value) {
    writeField(name, value);
}

void InspectHandler::handleLong(const String& name, long& value) {
    writeField(name, value);
}

void InspectHandler::handleString(const String& name, String& value, int) {
    writeField(name, static_cast<const char*>(value));
}

void InspectHandler::handleInt(const String& name, int& value) {
    writeField(name, value);
}

void InspectHandler::handleUInt(const String& name, unsigned int& value) {
    writeField(name, value);
}

void InspectHandler::handleBool(const String& name, bool& value) {
    writeField(name, value);
}

void InspectHandler::handleFloat(const String& name, float& value) {
    writeField(name, value);
}

void InspectHandler::handleDouble(const String& name, double& value) {
    writeField(name, value);
}

void InspectHandler::handleTimestamp(const String& name, Timestamp& value) {
    const String text = value.asString("%A, %d %B %Y %H:%M:%S");
    writeField(name, static_cast<const char*>(text));
}

void InspectHandler::handleBlob(const String& name, Blob& value) {
    std::cout << static_cast<const char*>(name) << ":size: " << value.size() << " data: ";
    if (value.size() > 0)
        std::cout.write(static_cast<const char*>(value.data()), value.size());
    std::cout << " " << std::endl;
}

void InspectHandler::handleOneAssociated(const String&, const String&, OneAssociatedInstance*,
                                         Association::ConsistencyRule) {}

void InspectHandler::handleManyAssociated(const String&, const String&, ManyAssociatedInstances*) {}

}  // namespace Kes
