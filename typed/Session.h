// A model of described classes, and the transaction that is open in it.

#pragma once

#include <memory>
#include <string>
#include <typeindex>
#include <unordered_map>
#include <vector>

#include <kes/Database.h>
#include <kes/Error.h>
#include <kes/Exception.h>
#include <kes/Model.h>
#include <kes/Pointer.h>

#include "core/RaisedErrors.h"

namespace Kes {

class SchemaRecord;

/// The same failure as an Error, with the kind that the model knows.
Error errorOf(const Model& model, const Exception& raised);

/// Calls `work`; what the library raises comes out of it as an Error, and no
/// handler hears of it.
template <class Work>
auto guarded(const Model& model, Work&& work) {
    const ErrorSilence silence;
    try {
        return work();
    } catch (const Error&) {
        throw;
    } catch (const Exception& raised) {
        throw errorOf(model, raised);
    }
}

class Session final : public Model {
public:
    Session(std::shared_ptr<SchemaRecord> itsSchema, int cacheCapacity);

    /// That of the object, which a described class has made. Raises Error
    /// (Misuse), with the operation as the context, when no transaction is open.
    static Session& of(const Instance* instance, const char* operation);

    /// Raises Error (Declaration) for a class that is not in the schema.
    Class* classOf(const std::type_info& type) const;

    // --- the transaction ---

    void begin(Transaction* opened);
    bool isOpenIn(const Transaction* transaction) const { return current == transaction; }

    /// The objects that it changes are known until the next one begins.
    void end() { current = nullptr; }

    /// Called before an object or a link is changed for the first time.
    void note(Instance* instance);
    void noteNew(Instance* instance) { changed.emplace_back(instance); }
    void noteLink(Instance* owner, Instance* partner);

    /// Raises Error (InvalidValue) for the first object that cannot be stored.
    void checkValues() const;

    /// Brings what the last transaction has changed up to date. Returns one that
    /// somebody else has changed or removed; null where nobody has.
    Instance* refreshChanged();

protected:
    void declareModel() override;

private:
    std::shared_ptr<SchemaRecord> schema;
    std::unordered_map<std::type_index, Class*> byType;
    Transaction* current = nullptr;  // borrowed; null between transactions
    std::vector<Pointer<Instance>> changed;
};

}  // namespace Kes
