// Items and boxes with links of every plurality, to their own kind and to the
// other.

#pragma once

#include <kes/Kes.h>

namespace Kes::testing {

class Box;

class Item : public Instance {
public:
    explicit Item(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    int plate = 0;  // unique
    int rank = 0;
    One<Item> boss{this};  // Leading
    Many<Item> team{this};
    One<Item> whole{this};  // Owning, which cascades
    Many<Item> parts{this};
    One<Item> mate{this};  // Mating
    One<Item> mateOf{this};
    Many<Item> likes{this};  // Liking
    Many<Item> likedBy{this};
    One<Box> box{this};      // Wrapping
    One<Box> shelf{this};    // Holding
    Many<Box> labels{this};  // Labelling
};

class Box : public Instance {
public:
    explicit Box(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    int plate = 0;  // unique
    int rank = 0;
    One<Item> wrapped{this};
    Many<Item> content{this};
    Many<Item> labelled{this};
};

inline void Item::handle(Handler* h) {
    Instance::handle(h);
    h->handleInt("plate", plate);
    h->handleInt("rank", rank);
    h->handleOneAssociated("Leading", "boss", &boss, Association::Unlink);
    h->handleManyAssociated("Leading", "team", &team);
    h->handleOneAssociated("Owning", "whole", &whole, Association::CascadeRemove);
    h->handleManyAssociated("Owning", "parts", &parts);
    h->handleOneAssociated("Mating", "mate", &mate, Association::Unlink);
    h->handleOneAssociated("Mating", "mateOf", &mateOf, Association::Unlink);
    h->handleManyAssociated("Liking", "likes", &likes);
    h->handleManyAssociated("Liking", "likedBy", &likedBy);
    h->handleOneAssociated("Wrapping", "box", &box, Association::Unlink);
    h->handleOneAssociated("Holding", "shelf", &shelf, Association::Unlink);
    h->handleManyAssociated("Labelling", "labels", &labels);
}

inline void Box::handle(Handler* h) {
    Instance::handle(h);
    h->handleInt("plate", plate);
    h->handleInt("rank", rank);
    h->handleOneAssociated("Wrapping", "wrapped", &wrapped, Association::Unlink);
    h->handleManyAssociated("Holding", "content", &content);
    h->handleManyAssociated("Labelling", "labelled", &labelled);
}

class LinkModel : public Model {
public:
    LinkModel() : Model("links", 100000) {}

    Item* item(unsigned long id) { return static_cast<Item*>(getInstance(id, itemClass)); }
    Box* box(unsigned long id) { return static_cast<Box*>(getInstance(id, boxClass)); }

    Class* itemClass = nullptr;
    Class* boxClass = nullptr;

protected:
    void declareModel() override {
        setVersion(1);
        itemClass = addClass("Item", 1, [](Class* c) -> Instance* { return new Item(c); });
        boxClass = addClass("Box", 1, [](Class* c) -> Instance* { return new Box(c); });
        itemClass->addIndex("plate", true);
        boxClass->addIndex("plate", true);
    }
};

}  // namespace Kes::testing
