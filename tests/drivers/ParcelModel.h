// A model of three versions, for upgrades.

#pragma once

#include <chrono>
#include <cstring>
#include <string>

#include <kes/Kes.h>

#include "tests/support/Raises.h"

namespace Kes::testing {

// In its first version it has no weight; in its third its text is a number.
class Parcel : public Instance {
public:
    explicit Parcel(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleInt("number", number);
        if (getClass()->getModel()->getVersion() < 3)
            h->handleString("text", text, 10);
        else
            h->handleInt("text", textNumber);
        if (getClass()->getModel()->getVersion() > 1)
            h->handleInt("weight", weight);
    }

    int number = 0;
    String text;
    int textNumber = 0;
    int weight = 7;
};

class ParcelModel : public Model {
public:
    explicit ParcelModel(int itsVersion) : Model("parcels", 100000) { setVersion(itsVersion); }

    // Numbered from 0, each with its number as its text.
    void fill(int parcels) {
        startTransaction();
        for (int i = 0; i < parcels; ++i) {
            auto* parcel = static_cast<Parcel*>(parcelClass->newInstance());
            parcel->number = i;
            parcel->text = std::to_string(i).c_str();
        }
        commit();
    }

    // Makes the text of the parcel 0 longer with each commit; returns its length.
    std::size_t writeFor(std::chrono::seconds time) {
        const auto end = std::chrono::steady_clock::now() + time;
        SelectionOf<Parcel> parcels(parcelClass);
        parcels.where(parcels["number"] == 0);
        const Pointer<Parcel> parcel(parcels.next() ? parcels.value() : nullptr);
        while (std::chrono::steady_clock::now() < end) {
            startTransaction();
            parcel->change();  // first: the stored state may not be readable just now
            parcel->text = (std::string("x") + static_cast<const char*>(parcel->text)).c_str();
            codeRaisedBy([&] { commit(); });
        }
        return std::strlen(parcel->text);
    }

    Class* parcelClass = nullptr;

protected:
    void declareModel() override {
        parcelClass =
            addClass("Parcel", getVersion(), [](Class* c) -> Instance* { return new Parcel(c); });
        parcelClass->addIndex("number", false);
    }
};

}  // namespace Kes::testing
