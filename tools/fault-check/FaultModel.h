// The model of the script: every field kind, every kind of association, an
// abstract class, and two versions of the schema.

#pragma once

#include <string>

#include <kes/Kes.h>

namespace Kes::faulty {

class FaultModel;
class Order;
class Thing;
class Worker;

/// Counts the objects that are alive, and gives each a name to be known by.
class Named : public Instance {
public:
    explicit Named(Class* c) : Instance(c) { ++alive; }
    Named(const Named&) = delete;
    Named& operator=(const Named&) = delete;
    ~Named() override { --alive; }
    void handle(Handler* h) override;

    String called;

    static long alive;

protected:
    const FaultModel& model() const;
};

class Firm final : public Named {
public:
    explicit Firm(Class* c) : Named(c) {}
    void handle(Handler* h) override;

    String town{"nowhere"};  // from the second schema on
    Many<Worker> staff{this};
};

class Worker final : public Named {
public:
    explicit Worker(Class* c) : Named(c) {}
    void handle(Handler* h) override;

    int age = 0;
    double salary = 0;  // in the first schema only
    String note;        // from the second schema on
    One<Firm> employer{this};
    One<Worker> partner{this};
    One<Worker> partnerOf{this};
    Many<Worker> friends{this};
    Many<Worker> friendOf{this};
    One<Worker> parent{this};
    Many<Worker> children{this};
    Many<Thing> things{this};
    Many<Order> orders{this};  // from the second schema on
};

/// Abstract.
class Thing : public Named {
public:
    explicit Thing(Class* c) : Named(c) {}
    void handle(Handler* h) override;

    int year = 0;
    One<Worker> owner{this};
};

class Tool final : public Thing {
public:
    explicit Tool(Class* c) : Thing(c) {}
    void handle(Handler* h) override;

    unsigned long serial = 0;
    long balance = 0;
    unsigned int weight = 0;
    bool sharp = false;
    float length = 0;
    Timestamp bought{2000, 1, 1, 0, 0, 0};
    Blob picture;
};

class Machine final : public Thing {
public:
    explicit Machine(Class* c) : Thing(c) {}
    void handle(Handler* h) override;

    double power = 0;
};

/// From the second schema on.
class Order final : public Named {
public:
    explicit Order(Class* c) : Named(c) {}
    void handle(Handler* h) override;

    One<Worker> buyer{this};
};

class FaultModel final : public Model {
public:
    /// `schema` is 1 or 2. `suffix` ends the name of everything that is stored,
    /// so that runs in one database keep apart.
    FaultModel(int itsSchema, const std::string& itsSuffix);

    Class* firm = nullptr;
    Class* worker = nullptr;
    Class* thing = nullptr;
    Class* tool = nullptr;
    Class* machine = nullptr;
    Class* order = nullptr;  // null in the first schema

    const int schema;

    // Names of associations.
    const String works;
    const String pairing;
    const String friendship;
    const String family;
    const String property;
    const String purchase;

protected:
    void declareModel() override;

private:
    Class* enter(const char* className, Class::Factory factory);

    const std::string suffix;
};

}  // namespace Kes::faulty
