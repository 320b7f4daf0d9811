// What the library offers before main begins and after it has ended.

#include <gtest/gtest.h>

#include <cstdlib>

#include <kes/Blob.h>
#include <kes/Exception.h>
#include <kes/String.h>
#include <kes/ThreadCheck.h>
#include <kes/Timestamp.h>
#include <kes/ValVector.h>

namespace Kes {
namespace {

bool raisesEarly() {
    try {
        Exception(Exception::ERROR, "EARLY", "context", "message").handle();
    } catch (const Exception&) {
        return true;
    }
    return false;
}

// Built before any name of a day is needed, so destroyed after everything that
// the names' first use builds. A failure shows as the program's exit status.
struct FormatsAtExit {
    ~FormatsAtExit() {
        if (Timestamp(2004, 3, 7, 9, 5, 0).asString("%A") != "Sunday")
            std::_Exit(3);
    }
};
const FormatsAtExit formatsAtExit;

const String name("early");
const String none;
const String constant = String::constant("constant");
const Timestamp moment(2002, 1, 5, 9, 3, 7);
const String text = moment.asString("%A, %d %B %Y %H:%M:%S");
const Blob blob("xyz", 3);
const ValVector<String> parts = String("a,b").split(",");
const bool raised = raisesEarly();

TEST(StaticUseTest, HasTextsAndValuesBeforeMain) {
    EXPECT_EQ(name + none, "early");
    EXPECT_EQ(blob.size(), 3);
    EXPECT_EQ(parts.size(), 2);
}

TEST(StaticUseTest, FormatsTimestampsBeforeMain) {
    EXPECT_EQ(text, "Saterday, 05 Januari 2002 09:03:07");
}

TEST(StaticUseTest, SharesConstantsMadeBeforeMain) {
    EXPECT_EQ(static_cast<const char*>(constant),
              static_cast<const char*>(String::constant("constant")));
}

TEST(StaticUseTest, RaisesErrorsBeforeMain) {
    EXPECT_TRUE(raised);
}

}  // namespace
}  // namespace Kes
