// Queries over a class and its sub classes.

#pragma once

#include <cstdint>
#include <memory>

#include <kes/Attribute.h>
#include <kes/Condition.h>
#include <kes/DBDriver.h>
#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/Pointer.h>
#include <kes/PtrList.h>
#include <kes/PtrVector.h>
#include <kes/Role.h>
#include <kes/String.h>

namespace Kes {

/// One sort key.
class KES_EXPORT SortOrder {
public:
    SortOrder(const Attribute& sortAttribute, bool isAscendingKey)
        : attribute(sortAttribute),
          ascending(isAscendingKey) {}

    const Attribute& getAttribute() const { return attribute; }
    bool isAscending() const { return ascending; }

private:
    Attribute attribute;
    bool ascending;
};

/// A query object: what is sought of one class and all its concrete sub classes.
///
/// Built, then iterated once: `Selection s(cls); s.where(s["age"] > 17);
/// while (s.next()) use(s.value());`. Conditions and sort keys take effect
/// before the first next only. Without sort keys the concrete classes' objects
/// follow one another in the order of Class::getConcreteClasses; with sort keys
/// they are merged.
///
/// A selection reads what is stored. Changes that the current transaction has
/// not committed do not select, though an object in memory is delivered with
/// its pending changes. Rows that a selection under way started with are
/// delivered exactly once, whatever is committed or rolled back meanwhile. They
/// are of one state of the database, also those of several concrete classes; an
/// object that the model has had in a newer state since is delivered in that, or
/// as removed.
///
/// While references of the delivered objects are read, rows are read ahead, so
/// that the references of many are loaded together: up to 256, and at most a
/// quarter of the cache's capacity. A row that fails fails when it is reached.
///
/// It should go before its model does; one that does not ends with an error.
///
/// Copies share every owned pointer: never let two copies be destroyed.
class KES_EXPORT Selection {
public:
    /// `selectedClass` is borrowed and not null.
    explicit Selection(Class* selectedClass);
    Selection(const Selection& other) = default;
    Selection& operator=(const Selection& other) = default;
    virtual ~Selection();

    /// A field of the class, for conditions and orderBy. Not checked here.
    Attribute operator[](const String& name) const;

    /// The class's own role in an association.
    Role operator()(const String& associationName, const String& roleName) const;

    /// As above, with the role found by the class. Raises SELFAIL (ERROR) for
    /// an association of the class with itself, where both roles are its own.
    Role operator()(const String& associationName) const;

    /// Stores a copy of the condition in place of an earlier one, which is
    /// neither freed nor combined: whoever replaces it takes it with
    /// getCondition first. Raises SELERR (ERROR) after the first next, which
    /// changes nothing then.
    Selection& where(const Condition& newCondition);

    /// Adopts the condition; an earlier one is neither freed nor combined.
    void setCondition(Condition* newCondition);
    Condition* getCondition() const { return condition; }

    /// Appends a sort key; the first is the major one. Boolean fields cannot
    /// be keys of a selection over several concrete classes.
    void orderBy(const Attribute& attribute, bool ascending = true);
    PtrList<SortOrder> getSortOrders() const { return sortOrders; }

    /// Delivers `count` objects at most, after the first `offset` ones in the
    /// order of the selection: give it sort keys that leave no ties, or the
    /// database chooses. Takes effect before the first next only.
    Selection& limit(std::uint64_t count, std::uint64_t offset = 0);

    /// In place of going through the selection: how many objects it would
    /// deliver, of one state of the database. Loads none of them where the
    /// driver is a Calculator. Raises as next does; 0 when the handler returns.
    std::uint64_t count();

    const String& getAlias() const { return alias; }
    Class* getClass() const { return cls; }

    /// Advances; true when an instance is available. Raises SELERR (ERROR) with
    /// the driver's words when the query or a row fails, and when the model was
    /// destroyed meanwhile, SORTFAIL (ERROR) for a boolean key. False for ever
    /// after the last row.
    bool next();

    /// The instance delivered last, kept alive by this selection; null before
    /// the first. Borrowed from the model.
    Instance* value() { return currentValue; }

protected:
    /// Raises SELERR (ERROR) where all rows were delivered before.
    void requireRows();

private:
    friend class AssociatedClass;
    friend class DeliveryObserver;
    friend class SelectionAccess;

    Association* findAssociation(const String& associationName) const;
    Instance* read();
    Instance* readRow();
    void readAhead();
    bool deliverAhead();
    bool begin();
    bool start();
    SelectionDefinition* define(Model* model);
    bool countBy(Calculator& calculator, std::uint64_t& number);
    bool tabulateBy(Tabulator& tabulator, const Tabulation& wanted, TableReader& reader);
    bool openCursors();
    bool advanceCurrent();
    bool failOnDriver();
    bool failOnOrphan();
    bool failOnEmptied();
    bool isAtEnd() const;
    bool isOrphaned() const;
    static void fail(const char* operation, const char* reason);

    Class* cls;
    SelectionDefinition* definition = nullptr;     // owned
    PtrVector<DBDriverSelection> cursors{10, 10};  // owned, in concrete-class order
    PtrList<SortOrder> sortOrders;                 // owned
    int current = 0;
    DeliveryObserver* observer = nullptr;  // borrowed; null for the model's
    Pointer<Instance> currentValue;
    Condition* condition = nullptr;  // owned
    Condition* given = nullptr;      // owned; a copy of what a condition has taken
    String alias;
    AssociatedClass* frozen = nullptr;       // owned
    SelectionState* state = nullptr;         // owned; merging and reading ahead
    std::shared_ptr<const bool> modelLives;  // null without a class
    std::uint64_t most = UINT64_MAX;         // rows that are delivered
    std::uint64_t skipped = 0;               // rows before the first one
    bool mergesFlags = false;                // boolean keys are as good as others
};

/// The frozen description of a selection, for drivers and nested conditions.
class KES_EXPORT AssociatedClass {
public:
    /// Takes the selection's condition away from it; the sort orders stay the
    /// selection's.
    explicit AssociatedClass(Selection& selection);
    AssociatedClass(const AssociatedClass& other);

    /// Shares the condition: never let both objects be destroyed.
    AssociatedClass& operator=(const AssociatedClass& other) = default;
    virtual ~AssociatedClass();

    /// Null when the selection had none, and when its model was destroyed.
    Class* getClass() const { return modelLives == nullptr || *modelLives ? cls : nullptr; }
    const String& getAlias() const { return alias; }
    /// Sets the name that the class's rows have in the query, "t" at first. Nested
    /// selections get theirs from ConditionTranslator::getNewAlias.
    void setAlias(const String& newAlias) { alias = newAlias; }

    /// Null when there is none.
    Condition* getCondition() const { return condition; }
    PtrList<SortOrder> getSortOrders() const { return sortOrders; }

private:
    friend class ConditionTree;

    AssociatedClass(const AssociatedClass& other, Condition* itsCondition);

    Class* cls;
    String alias;
    Condition* condition;  // owned
    PtrList<SortOrder> sortOrders;
    std::shared_ptr<const bool> modelLives;  // null without a class
};

}  // namespace Kes
