// Every class of the library by name.
//
// A header that only points to a class includes this file; who uses the class
// includes the header that is named after it.

#pragma once

namespace Kes {

// Text, errors, collections, locks, time and binary values.
class Blob;
class Exception;
class Mutex;
class MutexGuard;
class String;
class Test;
class ThreadCheck;
class Timestamp;

template <class T>
class PtrList;
template <class T>
class PtrVector;
template <class T>
class ValList;
template <class K, class V>
class ValPtrAssoc;
template <class K, class V>
class ValPtrHashtable;
template <class T>
class ValVector;

// Classes, associations, instances, references, events and pointers.
class AssociatedOneForOne;
class Association;
class AssociationEvent;
class Attribute;
class Class;
class DummyAssociatedMany;
class Handler;
class Index;
class InitAssocHandler;
class InspectHandler;
class Instance;
class InstanceEvent;
class Listener;
class ManyAssociatedInstances;
class ModelEvent;
class OneAssociatedInstance;
class PointerBase;
class Role;

template <class T>
class Pointer;

// Conditions, selections and sorting.
class AssociatedClass;
class CombinationCondition;
class Condition;
class ConditionTranslator;
class ManyAssociatedCondition;
class OneAssociatedCondition;
class Selection;
class SortHandler;
class SortOrder;
class SortValueBase;

template <class T>
class AttributeCondition;

// Models and database drivers.
class DBDriver;
class DBDriverManager;
class DBDriverSelection;
class DriverCache;
class Model;
class SelectionDefinition;

}  // namespace Kes
