// Self-checking programs.

#pragma once

#include <kes/Export.h>

namespace Kes {

/// A named test that prints how it fares while it runs.
///
/// Override run() with groups of checks and call start(). A group prints one
/// line, a mark for each check:
///
///     void run() override {
///         startTest("insert");
///         verify(list.size() == 1);
///         verify(list.contains(first));
///         endTest();
///     }
///
/// prints "insert ++ PASSED". All text goes through one function, which is the
/// same for all tests of the process; set it before several threads run tests.
/// A test itself belongs to one thread. There is no virtual destructor: do not
/// delete a test through this class.
class KES_EXPORT Test {
public:
    /// Copies the name; it is cut at 155 bytes. Null stands for "", here and
    /// wherever a text is taken.
    explicit Test(const char* name);

    /// The body.
    virtual void run() = 0;

    /// Runs the body between banners and tells in whole seconds how long it
    /// took. Returns whether it passed: once a check has failed, it never does
    /// again. Only a Kes::Exception is caught.
    bool start();

    /// Runs the body alone. An Exception that leaves it is printed and counts as
    /// a failure; any other passes through.
    void doTest();

    /// Begins a group of checks.
    void startTest(const char* groupName);

    /// Prints "+", or "-" for a check that does not hold.
    void verify(bool condition);

    /// Ends the line of a group with " PASSED" or " FAILED".
    void endTest();

    /// Replaces the function that all text goes through, line ends included;
    /// the first one writes to standard output. Null brings that one back.
    static void setPrintMethod(void (*method)(const char*));

protected:
    void print(const char* s);

    /// The text and an end of line.
    void println(const char* s);

private:
    static void defaultPrint(const char* s);

    char name[156];
    bool current = true;  // whether all checks since the last startTest held
    bool passed = true;   // whether all checks ever held

    static void (*myPrint)(const char*);
};

}  // namespace Kes
