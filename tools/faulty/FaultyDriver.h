// A driver that passes every call on to a real one, but for those that a fault
// falls on. What the faults are, somebody else knows: the options that it is
// opened with, as authors of drivers use it, or a test.

#pragma once

#include <memory>
#include <ostream>
#include <string>

#include <kes/DBDriver.h>
#include <kes/EmptiedReferences.h>
#include <kes/Failure.h>

#include "tools/faulty/Faults.h"

namespace Kes::faulty {

/// The text of the last failure that was none of the real driver's; shared with
/// cursors, which may outlive their driver.
struct Report {
    void tell(const std::string& words, FailureKind itsKind) {
        told = true;
        message = words.c_str();
        kind = itsKind;
    }

    bool told = false;  // in the last call
    String message;
    FailureKind kind = FailureKind::None;  // of the last one that was told
};

class FaultyDriver : public DBDriver, public EmptyingDriver {
public:
    FaultyDriver() : FaultyDriver(nullptr) {}
    ~FaultyDriver() override;

    bool open(const String& source, const String& password, const String& user,
              const String& options) override;
    bool close() override;
    int getVersion(const String& name, const String& kind) override;
    void setVersion(const String& name, int version, const String& kind) override;
    bool createClass(Class* cls) override;
    bool beginClassUpdate(Class* cls) override;
    bool endClassUpdate(Class* cls) override;
    bool createView(Class* cls) override;
    bool createAssociation(Association* association) override;
    const String& getErrorMessage() override;
    const DBDriverStatus* getStatus() override;
    unsigned long newObjectID() override;
    bool commit() override;
    bool rollback() override;
    bool addLink(Instance* first, const String& firstRole, Instance* second,
                 const String& secondRole, Association* association, bool linkFlag) override;
    bool insert(Instance* instance) override;
    bool update(Instance* instance) override;
    bool removeLink(Instance* first, const String& firstRole, Instance* second,
                    const String& secondRole, Association* association, bool linkFlag) override;
    bool remove(Instance* instance) override;
    bool refresh(Instance* instance) override;
    bool lock(Instance* instance) override;
    SelectionDefinition* defineSelection(AssociatedClass* associatedClass) override;
    DBDriverSelection* fetch(Class* cls, SelectionDefinition* definition) override;
    void traceSQLTo(std::ostream& stream) override;
    void disableSQLTrace() override;
    bool tellEmptiedTo(EmptiedListener* listener) override;

protected:
    /// With faults that are known before the driver is opened.
    explicit FaultyDriver(std::shared_ptr<Faults> itsFaults);

    /// Makes the real driver, which is then opened with what is put into
    /// `realOptions`, and the faults. False, with the words told, when it cannot be.
    virtual bool prepare(const std::string& source, const std::string& options,
                         String& realOptions);

    /// Notes the words for a failure; false.
    bool refuse(const std::string& words);

    std::unique_ptr<DBDriver> real;  // null before open
    std::shared_ptr<Report> report;

private:
    bool falls(const char* slot, const std::string& details = "");

    template <class Result, class Work>
    Result call(const char* slot, const std::string& details, Result failure, Work work);

    std::shared_ptr<Faults> faults;  // null before open
    DBDriverStatus status;

    // setVersion has no result; its failure shows at the commit.
    bool versionFailed = false;
};

}  // namespace Kes::faulty
