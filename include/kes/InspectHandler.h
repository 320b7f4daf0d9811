// Shows an instance's fields for debugging.

#pragma once

#include <kes/Handler.h>

namespace Kes {

/// Writes one line per field to std::cout: the name, ":", the value, a blank
/// and an end of line (flushed).
///
/// Timestamps are written as "%A, %d %B %Y %H:%M:%S", blobs as "size: ", the
/// byte count, " data: " and the raw bytes. Associations write nothing.
class KES_EXPORT InspectHandler : public Handler {
public:
    InspectHandler();
    InspectHandler(const InspectHandler& other);
    InspectHandler& operator=(const InspectHandler& other);
    ~InspectHandler() override;

    void handleULong(const String& name, unsigned long& value) override;
    void handleLong(const String& name, long& value) override;
    void handleString(const String& name, String& value, int length) override;
    void handleInt(const String& name, int& value) override;
    void handleUInt(const String& name, unsigned int& value) override;
    void handleBool(const String& name, bool& value) override;
    void handleFloat(const String& name, float& value) override;
    void handleDouble(const String& name, double& value) override;
    void handleTimestamp(const String& name, Timestamp& value) override;
    void handleBlob(const String& name, Blob& value) override;
    void handleOneAssociated(const String& association, const String& role,
                             OneAssociatedInstance* ref,
                             Association::ConsistencyRule rule) override;
    void handleManyAssociated(const String& association, const String& role,
                              ManyAssociatedInstances* ref) override;
};

}  // namespace Kes
