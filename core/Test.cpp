#include <kes/Test.h>

#include <cstring>
#include <iostream>

#include <kes/Exception.h>
#include <kes/String.h>
#include <kes/Timestamp.h>

namespace Kes {

namespace {

const char* const Banner = "****************************************";

}  // namespace

void (*Test::myPrint)(const char*) = Test::defaultPrint;

Test::Test(const char* itsName) {
    const char* known = itsName != nullptr ? itsName : "";
    const std::size_t length = strnlen(known, sizeof name - 1);
    std::memcpy(name, known, length);
    name[length] = '\0';
}

bool Test::start() {
    const Timestamp begin;
    println(Banner);
    print("START TEST: ");
    println(name);

    doTest();

    if (passed) {
        print("PASSED TEST: ");
        println(name);
    } else {
        print("!!!!! FAILED TEST: ");
        print(name);
        println(" !!!!!!!!");
    }
    const Timestamp end;
    print("Test lasted: ");
    print(String(end - begin));
    println(" seconds");
    println(Banner);
    return passed;
}

void Test::doTest() {
    try {
        run();
    } catch (Exception& error) {
        passed = false;
        println("**** ERROR FOUND ****");
        println(error.asString());
        println("ABORTING TEST");
    }
}

void Test::startTest(const char* groupName) {
    current = true;
    print(groupName);
    print(" ");
}

void Test::verify(bool condition) {
    if (condition) {
        print("+");
    } else {
        passed = false;
        current = false;
        print("-");
    }
}

void Test::endTest() {
    println(current ? " PASSED" : " FAILED");
}

void Test::setPrintMethod(void (*method)(const char*)) {
    myPrint = method != nullptr ? method : defaultPrint;
}

// A stream that is handed a null text stays silent from then on.
void Test::print(const char* s) {
    myPrint(s != nullptr ? s : "");
}

void Test::println(const char* s) {
    print(s);
    print("\n");
}

void Test::defaultPrint(const char* s) {
    // A check that ends the process must not take the marks before it along.
    std::cout << s << std::flush;
}

}  // namespace Kes
