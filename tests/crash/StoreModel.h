// A model in two versions, whose upgrade changes every kind of storage.

#pragma once

#include <string>

#include <kes/Kes.h>

namespace Kes::testing {

class Shop;
class Ware;

/// From the first schema to the second: `code` turns from a number into a text,
/// `waste` goes, `note` comes, and so does the association with shops.
class Ware : public Instance {
public:
    explicit Ware(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    String called;
    int number = 0;      // "code" in the first schema
    String code;         // "code" in the second
    double waste = 0;    // in the first schema
    String note{"new"};  // in the second
    One<Ware> base{this};
    Many<Ware> derived{this};
    Many<Ware> parts{this};
    Many<Ware> partOf{this};
    One<Shop> shop{this};  // in the second schema
};

/// Exists from the second schema on.
class Shop : public Instance {
public:
    explicit Shop(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    String called;
    Many<Ware> wares{this};
};

class StoreModel : public Model {
public:
    static constexpr int Wares = 300;

    explicit StoreModel(int itsSchema) : Model("store", 10000), schema(itsSchema) {}

    void openFile(const std::string& file, const std::string& openOptions = "");

    /// Stores the wares of the first schema.
    void fill();

    /// What is wrong with the stored wares, "" when they are all there.
    std::string findFault();

    Class* wareClass = nullptr;
    Class* shopClass = nullptr;
    const int schema;

protected:
    void declareModel() override;
};

}  // namespace Kes::testing
