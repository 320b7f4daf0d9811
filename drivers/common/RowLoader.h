// Filling instances from rows.

#pragma once

#include <string>

#include <kes/Handler.h>

#include "drivers/common/ClassTable.h"

namespace Kes::sql {

/// Assigns the k-th column to the k-th field that an instance reports, and sets
/// its references to unfetched. Throws SqlFailure, with class, field and object
/// named, for a stored value that the field cannot hold.
class RowLoader final : public Handler {
public:
    void load(Row& source, const ClassTable& itsTable, Instance* instance);

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

private:
    template <class T>
    void loadInteger(const String& name, T& value);
    double loadReal(const String& name);
    [[noreturn]] void refuse(const String& name, const char* wanted) const;

    Row* row = nullptr;
    const ClassTable* table = nullptr;
    int column = 0;
};

}  // namespace Kes::sql
