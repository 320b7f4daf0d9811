// How classes were declared when their storage was made, and for whom.
//
// A version that somebody forgot to raise shows only when a query asks for a
// column that is not there. So the parts of each class's storage are kept beside
// the class's version, in records of the same form, and compared at each open.
// A record is named by its class, a dot and the part; "OWNER" names the model
// that a class or a table of links belongs to, and its version is the one of the
// class whose parts are stored. Where an older library has upgraded the class
// since, the two versions differ and the parts count for nothing.

#pragma once

#include <map>
#include <string>

#include <kes/Forward.h>
#include <kes/String.h>

#include "session/ClassShape.h"

namespace Kes {

class SchemaReader;

class SchemaRecords {
public:
    /// Both are borrowed. Without a driver that keeps records nothing is read,
    /// refused or written.
    SchemaRecords(Model& itsModel, DBDriver& itsDriver);

    /// False when the driver has failed.
    bool read();

    /// Why the model does not fit what was read; empty when it does. `upgrades`
    /// tells that older classes are upgraded next.
    String refusal(bool upgrades) const;

    /// The part of it that holds whatever versions are declared.
    String refusalOfOwner() const;

    /// Tells the driver all that is not stored yet, of the classes that are
    /// stored as they are declared. False when there is nothing to tell.
    bool write();

private:
    struct Record {
        std::string owner;
        int version = 0;  // of the class whose parts these are
        ClassShape parts;
    };

    const Record* find(const String& name) const;
    int storedVersion(const Class* cls) const;
    String refuseOwner(const char* what, const String& name) const;
    String refuseVersion(const Class* cls) const;
    String refuseShape(bool upgrades) const;
    std::string differenceOf(Class* cls) const;
    bool writeOwner(const String& name, int version);
    bool writeClass(Class* cls);

    Model& model;
    DBDriver& driver;
    SchemaReader* reader;  // null when the driver keeps no records
    int storedModel = 0;
    std::map<std::string, int> versions;    // of classes
    std::map<std::string, Record> records;  // of classes and associations
};

}  // namespace Kes
