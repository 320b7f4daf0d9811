// All classes by name, for headers that only point to them.

#pragma once

namespace Kes {

class AssociatedClass;
class AssociatedOneForOne;
class Association;
class AssociationEvent;
class Attribute;
class Blob;
class Calculator;
class Class;
class CombinationCondition;
class Condition;
class ConditionTranslator;
class DBDriver;
class DBDriverManager;
class DBDriverSelection;
class Database;
class DeliveryObserver;
class Described;
class DriverCache;
class DriverDoor;
class DummyAssociatedMany;
class EmptiedListener;
class EmptyHandler;
class EmptyingDriver;
class Error;
class Exception;
class FailureReporter;
class FieldSet;
class Handler;
class Index;
class InitAssocHandler;
class InspectHandler;
class Instance;
class InstanceEvent;
class Listener;
class ManyAssociatedCondition;
class ManyAssociatedInstances;
class ManyReference;
class Model;
class ModelEvent;
class Mutex;
class MutexGuard;
class ObjectCache;
class OneAssociatedCondition;
class OneAssociatedInstance;
class OneReference;
class PointerBase;
class PointerRegistry;
class ReferenceLoader;
class Role;
class Schema;
class SchemaReader;
class SchemaRecords;
class Selection;
class SelectionAccess;
class SelectionDefinition;
class SelectionState;
class SortHandler;
class SortOrder;
class SortValueBase;
class StoredKeys;
class String;
class TableReader;
class Tabulator;
class Test;
class ThreadCheck;
class Timestamp;
class Transaction;
class UnitOfWork;
struct DBDriverStatus;
struct StringData;
struct Tabulation;

template <class T>
class AttributeCondition;
template <class T>
class Description;
template <class T>
class Many;
template <class T>
class One;
template <class T>
class Pointer;
template <class T>
class PtrList;
template <class T>
class PtrListNode;
template <class T>
class PtrVector;
template <class T>
class Query;
template <class T>
class Ref;
template <class T>
class SelectionOf;
template <class T>
class ValList;
template <class T>
class ValListNode;
template <class K, class V>
class ValPtrAssoc;
template <class K, class V>
class ValPtrHashtable;
template <class T>
class ValVector;

}  // namespace Kes
