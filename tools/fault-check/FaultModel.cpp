#include "tools/fault-check/FaultModel.h"

namespace Kes::faulty {

long Named::alive = 0;

namespace {

template <class T>
Instance* make(Class* cls) {
    return new T(cls);
}

}  // namespace

const FaultModel& Named::model() const {
    return static_cast<const FaultModel&>(*getClass()->getModel());
}

void Named::handle(Handler* h) {
    Instance::handle(h);
    h->handleString("called", called, 40);
}

void Firm::handle(Handler* h) {
    Named::handle(h);
    if (model().schema > 1)
        h->handleString("town", town, 40);
    h->handleManyAssociated(model().works, "staff", &staff);
}

void Worker::handle(Handler* h) {
    Named::handle(h);
    h->handleInt("age", age);
    if (model().schema == 1)
        h->handleDouble("salary", salary);
    else
        h->handleString("note", note, 200);
    h->handleOneAssociated(model().works, "employer", &employer, Association::Unlink);
    h->handleOneAssociated(model().pairing, "partner", &partner, Association::Unlink);
    h->handleOneAssociated(model().pairing, "partnerOf", &partnerOf, Association::Unlink);
    h->handleManyAssociated(model().friendship, "friends", &friends);
    h->handleManyAssociated(model().friendship, "friendOf", &friendOf);
    h->handleOneAssociated(model().family, "parent", &parent, Association::CascadeRemove);
    h->handleManyAssociated(model().family, "children", &children);
    h->handleManyAssociated(model().property, "things", &things);
    if (model().schema > 1)
        h->handleManyAssociated(model().purchase, "orders", &orders);
}

void Thing::handle(Handler* h) {
    Named::handle(h);
    h->handleInt("year", year);
    h->handleOneAssociated(model().property, "owner", &owner, Association::Unlink);
}

void Tool::handle(Handler* h) {
    Thing::handle(h);
    h->handleULong("serial", serial);
    h->handleLong("balance", balance);
    h->handleUInt("weight", weight);
    h->handleBool("sharp", sharp);
    h->handleFloat("length", length);
    h->handleTimestamp("bought", bought);
    h->handleBlob("picture", picture);
}

void Machine::handle(Handler* h) {
    Thing::handle(h);
    h->handleDouble("power", power);
}

void Order::handle(Handler* h) {
    Named::handle(h);
    h->handleOneAssociated(model().purchase, "buyer", &buyer, Association::Unlink);
}

namespace {

String join(const char* text, const std::string& suffix) {
    return String((text + suffix).c_str());
}

// Enough for any run of the script.
constexpr int CacheCapacity = 1000;

}  // namespace

FaultModel::FaultModel(int itsSchema, const std::string& itsSuffix)
    : Model(join("fault", itsSuffix), CacheCapacity),
      schema(itsSchema),
      works(join("Works", itsSuffix)),
      pairing(join("Pairing", itsSuffix)),
      friendship(join("Friendship", itsSuffix)),
      family(join("Family", itsSuffix)),
      property(join("Property", itsSuffix)),
      purchase(join("Purchase", itsSuffix)),
      suffix(itsSuffix) {}

Class* FaultModel::enter(const char* className, Class::Factory factory) {
    return addClass(join(className, suffix), schema, factory);
}

void FaultModel::declareModel() {
    setVersion(schema);
    firm = enter("Firm", make<Firm>);
    firm->addIndex("called", true);
    worker = enter("Worker", make<Worker>);
    if (schema > 1)
        worker->addIndex("age", false);
    thing = enter("Thing", make<Thing>);
    thing->setAbstract(true);
    tool = enter("Tool", make<Tool>);
    tool->subclassOf(thing);
    machine = enter("Machine", make<Machine>);
    machine->subclassOf(thing);
    if (schema > 1)
        order = enter("Order", make<Order>);
}

}  // namespace Kes::faulty
