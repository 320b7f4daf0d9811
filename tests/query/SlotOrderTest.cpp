// Drivers and applications are built apart from the library and call through
// these tables, so no operation may ever change its place. A pointer to a
// virtual member function holds the operation's offset in the table.

#include <gtest/gtest.h>

#include <cstring>

#include <kes/Kes.h>

namespace Kes::testing {

// The position in the table, counted in entries.
template <class Function>
long slotOf(Function function) {
    std::ptrdiff_t parts[2];
    static_assert(sizeof function == sizeof parts);
    std::memcpy(parts, &function, sizeof parts);
    return (parts[0] - 1) / static_cast<long>(sizeof(void*));
}

// A virtual destructor takes two entries: destroying, and destroying and
// freeing. Where one comes first, the operation of slot n stands at n + 1.
constexpr long AfterDestructor = 1;

TEST(SlotOrderTest, HoldsForDrivers) {
    long slot = 1 + AfterDestructor;
    EXPECT_EQ(slot++, slotOf(&DBDriver::reserved));
    EXPECT_EQ(slot++, slotOf(&DBDriver::open));
    EXPECT_EQ(slot++, slotOf(&DBDriver::close));
    EXPECT_EQ(slot++, slotOf(&DBDriver::getVersion));
    EXPECT_EQ(slot++, slotOf(&DBDriver::setVersion));
    EXPECT_EQ(slot++, slotOf(&DBDriver::createClass));
    EXPECT_EQ(slot++, slotOf(&DBDriver::beginClassUpdate));
    EXPECT_EQ(slot++, slotOf(&DBDriver::endClassUpdate));
    EXPECT_EQ(slot++, slotOf(&DBDriver::createView));
    EXPECT_EQ(slot++, slotOf(&DBDriver::createAssociation));
    EXPECT_EQ(slot++, slotOf(&DBDriver::getErrorMessage));
    EXPECT_EQ(slot++, slotOf(&DBDriver::getStatus));
    EXPECT_EQ(slot++, slotOf(&DBDriver::newObjectID));
    EXPECT_EQ(slot++, slotOf(&DBDriver::commit));
    EXPECT_EQ(slot++, slotOf(&DBDriver::rollback));
    EXPECT_EQ(slot++, slotOf(&DBDriver::addLink));
    EXPECT_EQ(slot++, slotOf(&DBDriver::insert));
    EXPECT_EQ(slot++, slotOf(&DBDriver::update));
    EXPECT_EQ(slot++, slotOf(&DBDriver::removeLink));
    EXPECT_EQ(slot++, slotOf(&DBDriver::remove));
    EXPECT_EQ(slot++, slotOf(&DBDriver::refresh));
    EXPECT_EQ(slot++, slotOf(&DBDriver::lock));
    EXPECT_EQ(slot++, slotOf(&DBDriver::defineSelection));
    EXPECT_EQ(slot++, slotOf(&DBDriver::fetch));
    EXPECT_EQ(slot++, slotOf(&DBDriver::traceSQLTo));
    EXPECT_EQ(slot, slotOf(&DBDriver::disableSQLTrace));
    EXPECT_EQ(26 + AfterDestructor, slot);
}

TEST(SlotOrderTest, HoldsForCursors) {
    EXPECT_EQ(1 + AfterDestructor, slotOf(&DBDriverSelection::next));
    EXPECT_EQ(2 + AfterDestructor, slotOf(&DBDriverSelection::getInstance));
}

template <class T>
void expectHandlerSlots() {
    EXPECT_EQ(1 + AfterDestructor, slotOf(&T::handleULong));
    EXPECT_EQ(2 + AfterDestructor, slotOf(&T::handleLong));
    EXPECT_EQ(3 + AfterDestructor, slotOf(&T::handleString));
    EXPECT_EQ(4 + AfterDestructor, slotOf(&T::handleInt));
    EXPECT_EQ(5 + AfterDestructor, slotOf(&T::handleUInt));
    EXPECT_EQ(6 + AfterDestructor, slotOf(&T::handleBool));
    EXPECT_EQ(7 + AfterDestructor, slotOf(&T::handleFloat));
    EXPECT_EQ(8 + AfterDestructor, slotOf(&T::handleDouble));
    EXPECT_EQ(9 + AfterDestructor, slotOf(&T::handleTimestamp));
    EXPECT_EQ(10 + AfterDestructor, slotOf(&T::handleBlob));
    EXPECT_EQ(11 + AfterDestructor, slotOf(&T::handleOneAssociated));
    EXPECT_EQ(12 + AfterDestructor, slotOf(&T::handleManyAssociated));
}

TEST(SlotOrderTest, HoldsForHandlers) {
    expectHandlerSlots<Handler>();
    expectHandlerSlots<EmptyHandler>();
    expectHandlerSlots<InspectHandler>();
    expectHandlerSlots<SortHandler>();
}

template <class... Arguments>
long translation() {
    return slotOf(
        static_cast<void (ConditionTranslator::*)(Arguments...)>(&ConditionTranslator::translate));
}

TEST(SlotOrderTest, HoldsForTranslators) {
    EXPECT_EQ(1 + AfterDestructor,
              (translation<Condition*, Condition::LogicalOperator, Condition*>()));
    EXPECT_EQ(2 + AfterDestructor,
              (translation<Role*, Condition::AssociationOperator, AssociatedClass*>()));
    EXPECT_EQ(3 + AfterDestructor,
              (translation<Role*, Condition::AssociationOperator, Instance*>()));
    EXPECT_EQ(4 + AfterDestructor, (translation<Attribute*, int, double>()));
    EXPECT_EQ(5 + AfterDestructor, (translation<Attribute*, int, float>()));
    EXPECT_EQ(6 + AfterDestructor, (translation<Attribute*, int, bool>()));
    EXPECT_EQ(7 + AfterDestructor, (translation<Attribute*, int, const Timestamp&>()));
    EXPECT_EQ(8 + AfterDestructor, (translation<Attribute*, int, const String&>()));
    EXPECT_EQ(9 + AfterDestructor, (translation<Attribute*, int, int>()));
    EXPECT_EQ(10 + AfterDestructor, (translation<Attribute*, int, unsigned int>()));
    EXPECT_EQ(11 + AfterDestructor, (translation<Attribute*, int, long>()));
    EXPECT_EQ(12 + AfterDestructor, (translation<Attribute*, int, unsigned long>()));
}

TEST(SlotOrderTest, HoldsForInstances) {
    using Plain = void (Instance::*)();
    EXPECT_EQ(1 + AfterDestructor, slotOf(&Instance::handle));
    EXPECT_EQ(2 + AfterDestructor, slotOf(static_cast<Plain>(&Instance::add)));
    EXPECT_EQ(3 + AfterDestructor, slotOf(&Instance::change));
    EXPECT_EQ(4 + AfterDestructor, slotOf(static_cast<Plain>(&Instance::remove)));
    EXPECT_EQ(5 + AfterDestructor, slotOf(&Instance::refresh));
    EXPECT_EQ(6 + AfterDestructor, slotOf(&Instance::lock));
}

TEST(SlotOrderTest, HoldsForOneReferences) {
    EXPECT_EQ(0, slotOf(&OneAssociatedInstance::setInstance));
    EXPECT_EQ(1, slotOf(&OneAssociatedInstance::getInstance));
    EXPECT_EQ(2, slotOf(&OneAssociatedInstance::setFetched));
}

TEST(SlotOrderTest, HoldsForManyReferences) {
    EXPECT_EQ(0, slotOf(&ManyAssociatedInstances::add));
    EXPECT_EQ(1, slotOf(&ManyAssociatedInstances::remove));
    EXPECT_EQ(2, slotOf(&ManyAssociatedInstances::reset));
    EXPECT_EQ(3, slotOf(&ManyAssociatedInstances::next));
    EXPECT_EQ(4, slotOf(&ManyAssociatedInstances::value));
    EXPECT_EQ(5, slotOf(&ManyAssociatedInstances::contains));
    EXPECT_EQ(6, slotOf(&ManyAssociatedInstances::clear));
    EXPECT_EQ(7, slotOf(static_cast<bool (AssociatedOneForOne::*)(Instance*)>(
                     &AssociatedOneForOne::contains)));
}

TEST(SlotOrderTest, HoldsForConditions) {
    EXPECT_EQ(1 + AfterDestructor, slotOf(&Condition::translate));
    EXPECT_EQ(2 + AfterDestructor, slotOf(&Condition::getNew));
}

TEST(SlotOrderTest, HoldsForPointers) {
    EXPECT_EQ(0, slotOf(&PointerBase::makeNull));
    EXPECT_EQ(1, slotOf(&PointerBase::getInstance));
}

TEST(SlotOrderTest, HoldsForSortValues) {
    EXPECT_EQ(1 + AfterDestructor, slotOf(&SortValueBase::compare));
}

TEST(SlotOrderTest, HoldsForListeners) {
    EXPECT_EQ(0, slotOf(&Listener::instanceAdded));
    EXPECT_EQ(1, slotOf(&Listener::instanceChanged));
    EXPECT_EQ(2, slotOf(&Listener::instanceRemoved));
    EXPECT_EQ(3, slotOf(&Listener::associationAdded));
    EXPECT_EQ(4, slotOf(&Listener::associationRemoved));
}

// Reaches the protected operation.
class OpenModel : public Model {
public:
    static long declareSlot() { return slotOf(&OpenModel::declareModel); }

protected:
    using Model::Model;
};

TEST(SlotOrderTest, HoldsForModels) {
    EXPECT_EQ(1 + AfterDestructor, OpenModel::declareSlot());
}

}  // namespace Kes::testing
