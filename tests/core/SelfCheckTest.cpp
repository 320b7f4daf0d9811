#include <kes/Test.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <kes/Exception.h>

#include "tests/support/Raises.h"

namespace Kes {
namespace {

using testing::ReturningHandler;

const std::string stars(40, '*');
const std::string lasted = "lasted: ";

// A test whose body is the caller's; `print` and `println` come to the front.
class Check : public Kes::Test {
public:
    using Body = void (*)(Check&);

    explicit Check(Body itsBody, const char* itsName = "sample")
        : Kes::Test(itsName),
          body(itsBody) {}

    void run() override { body(*this); }

    using Kes::Test::print;
    using Kes::Test::println;

private:
    Body body;
};

void raise(Exception::Severity severity) {
    Exception(severity, "CODE", "Class::operation", "What happened").handle();
}

// Collects what tests print, and puts the first print function back.
class SelfCheckTest : public ::testing::Test {
protected:
    SelfCheckTest() {
        printed.clear();
        calls = 0;
        Kes::Test::setPrintMethod(collect);
    }
    ~SelfCheckTest() override { Kes::Test::setPrintMethod(toStandardOutput); }

    // What the body prints, without banners.
    static std::string printedBy(Check::Body body) {
        Check(body).doTest();
        return printed;
    }

    // What a whole test prints, the number of seconds replaced by N.
    static std::string printedByAll(Check& check) {
        check.start();
        std::string text = printed;
        for (std::size_t at = text.find(lasted); at != std::string::npos;
             at = text.find(lasted, at + lasted.size())) {
            const std::size_t number = at + lasted.size();
            const std::size_t end = text.find_first_not_of("0123456789", number);
            if (end != number)
                text.replace(number, end - number, "N");
        }
        return text;
    }

    // The numbers of seconds that were printed.
    static std::vector<int> secondsPrinted() {
        std::vector<int> all;
        for (std::size_t at = printed.find(lasted); at != std::string::npos;
             at = printed.find(lasted, at + 1))
            all.push_back(std::stoi(printed.substr(at + lasted.size())));
        return all;
    }

