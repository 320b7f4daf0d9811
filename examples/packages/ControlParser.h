// Reads package catalogues: paragraphs of "Field: value" lines, one paragraph
// for each package, as `apt-cache dumpavail` and the dpkg status file have them.

#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <istream>
#include <optional>
#include <string>
#include <string_view>

namespace packages {

/// What the catalogue says of one package. Texts are valid UTF-8 without NUL.
struct PackageRecord {
    long line = 0;  ///< where the paragraph starts, counted from 1
    std::string name;
    std::string version;
    std::string architecture;
    std::string maintainer;  ///< "Name <address>"; empty when absent, here and below
    std::string section;
    std::string priority;
    std::string homepage;
    std::string summary;
    std::string sha256;   ///< 64 hexadecimal digits
    std::string depends;  ///< Pre-Depends and Depends, joined by a comma
    std::string provides;
    std::string status;      ///< of the dpkg status file
    long installedSize = 0;  ///< KiB
    long downloadSize = 0;   ///< bytes
    bool essential = false;
};

/// Something in the input that is not as it should be.
struct Problem {
    long line;
    std::string message;
};

using ProblemSink = std::function<void(const Problem&)>;

/// Reads one package after the other.
///
/// A paragraph with anything wrong in it is left out as a whole and reported
/// once, with the line of the first fault; reading goes on with the next one.
/// Memory is bounded: neither a line nor a value of more than 1 MiB is kept.
class ControlParser {
public:
    /// `input` is borrowed and has to outlive the parser.
    ControlParser(std::istream& input, ProblemSink report);

    /// Fills `record`; false at the end of the input.
    bool next(PackageRecord& record);

    /// The number of lines read so far.
    long linesRead() const { return lineNumber; }

private:
    static constexpr std::size_t maxLength = std::size_t{1} << 20;
    static constexpr std::size_t fieldCount = 16;
    static constexpr std::size_t none = fieldCount;

    bool readLine();
    bool readParagraph();
    void takeLine();
    void takeContinuation();
    void takeField();
    void checkLine();
    void finish(PackageRecord& record);
    void finishNumbers(PackageRecord& record);
    long number(std::size_t field);
    void fail(long atLine, const std::string& message);

    std::istream& input;
    ProblemSink report;
    std::string line;
    long lineNumber = 0;
    bool lineTooLong = false;
    bool lineCut = false;

    // The paragraph under way.
    long startLine = 0;  // 0 before its first line
    std::array<std::string, fieldCount> values;
    std::array<long, fieldCount> lines{};  // where each field stands; 0 while absent
    std::size_t current = none;            // the field that a continuation belongs to
    bool anyField = false;
    std::optional<Problem> fault;
};

}  // namespace packages
