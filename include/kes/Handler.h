// The field-visitor protocol.
//
// The library never knows an application class's members. It learns and moves
// them by passing a Handler to Instance::handle, which reports every persistent
// field by name and by reference.

#pragma once

#include <kes/Association.h>
#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/String.h>

namespace Kes {

/// Visitor of the persistent fields of one instance.
///
/// Values are passed by reference, so one protocol serves reading (a storing
/// handler) and writing (a loading handler). The order of the virtual
/// operations is a contract with separately built drivers; it never changes.
class KES_EXPORT Handler {
public:
    virtual ~Handler();

    /// One operation for each kind of field, called with the field's name and a
    /// reference to the member. A handler that loads assigns `value`; one that
    /// stores leaves it alone. "KesObjectID" and "KesVersion" come as handleULong.
    virtual void handleULong(const String& name, unsigned long& value) = 0;
    virtual void handleLong(const String& name, long& value) = 0;

    /// `length` is a hint for the storage, in bytes. It never cuts a text.
    virtual void handleString(const String& name, String& value, int length) = 0;
    virtual void handleInt(const String& name, int& value) = 0;
    virtual void handleUInt(const String& name, unsigned int& value) = 0;
    virtual void handleBool(const String& name, bool& value) = 0;
    virtual void handleFloat(const String& name, float& value) = 0;
    virtual void handleDouble(const String& name, double& value) = 0;
    virtual void handleTimestamp(const String& name, Timestamp& value) = 0;
    virtual void handleBlob(const String& name, Blob& value) = 0;

    /// `role` is the role name of the reporting class's own end; `ref` is
    /// borrowed from the reporting instance.
    virtual void handleOneAssociated(const String& association, const String& role,
                                     OneAssociatedInstance* ref,
                                     Association::ConsistencyRule rule) = 0;
    virtual void handleManyAssociated(const String& association, const String& role,
                                      ManyAssociatedInstances* ref) = 0;
};

/// A Handler whose operations do nothing. Derive from it to mind a few kinds
/// of field only.
class KES_EXPORT EmptyHandler : public Handler {
public:
    ~EmptyHandler() override;

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