    static std::string printed;
    static int calls;

private:
    static void collect(const char* s) {
        printed += s;
        ++calls;
    }
    static void toStandardOutput(const char* s) { std::fputs(s, stdout); }
};

std::string SelfCheckTest::printed;
int SelfCheckTest::calls = 0;

TEST_F(SelfCheckTest, PassesWithoutAnyCheck) {
    Check check([](Check&) {});

    EXPECT_TRUE(check.start());
}

TEST_F(SelfCheckTest, PrintsItsNameBetweenBanners) {
    Check check([](Check& c) { c.println("body"); });

    EXPECT_EQ(printedByAll(check), stars +
                                       "\n"
                                       "START TEST: sample\n"
                                       "body\n"
                                       "PASSED TEST: sample\n"
                                       "Test lasted: N seconds\n" +
                                       stars + "\n");
}

TEST_F(SelfCheckTest, SaysAtTheEndThatItFailed) {
    Check check([](Check& c) { c.verify(false); });

    EXPECT_EQ(printedByAll(check), stars +
                                       "\n"
                                       "START TEST: sample\n"
                                       "-"
                                       "!!!!! FAILED TEST: sample !!!!!!!!\n"
                                       "Test lasted: N seconds\n" +
                                       stars + "\n");
}

TEST_F(SelfCheckTest, CountsTheSecondsThatItLasts) {
    Check quick([](Check&) {});
    Check slow([](Check&) { std::this_thread::sleep_for(std::chrono::milliseconds(1100)); });

    quick.start();
    slow.start();

    const std::vector<int> seconds = secondsPrinted();
    ASSERT_EQ(seconds.size(), 2U) << printed;
    EXPECT_LE(seconds[0], 1) << printed;
    EXPECT_GE(seconds[1], 1) << printed;
    EXPECT_LE(seconds[1], 3) << printed;
}

TEST_F(SelfCheckTest, PrintsAMarkForEachCheck) {
    EXPECT_EQ(printedBy([](Check& c) {
                  c.startTest("insert");
                  c.verify(true);
                  c.verify(true);
                  c.verify(false);
                  c.verify(true);
                  c.endTest();
              }),
              "insert ++-+ FAILED\n");
}

TEST_F(SelfCheckTest, PassesAGroupWhoseChecksAllHold) {
    EXPECT_EQ(printedBy([](Check& c) {
                  c.startTest("insert");
                  c.verify(true);
                  c.endTest();
                  c.startTest("nothing");
                  c.endTest();
              }),
              "insert + PASSED\nnothing  PASSED\n");
}

TEST_F(SelfCheckTest, ForgetsAFailureInTheNextGroup) {
    EXPECT_EQ(printedBy([](Check& c) {
                  c.startTest("first");
                  c.verify(false);
                  c.endTest();
                  c.startTest("second");
                  c.verify(true);
                  c.endTest();
              }),
              "first - FAILED\nsecond + PASSED\n");
}

TEST_F(SelfCheckTest, FailsForOneCheckInAnyGroup) {
    Check check([](Check& c) {
        c.startTest("first");
        c.verify(false);
        c.endTest();
        c.startTest("second");
        c.verify(true);
        c.endTest();
    });

    EXPECT_FALSE(check.start());
    EXPECT_NE(printed.find("second + PASSED\n!!!!! FAILED TEST: sample !!!!!!!!\n"),
              std::string::npos);
}

TEST_F(SelfCheckTest, FailsOnceItHasFailed) {
    static bool holds = false;
    Check check([](Check& c) { c.verify(holds); });

    EXPECT_FALSE(check.start());
    holds = true;
    EXPECT_FALSE(check.start());
}

TEST_F(SelfCheckTest, FailsWhenAnErrorLeavesItsBody) {
    Check check([](Check& c) {
        c.startTest("insert");
        c.verify(true);
        c.endTest();
        raise(Exception::ERROR);
        c.println("not reached");
    });

    EXPECT_EQ(printedByAll(check), stars +
                                       "\n"
                                       "START TEST: sample\n"
                                       "insert + PASSED\n"
                                       "**** ERROR FOUND ****\n"
                                       "ERROR IN Class::operation [CODE] What happened\n"
                                       "ABORTING TEST\n"
                                       "!!!!! FAILED TEST: sample !!!!!!!!\n"
                                       "Test lasted: N seconds\n" +
                                       stars + "\n");
    EXPECT_FALSE(check.start());
}

TEST_F(SelfCheckTest, GoesOnWhenTheHandlerReturns) {
    const ReturningHandler handler;
    Check check([](Check& c) {
        raise(Exception::FATAL);
        c.verify(true);
    });

    EXPECT_TRUE(check.start());
    EXPECT_EQ(printed.find("ERROR FOUND"), std::string::npos);
}

TEST_F(SelfCheckTest, LetsOtherExceptionsPass) {
    Check check([](Check&) { throw std::runtime_error("other"); });

    EXPECT_THROW(check.start(), std::runtime_error);
    EXPECT_EQ(printed, stars + "\nSTART TEST: sample\n");
}

TEST_F(SelfCheckTest, PrintsTextsWithAndWithoutAnEndOfLine) {
    Check check([](Check&) {});

    check.print("a");
    check.println("b");
    check.print("c");

    EXPECT_EQ(printed, "ab\nc");
    EXPECT_EQ(calls, 4);
}

TEST_F(SelfCheckTest, KeepsACopyOfItsName) {
    char source[] = "sample";
    Check check([](Check&) {}, source);

    source[0] = 'x';

    check.start();
    EXPECT_NE(printed.find("START TEST: sample\n"), std::string::npos);
}

TEST_F(SelfCheckTest, CutsItsNameAt155Bytes) {
    for (const std::size_t size : {154u, 155u, 156u, 5000u}) {
        printed.clear();
        Check check([](Check&) {}, std::string(size, 'n').c_str());

        check.start();

        const std::string shown(size < 155 ? size : 155, 'n');
        EXPECT_NE(printed.find("START TEST: " + shown + "\n"), std::string::npos) << size;
    }
}

TEST_F(SelfCheckTest, HoldsItsNameInItself) {
    EXPECT_EQ(sizeof(Kes::Test), sizeof(void*) + 160);
}

TEST_F(SelfCheckTest, NeedsABodyAndHasNoVirtualDestructor) {
    EXPECT_TRUE(std::is_abstract_v<Kes::Test>);
    EXPECT_FALSE(std::has_virtual_destructor_v<Kes::Test>);
}

TEST_F(SelfCheckTest, TakesANullTextForAnEmptyOne) {
    class Named : public Kes::Test {
    public:
        Named() : Test(nullptr) {}
        void run() override {
            startTest(nullptr);
            print(nullptr);
            println(nullptr);
            verify(true);
            endTest();
        }
    };

    Named().start();

    EXPECT_NE(printed.find("START TEST: \n \n+ PASSED\n"), std::string::npos) << printed;
}

}  // namespace
}  // namespace Kes
