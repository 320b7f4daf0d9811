#include "packages/ControlParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace packages {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ControlParserTest : public testing::Test {
protected:
    void parse(const std::string& text) {
        std::istringstream input(text);
        ControlParser parser(input, [this](const Problem& problem) {
            messages.push_back(std::to_string(problem.line) + ": " + problem.message);
        });
        for (PackageRecord record; parser.next(record);)
            records.push_back(record);
    }

    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const PackageRecord& record : records)
            found.push_back(record.name);
        return found;
    }

    std::vector<PackageRecord> records;
    std::vector<std::string> messages;
};

TEST_F(ControlParserTest, ReadsEveryField) {
    const std::string checksum(64, 'a');
    parse(
        "Package: bash\n"
        "Status: install ok installed\n"
        "Version: 5.2-1\n"
        "Architecture: amd64\n"
        "Maintainer: Ada <ada@example.org>\n"
        "Section: shells\n"
        "Priority: required\n"
        "Homepage: https://example.org/\n"
        "Installed-Size: 7164\n"
        "Size: 1490000\n"
        "Essential: yes\n"
        "Depends: base-files\n"
        "Pre-Depends: libc6 (>= 2.36)\n"
        "Provides: sh\n"
        "SHA256: " +
        checksum +
        "\n"
        "Description: a shell\n long text\n .\n more\n\n");

    ASSERT_EQ(records.size(), 1U);
    EXPECT_THAT(messages, IsEmpty());
    const PackageRecord& record = records[0];
    EXPECT_EQ(record.line, 1);
    EXPECT_EQ(record.name, "bash");
    EXPECT_EQ(record.status, "install ok installed");
    EXPECT_EQ(record.version, "5.2-1");
    EXPECT_EQ(record.architecture, "amd64");
    EXPECT_EQ(record.maintainer, "Ada <ada@example.org>");
    EXPECT_EQ(record.section, "shells");
    EXPECT_EQ(record.priority, "required");
    EXPECT_EQ(record.homepage, "https://example.org/");
    EXPECT_EQ(record.installedSize, 7164);
    EXPECT_EQ(record.downloadSize, 1490000);
    EXPECT_TRUE(record.essential);
    EXPECT_EQ(record.depends, "libc6 (>= 2.36), base-files");
    EXPECT_EQ(record.provides, "sh");
    EXPECT_EQ(record.sha256, checksum);
    EXPECT_EQ(record.summary, "a shell");
}

TEST_F(ControlParserTest, JoinsContinuationLines) {
    parse("Package: a\nVersion: 1\nDepends: b,\n c,\n\td\n\n");

    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].depends, "b, c, d");
}

TEST_F(ControlParserTest, TakesValuesThatBeginOnAContinuationLine) {
    parse("Package:\n a\nVersion: 1\nDepends:\n b,\n c\nInstalled-Size:\n 5\n\n");

    EXPECT_THAT(messages, IsEmpty());
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].name, "a");
    EXPECT_EQ(records[0].depends, "b, c");
    EXPECT_EQ(records[0].installedSize, 5);
}

TEST_F(ControlParserTest, TakesFieldNamesInAnyCaseAndLinesWithCarriageReturn) {
    parse("PACKAGE: a\r\nvErSiOn: 1\r\n\r\npackage: b\r\nversion: 2\r\n");

    EXPECT_THAT(names(), ElementsAre("a", "b"));
    EXPECT_EQ(records[1].version, "2");
    EXPECT_EQ(records[1].line, 4);
}

TEST_F(ControlParserTest, FindsNothingInAnEmptyInput) {
    parse("\n \n\t\n");

    EXPECT_THAT(records, IsEmpty());
    EXPECT_THAT(messages, IsEmpty());
}

TEST_F(ControlParserTest, LeavesAPackageOutThatIsCutInTheMiddle) {
    parse("Package: a\nVersion: 1\n\nPackage: b\nVersion: 1\nDepends: a, lib");

    EXPECT_THAT(names(), ElementsAre("a"));
    EXPECT_THAT(messages,
                ElementsAre("6: the input ends in the middle of the line; package b is left out"));
}

TEST_F(ControlParserTest, LeavesAPackageOutThatEndsBeforeItsVersion) {
    parse("Package: a\nVersion: 1\n\nPackage: b\n");

    EXPECT_THAT(names(), ElementsAre("a"));
    EXPECT_THAT(messages, ElementsAre("4: the paragraph has no version; package b is left out"));
}

