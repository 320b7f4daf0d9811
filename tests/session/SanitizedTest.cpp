// A program that is built with the address sanitizer finds its drivers with no
// setting, though the library and the drivers are not.

#include <iostream>

#include <kes/Exception.h>

#include "tests/support/StaffModel.h"

// What leaks is looked for by the whole suite's sanitizer builds; here the
// sanitizer may not be allowed to stop the process's threads.
extern "C" const char* __asan_default_options() {
    return "detect_leaks=0";
}

int main() {
    try {
        Kes::testing::StaffModel model;
        model.openWith();
        model.startTransaction();
        model.newPerson("Ann");
        model.commit();
        return model.findPerson("Ann") != nullptr ? 0 : 1;
    } catch (Kes::Exception& error) {
        std::cerr << error.asString() << std::endl;
        return 1;
    }
}
