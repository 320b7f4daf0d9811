// Models that a test makes up.

#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>

#include <kes/Kes.h>

namespace Kes::testing {

// A class whose fields a test makes up.
class Free : public Instance {
public:
    using Fields = std::function<void(Free&, Handler*)>;

    Free(Class* c, const Fields& report) : Instance(c), fields(report) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        fields(*this, h);
    }

    String text;
    String text2;
    int number = 0;
    long wide = 0;
    double real = 0;
    bool flag = true;
    Timestamp moment;
    One<Free> one{this};
    Many<Free> many{this};
    Many<Free> many2{this};
    Many<Free> many3{this};
    const Fields& fields;
};

class FreeModel : public Model {
public:
    using Declare = std::function<void(FreeModel&)>;

    FreeModel(int schemaVersion, Declare how) : Model("free", 1000), declare(std::move(how)) {
        setVersion(schemaVersion);
    }

    Class* declareClass(const char* called, const Free::Fields& fields, int itsVersion = 0) {
        static std::map<std::pair<const Model*, std::string>, Free::Fields> all;
        Free::Fields& kept = all[{this, called}];
        kept = fields;
        reports()[std::string(called)] = &kept;
        return addClass(
            called, itsVersion == 0 ? getVersion() : itsVersion, [](Class* c) -> Instance* {
                return new Free(c, *static_cast<FreeModel*>(c->getModel())
                                        ->reports()[static_cast<const char*>(c->getName())]);
            });
    }

    Free* make(const char* className) {
        return static_cast<Free*>(getClass(className)->newInstance());
    }

    std::map<std::string, const Free::Fields*>& reports() { return known; }

protected:
    void declareModel() override { declare(*this); }

private:
    Declare declare;
    std::map<std::string, const Free::Fields*> known;
};

inline void textField(Free& object, Handler* h) {
    h->handleString("text", object.text, 20);
}

}  // namespace Kes::testing
