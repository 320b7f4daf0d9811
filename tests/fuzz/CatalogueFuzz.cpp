// Catalogues of packages, as the demo reads them: whatever the input, what comes
// out is as promised, once, and so is what is reported.

#include <sstream>
#include <vector>

#include "packages/ControlParser.h"

#include "drivers/common/TextForms.h"
#include "tests/fuzz/Input.h"

using Kes::fuzz::demand;
using packages::PackageRecord;

namespace {

using Texts = std::vector<std::pair<const char*, std::string PackageRecord::*>>;

const Texts& texts() {
    static const Texts all{{"Package", &PackageRecord::name},
                           {"Version", &PackageRecord::version},
                           {"Architecture", &PackageRecord::architecture},
                           {"Maintainer", &PackageRecord::maintainer},
                           {"Section", &PackageRecord::section},
                           {"Priority", &PackageRecord::priority},
                           {"Homepage", &PackageRecord::homepage},
                           {"Description", &PackageRecord::summary},
                           {"SHA256", &PackageRecord::sha256},
                           {"Depends", &PackageRecord::depends},
                           {"Provides", &PackageRecord::provides},
                           {"Status", &PackageRecord::status}};
    return all;
}

void check(const PackageRecord& record) {
    for (const auto& [field, member] : texts()) {
        const std::string& text = record.*member;
        demand(text.find('\0') == std::string::npos, "a NUL in a text");
        demand(text.find('\n') == std::string::npos, "two lines in a text");
        demand(Kes::sql::isValidUtf8(text.data(), text.size()), "no UTF-8: " + text);
    }
    demand(!record.name.empty(), "a package without a name");
    demand(!record.version.empty(), "a package without a version");
    demand(record.sha256.empty() || record.sha256.size() == 64, "a digest of another size");
    demand(record.installedSize >= 0 && record.downloadSize >= 0, "a size below 0");
}

// A text may end in a carriage return of its own.
std::string write(const PackageRecord& record) {
    std::string text;
    for (const auto& [field, member] : texts())
        text += std::string(field) + ": " + record.*member + "\r\n";
    text += "Installed-Size: " + std::to_string(record.installedSize) + "\r\n";
    text += "Size: " + std::to_string(record.downloadSize) + "\r\n";
    return text + "Essential: " + (record.essential ? "yes" : "no") + "\r\n\r\n";
}

struct Result {
    std::vector<PackageRecord> records;
    std::vector<packages::Problem> problems;
};

Result read(const std::string& text) {
    Result found;
    std::istringstream input(text);
    packages::ControlParser parser(input, [&](const packages::Problem& problem) {
        demand(found.problems.empty() || problem.line > found.problems.back().line,
               "a problem that is told twice, or too late");
        demand(!problem.message.empty(), "a problem without words");
        found.problems.push_back(problem);
    });
    PackageRecord record;
    while (parser.next(record)) {
        check(record);
        demand(found.records.empty() || record.line > found.records.back().line,
               "a paragraph that is read twice");
        demand(parser.linesRead() >= record.line, "a paragraph that begins behind what was read");
        found.records.push_back(record);
    }
    return found;
}

bool isBlank(std::string line) {
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line.find_first_not_of(" \t") == std::string::npos;
}

// Each paragraph comes out or is reported, and nothing comes from elsewhere.
void checkParagraphs(const std::string& text, const Result& found) {
    auto record = found.records.begin();
    auto problem = found.problems.begin();
    std::istringstream lines(text);
    long first = 0;
    long number = 0;
    const auto end = [&] {
        const bool isRecord = record != found.records.end() && record->line == first;
        const bool isProblem =
            problem != found.problems.end() && problem->line >= first && problem->line < number;
        demand(isRecord != isProblem, "the paragraph of line " + std::to_string(first) +
                                          (isRecord ? " is read and reported" : " is lost"));
        record += isRecord ? 1 : 0;
        problem += isProblem ? 1 : 0;
        first = 0;
    };
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (first == 0 && !isBlank(line))
            first = number;
        else if (first != 0 && isBlank(line))
            end();
    }
    ++number;
    if (first != 0)
        end();
    demand(record == found.records.end() && problem == found.problems.end(), "more than there is");
}

void demandSame(const std::vector<PackageRecord>& left, const std::vector<PackageRecord>& right,
                const char* what) {
    demand(left.size() == right.size(), what);
    for (std::size_t i = 0; i < left.size(); ++i)
        demand(write(left[i]) == write(right[i]), what);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const Result found = read(text);
    checkParagraphs(text, found);

    // What was read is read again, to the letter.
    std::string written;
    for (const PackageRecord& record : found.records)
        written += write(record);
    const Result again = read(written);
    demand(again.problems.empty(), "what was read is refused");
    demandSame(found.records, again.records, "what was read is read as something else");

    // Whatever stands in front, the next package is found.
    PackageRecord last;
    last.name = "last";
    last.version = "1.0";
    last.downloadSize = 12;
    Result all = read(text + "\n\n" + write(last));
    demand(!all.records.empty(), "the last package is not found");
    demandSame({all.records.back()}, {last}, "the last package is another one");
    demand(all.records.size() + all.problems.size() ==
               found.records.size() + found.problems.size() + 1,
           "the last package is not the only one more");
    return 0;
}
