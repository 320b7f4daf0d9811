// Nodes with references of every plurality and rule, all to nodes.

#pragma once

#include <kes/Kes.h>

namespace Kes::testing {

class Node : public Instance {
public:
    explicit Node(Class* c) : Instance(c) {}

    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleString("label", label, 200);
        h->handleInt("rank", rank);
        h->handleOneAssociated("Leading", "boss", &boss, Association::Unlink);
        h->handleManyAssociated("Leading", "team", &team);
        h->handleOneAssociated("Owning", "whole", &whole, Association::CascadeRemove);
        h->handleManyAssociated("Owning", "parts", &parts);
        h->handleOneAssociated("Mating", "mate", &mate, Association::Unlink);
        h->handleOneAssociated("Mating", "mateOf", &mateOf, Association::Unlink);
        h->handleManyAssociated("Liking", "likes", &likes);
        h->handleManyAssociated("Liking", "likedBy", &likedBy);
    }

    String label;
    int rank = 0;
    One<Node> boss{this};
    Many<Node> team{this};
    One<Node> whole{this};
    Many<Node> parts{this};
    One<Node> mate{this};
    One<Node> mateOf{this};
    Many<Node> likes{this};
    Many<Node> likedBy{this};
};

class Leaf : public Node {
public:
    explicit Leaf(Class* c) : Node(c) {}

    void handle(Handler* h) override {
        Node::handle(h);
        h->handleDouble("weight", weight);
        h->handleBlob("data", data);
    }

    double weight = 0;
    Blob data;
};

class GraphModel : public Model {
public:
    explicit GraphModel(int cacheCapacity = 100000) : Model("graph", cacheCapacity) {}

    Node* node(unsigned long id) { return static_cast<Node*>(getInstance(id, nodeClass)); }
    Node* newNode(const char* label = "") {
        auto* made = static_cast<Node*>(nodeClass->newInstance());
        made->label = label;
        return made;
    }
    Leaf* newLeaf(const char* label = "") {
        auto* made = static_cast<Leaf*>(leafClass->newInstance());
        made->label = label;
        return made;
    }

    Class* nodeClass = nullptr;
    Class* leafClass = nullptr;

protected:
    void declareModel() override {
        setVersion(1);
        nodeClass = addClass("Node", 1, [](Class* c) -> Instance* { return new Node(c); });
        leafClass = addClass("Leaf", 1, [](Class* c) -> Instance* { return new Leaf(c); });
        leafClass->subclassOf(nodeClass);
    }
};

}  // namespace Kes::testing