TEST_F(ControlParserTest, LeavesAParagraphOutThatHasNoName) {
    parse("Version: 1\nSection: games\n\nPackage: b\nVersion: 1\n\n");

    EXPECT_THAT(names(), ElementsAre("b"));
    EXPECT_THAT(messages,
                ElementsAre("1: the paragraph has no package name; the package is left out"));
}

TEST_F(ControlParserTest, RefusesANameThatIsNone) {
    parse("Version: 1\nPackage: two words\n\nPackage: b\nVersion: 1\n\n");

    EXPECT_THAT(names(), ElementsAre("b"));
    EXPECT_THAT(messages, ElementsAre("2: \"two words\" is not a package name; "
                                      "the package is left out"));
}

TEST_F(ControlParserTest, DropsALineOfTenMegabytesAndItsPackage) {
    parse("Package: a\nVersion: 1\nDepends: " + std::string(10'000'000, 'x') +
          "\nSection: games\n\nPackage: b\nVersion: 1\n\n");

    EXPECT_THAT(names(), ElementsAre("b"));
    EXPECT_EQ(records[0].line, 6);
    EXPECT_THAT(messages, ElementsAre("3: the line is longer than 1 MiB; package a is left out"));
}

TEST_F(ControlParserTest, DropsAFieldThatGrowsTooLongByContinuation) {
    std::string text = "Package: a\nVersion: 1\nDepends: x\n";
    for (int i = 0; i < 3; ++i)
        text += ' ' + std::string(500'000, 'x') + '\n';
    parse(text + "\nPackage: b\nVersion: 1\n\n");

    EXPECT_THAT(names(), ElementsAre("b"));
    EXPECT_THAT(messages, ElementsAre("6: the field is longer than 1 MiB; package a is left out"));
}

TEST_F(ControlParserTest, LeavesAPackageOutThatIsNotUtf8) {
    parse(
        "Package: a\nMaintainer: Ren\xE9 <r@example.org>\nVersion: 1\n\n"
        "Package: b\nVersion: 1\n\n");

    EXPECT_THAT(names(), ElementsAre("b"));
    EXPECT_THAT(messages, ElementsAre("2: the line is not valid UTF-8; package a is left out"));
}

TEST_F(ControlParserTest, LeavesAPackageOutThatContainsANulByte) {
    parse(std::string("Package: a\nVersion: 1") + '\0' + "2\n\nPackage: b\nVersion: 1\n\n");

    EXPECT_THAT(names(), ElementsAre("b"));
    EXPECT_THAT(messages, ElementsAre("2: the line contains a NUL byte; package a is left out"));
}

TEST_F(ControlParserTest, LeavesAPackageOutWithALineThatIsNoField) {
    parse(
        "Package: a\nnonsense\nVersion: 1\n\n continued\nPackage: b\nVersion: 1\n\n"
        "Package: c\nVersion: 1\n\n");

    EXPECT_THAT(names(), ElementsAre("c"));
    EXPECT_THAT(messages, ElementsAre("2: the line is neither a field nor a continuation; "
                                      "package a is left out",
                                      "5: a continuation line stands before the first field; "
                                      "package b is left out"));
}

TEST_F(ControlParserTest, LeavesAPackageOutWithAFieldThatOccursTwice) {
    parse("Package: a\nVersion: 1\nversion: 2\n\n");

    EXPECT_THAT(records, IsEmpty());
    EXPECT_THAT(messages, ElementsAre("3: the field version occurs twice; package a is left out"));
}

TEST_F(ControlParserTest, RefusesSizesThatAreNone) {
    parse(
        "Package: a\nVersion: 1\nInstalled-Size: big\n\n"
        "Package: b\nVersion: 1\nSize: 99999999999999999999\n\n"
        "Package: c\nVersion: 1\nSize: -1\n\n");

    EXPECT_THAT(records, IsEmpty());
    EXPECT_THAT(messages,
                ElementsAre("3: \"big\" is not a size; package a is left out",
                            "7: \"99999999999999999999\" is not a size; package b is left out",
                            "11: \"-1\" is not a size; package c is left out"));
}

TEST_F(ControlParserTest, RefusesAChecksumThatIsNone) {
    parse("Package: a\nVersion: 1\nSHA256: abc\n\n");

    EXPECT_THAT(records, IsEmpty());
    EXPECT_THAT(messages, ElementsAre("3: the checksum is not 64 hexadecimal digits; "
                                      "package a is left out"));
}

TEST_F(ControlParserTest, ReportsTheFirstFaultOfAParagraphOnly) {
    parse("nonsense\n\xFF\nPackage: a\nmore nonsense\n\n");

    EXPECT_THAT(messages, ElementsAre("1: the line is neither a field nor a continuation; "
                                      "package a is left out"));
}

}  // namespace
}  // namespace packages
