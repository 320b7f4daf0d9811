// One class, or a few, in the versions that its declaration goes through.

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Shape.h"

namespace Kes::check {

class Upgrade {
public:
    /// `label` names the model and, with what follows, its classes.
    Upgrade(Check& runs, std::string label);

    /// "Up" and the label.
    const std::string& className() const { return name; }

    /// Closes the session and opens one with another declaration, which
    /// synchronises the schema when the version is higher.
    CheckModel& open(int version, std::vector<Shape> shapes);

    /// As open, for a declaration that cannot come to be. What was raised has
    /// to be an error of the synchronisation that names all `names`; afterwards
    /// no session is open.
    Raised refuse(int version, std::vector<Shape> shapes, const std::vector<std::string>& names);

    CheckModel& model() { return *current; }

    /// Stores one object of the class for each value of the field.
    std::vector<unsigned long> store(const std::string& cls, const std::string& field,
                                     const std::vector<Value>& values);

    /// Looks whether the objects are there and hold the values.
    void verify(const std::string& cls, const std::string& field,
                const std::vector<unsigned long>& ids, const std::vector<Value>& values);

    /// Looks how many objects of the class there are, sub classes included.
    void verifyCount(const std::string& cls, std::size_t wanted);

    Check& check;

private:
    std::string name;
    std::unique_ptr<CheckModel> current;
};

}  // namespace Kes::check
