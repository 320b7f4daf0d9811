// A driver in the same process that has nothing to say.

#pragma once

#include <ostream>

#include <kes/Kes.h>

namespace Kes::testing {

/// Does nothing, successfully; tests override what they are about.
class QuietDriver : public DBDriver {
public:
    bool open(const String&, const String&, const String&, const String&) override { return true; }
    bool close() override { return true; }
    int getVersion(const String&, const String&) override { return 1; }
    void setVersion(const String&, int, const String&) override {}
    bool createClass(Class*) override { return true; }
    bool beginClassUpdate(Class*) override { return true; }
    bool endClassUpdate(Class*) override { return true; }
    bool createView(Class*) override { return true; }
    bool createAssociation(Association*) override { return true; }
    const String& getErrorMessage() override { return message; }
    const DBDriverStatus* getStatus() override { return &status; }
    unsigned long newObjectID() override { return ++lastID; }
    bool commit() override { return true; }
    bool rollback() override { return true; }
    bool addLink(Instance*, const String&, Instance*, const String&, Association*, bool) override {
        return true;
    }
    bool insert(Instance*) override { return true; }
    bool update(Instance*) override { return true; }
    bool removeLink(Instance*, const String&, Instance*, const String&, Association*,
                    bool) override {
        return true;
    }
    bool remove(Instance*) override { return true; }
    bool refresh(Instance*) override { return true; }
    bool lock(Instance*) override { return true; }
    SelectionDefinition* defineSelection(AssociatedClass*) override {
        return new SelectionDefinition;
    }
    DBDriverSelection* fetch(Class*, SelectionDefinition*) override { return new NoRows; }
    void traceSQLTo(std::ostream&) override {}
    void disableSQLTrace() override {}

    String message;
    DBDriverStatus status;

private:
    class NoRows final : public DBDriverSelection {
    public:
        bool next() override { return false; }
        Instance* getInstance() override { return nullptr; }
    };

    unsigned long lastID = 0;
};

/// A model that takes its driver as it is, without loading a library.
template <class M>
class DrivenModel : public M {
public:
    using M::M;

    /// Adopts the driver, which is not opened: parked under no texts, it is what
    /// open finds under them.
    void openWithDriver(DBDriver* adopted) {
        Model::setDriverCacheSize(1);
        M::cacheDriver(adopted);
        M::open("", "", "", "", "");
        Model::setDriverCacheSize(0);
    }
};

}  // namespace Kes::testing
