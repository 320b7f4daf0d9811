// The one door to the driver, once the model is open.
//
// What was read ahead stands for what would be read now only until the
// application talks to the database in some other way, or crosses a border of a
// transaction: it may learn of a newer state there. So there are two ways
// through. Who asks for the application takes ask(), which ends the validity of
// all that was read ahead; who goes on with what was asked before, writes what a
// commit writes, or asks for a reference takes enter(). A new operation cannot
// forget to decide.
//
// While a driver works it fills instances and asks the model for others; the
// partners that references give up meanwhile are noted here.

#pragma once

#include <utility>

#include <kes/DBDriver.h>
#include <kes/Model.h>

#include "object/DroppedPartners.h"
#include "query/DeliveryObserver.h"

namespace Kes {

class DriverDoor {
public:
    /// The model is borrowed for life.
    explicit DriverDoor(const Model* itsModel) : model(itsModel) {}
    DriverDoor(const DriverDoor&) = delete;
    DriverDoor& operator=(const DriverDoor&) = delete;

    /// A call of the driver. While it lives, the driver asks and not the
    /// application.
    class Passage {
    public:
        explicit Passage(DriverDoor& itsDoor)
            : door(itsDoor),
              outer(DroppedPartners::recordIn(&door.dropped)) {
            ++door.calls;
        }
        Passage(const Passage&) = delete;
        Passage& operator=(const Passage&) = delete;
        ~Passage() {
            DroppedPartners::recordIn(outer);
            if (--door.calls == 0)
                door.dropped.clear();
        }

        /// The model is open.
        DBDriver* operator->() const { return door.model->getDriver(); }

    private:
        DriverDoor& door;
        DroppedPartners* outer;
    };

    /// For the application, which may be shown a newer state.
    Passage ask() {
        end();
        return Passage(*this);
    }

    /// For what was asked for before.
    Passage enter() { return Passage(*this); }

    /// A border of a transaction, or what is read is to be read anew.
    void end() { observer->asked(); }

    bool isEntered() const { return calls > 0; }

    /// An optional part of the driver; null where it lacks it, or while closed.
    template <class Interface>
    Interface* find() const {
        return dynamic_cast<Interface*>(model->getDriver());
    }

    /// While it lives, the driver fills an object that is none of the model's.
    class Scratch {
    public:
        Scratch(DriverDoor& itsDoor, const Instance* filled)
            : door(itsDoor),
              outer(std::exchange(itsDoor.scratch, filled)) {}
        Scratch(const Scratch&) = delete;
        Scratch& operator=(const Scratch&) = delete;
        ~Scratch() { door.scratch = outer; }

    private:
        DriverDoor& door;
        const Instance* outer;
    };
    bool isScratch(const Instance* instance) const { return instance == scratch; }

    /// The application's observer, borrowed for life.
    void setObserver(DeliveryObserver* told) { observer = told; }

    /// Given up by references within the calls under way.
    DroppedPartners dropped;

private:
    const Model* model;
    DeliveryObserver* observer = nullptr;
    const Instance* scratch = nullptr;
    int calls = 0;  // within each other
};

}  // namespace Kes
