// A driver that passes every call on to a real one, but for those that a fault
// falls on.

#pragma once

#include <memory>
#include <ostream>
#include <string>

#include <kes/DBDriver.h>
#include <kes/EmptiedReferences.h>

#include "tools/faulty/FaultPlan.h"

namespace Kes::faulty {

/// The text of the last failure that was none of the real driver's; shared with
/// cursors, which may outlive their driver.
struct Report {
    bool told = false;
    String message;
};

class FaultyDriver final : public DBDriver, public EmptyingDriver {
public:
    FaultyDriver();
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

private:
    bool prepare(const std::string& options, String& realOptions);
    bool refuse(const std::string& words);
    bool falls(const char* slot, const std::string& details = "");

    template <class Result, class Work>
    Result call(const char* slot, const std::string& details, Result failure, Work work);

    std::unique_ptr<DBDriver> real;   // null before open
    std::shared_ptr<FaultPlan> plan;  // null before open
    std::shared_ptr<Report> report;
    DBDriverStatus status;

    // setVersion has no result; its failure shows at the commit.
    bool versionFailed = false;
};

}  // namespace Kes::faulty
