#include "tests/crash/StoreModel.h"

#include <vector>

namespace Kes::testing {

namespace {

template <class T>
Instance* make(Class* cls) {
    return new T(cls);
}

bool isFirstSchema(Instance* instance) {
    return static_cast<StoreModel*>(instance->getClass()->getModel())->schema == 1;
}

}  // namespace

void Ware::handle(Handler* h) {
    Instance::handle(h);
    h->handleString("called", called, 40);
    if (isFirstSchema(this)) {
        h->handleInt("code", number);
        h->handleDouble("waste", waste);
    } else {
        h->handleString("code", code, 20);
        h->handleString("note", note, 20);
        h->handleOneAssociated("Offer", "shop", &shop, Association::Unlink);
    }
    h->handleOneAssociated("Origin", "base", &base, Association::Unlink);
    h->handleManyAssociated("Origin", "derived", &derived);
    h->handleManyAssociated("Structure", "parts", &parts);
    h->handleManyAssociated("Structure", "partOf", &partOf);
}

void Shop::handle(Handler* h) {
    Instance::handle(h);
    h->handleString("called", called, 40);
    h->handleManyAssociated("Offer", "wares", &wares);
}

void StoreModel::declareModel() {
    setVersion(schema);
    wareClass = addClass("Ware", schema, make<Ware>);
    wareClass->addIndex("called", true);
    if (schema == 1)
        return;
    wareClass->addIndex("code", false);
    shopClass = addClass("Shop", schema, make<Shop>);
}

void StoreModel::openFile(const std::string& file, const std::string& openOptions) {
    open("sqlite", file.c_str(), "", "", openOptions.c_str());
}

// Each ware is derived from the one before it and has the one after it as part.
void StoreModel::fill() {
    startTransaction();
    Ware* previous = nullptr;
    for (int i = 0; i < Wares; ++i) {
        auto* ware = static_cast<Ware*>(wareClass->newInstance());
        ware->called = String("ware ") + String(i);
        ware->number = i;
        ware->waste = i / 2.0;
        if (previous != nullptr) {
            ware->base = previous;
            previous->parts.add(ware);
        }
        previous = ware;
    }
    commit();
}

std::string StoreModel::findFault() {
    SelectionOf<Ware> all(wareClass);
    all.orderBy(all["KesObjectID"]);
    int count = 0;
    Ware* previous = nullptr;
    for (Ware* ware : all) {
        const std::string words = " of ware " + std::to_string(count);
        if (ware->called != String("ware ") + String(count))
            return "another name" + words;
        if (schema == 1 ? ware->number != count || ware->waste != count / 2.0
                        : ware->code != String(count) || ware->note != "new")
            return "other fields" + words;
        if (ware->base != previous || ware->partOf.size() != (previous != nullptr ? 1 : 0) ||
            ware->parts.size() != (count + 1 < Wares ? 1 : 0))
            return "other links" + words;
        previous = ware;
        ++count;
    }
    return count == Wares ? "" : std::to_string(count) + " wares";
}

}  // namespace Kes::testing
