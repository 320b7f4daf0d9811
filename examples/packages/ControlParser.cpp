#include "packages/ControlParser.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "packages/Text.h"

namespace packages {

namespace {

enum Field : std::size_t {
    Package,
    Version,
    Architecture,
    Maintainer,
    Section,
    Priority,
    Homepage,
    Description,
    Sha256,
    PreDepends,
    Depends,
    Provides,
    Status,
    InstalledSize,
    Size,
    Essential
};

// In the order of Field, in lower case: names are compared without case.
constexpr std::array<std::string_view, 16> fieldNames = {
    "package",  "version",        "architecture", "maintainer",  "section", "priority",
    "homepage", "description",    "sha256",       "pre-depends", "depends", "provides",
    "status",   "installed-size", "size",         "essential",
};

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalsLower(std::string_view text, std::string_view lowerCase) {
    return std::equal(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(),
                      [](char a, char b) { return lower(a) == b; });
}

bool isPackageName(std::string_view name) {
    const auto allowed = [](char c) {
        return (lower(c) >= 'a' && lower(c) <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
               c == '-' || c == '.' || c == '_';
    };
    return !name.empty() && name.size() <= 255 && std::all_of(name.begin(), name.end(), allowed);
}

bool isSha256(std::string_view text) {
    const auto hexadecimal = [](char c) {
        return (c >= '0' && c <= '9') || (lower(c) >= 'a' && lower(c) <= 'f');
    };
    return text.size() == 64 && std::all_of(text.begin(), text.end(), hexadecimal);
}

}  // namespace

ControlParser::ControlParser(std::istream& in, ProblemSink sink)
    : input(in),
      report(std::move(sink)) {
    static_assert(fieldNames.size() == fieldCount);
}

bool ControlParser::next(PackageRecord& record) {
    while (readParagraph()) {
        record = PackageRecord();
        if (!fault)
            finish(record);
        if (!fault)
            return true;

        const std::string& name = values[Package];
        const bool named = isPackageName(name);
        report({fault->line, fault->message + (named ? "; package " + name + " is left out"
                                                     : "; the package is left out")});
    }
    return false;
}

// Leaves the line's end out. What exceeds the limit is read and dropped.
bool ControlParser::readLine() {
    line.clear();
    lineTooLong = false;
    std::streambuf* const bytes = input.rdbuf();
    constexpr int end = std::char_traits<char>::eof();
    int c = bytes->sbumpc();
    if (c == end)
        return false;

    ++lineNumber;
    for (; c != end && c != '\n'; c = bytes->sbumpc()) {
        if (line.size() < maxLength)
            line.push_back(static_cast<char>(c));
        else
            lineTooLong = true;
    }
    lineCut = c == end;
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return true;
}

// False when nothing but blank lines is left.
bool ControlParser::readParagraph() {
    startLine = 0;
    values.fill({});
    lines.fill(0);
    current = none;
    anyField = false;
    fault.reset();
    while (readLine()) {
        const bool blank = !lineTooLong && trimmed(line).empty();
        if (blank && startLine != 0)
            return true;
        if (blank)
            continue;
        if (startLine == 0)
            startLine = lineNumber;
        takeLine();
    }
    return startLine != 0;
}

void ControlParser::takeLine() {
    checkLine();
    // A paragraph that is lost already is read for its name, so that the
    // message can tell which package is missing.
    if (lineTooLong || (fault && fault->line == lineNumber))
        return;
    if (line.front() == '#')
        return;
    if (line.front() == ' ' || line.front() == '\t')
        takeContinuation();
    else
        takeField();
}

void ControlParser::checkLine() {
    if (lineTooLong)
        fail(lineNumber, "the line is longer than 1 MiB");
    else if (lineCut)
        fail(lineNumber, "the input ends in the middle of the line");
    else if (line.find('\0') != std::string::npos)
        fail(lineNumber, "the line contains a NUL byte");
    else if (!isUtf8(line))
        fail(lineNumber, "the line is not valid UTF-8");
}

void ControlParser::takeContinuation() {
    if (!anyField)
        return fail(lineNumber, "a continuation line stands before the first field");
    // Of a description the summary is kept, which is its first line.
    if (current == none || current == Description)
        return;
    std::string& value = values[current];
    if (value.size() + line.size() > maxLength)
        return fail(lineNumber, "the field is longer than 1 MiB");
    if (!value.empty())
        value += ' ';
    value += trimmed(line);
}

void ControlParser::takeField() {
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos || colon == 0)
        return fail(lineNumber, "the line is neither a field nor a continuation");
    anyField = true;
    const std::string_view name = trimmed(std::string_view(line).substr(0, colon));
    const auto known = std::find_if(fieldNames.begin(), fieldNames.end(),
                                    [&](std::string_view k) { return equalsLower(name, k); });
    current = static_cast<std::size_t>(known - fieldNames.begin());
    if (current == none)
        return;
    if (lines[current] != 0)
        return fail(lineNumber, "the field " + std::string(name) + " occurs twice");
    lines[current] = lineNumber;
    values[current] = trimmed(std::string_view(line).substr(colon + 1));
}

void ControlParser::finish(PackageRecord& record) {
    if (values[Package].empty())
        return fail(startLine, "the paragraph has no package name");
    if (!isPackageName(values[Package]))
        return fail(lines[Package], inQuotes(values[Package]) + " is not a package name");
    if (values[Version].empty())
        return fail(startLine, "the paragraph has no version");
    if (!values[Sha256].empty() && !isSha256(values[Sha256]))
        return fail(lines[Sha256], "the checksum is not 64 hexadecimal digits");
    finishNumbers(record);

    record.line = startLine;
    record.name = values[Package];
    record.version = std::move(values[Version]);
    record.architecture = std::move(values[Architecture]);
    record.maintainer = std::move(values[Maintainer]);
    record.section = std::move(values[Section]);
    record.priority = std::move(values[Priority]);
    record.homepage = std::move(values[Homepage]);
    record.summary = std::move(values[Description]);
    record.sha256 = std::move(values[Sha256]);
    record.provides = std::move(values[Provides]);
    record.status = std::move(values[Status]);
    record.essential = values[Essential] == "yes";
    record.depends = std::move(values[PreDepends]);
    if (!record.depends.empty() && !values[Depends].empty())
        record.depends += ", ";
    record.depends += values[Depends];
}

void ControlParser::finishNumbers(PackageRecord& record) {
    record.installedSize = number(InstalledSize);
    record.downloadSize = number(Size);
}

long ControlParser::number(std::size_t field) {
    const std::string& text = values[field];
    if (text.empty())
        return 0;
    long value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || value < 0)
        fail(lines[field], inQuotes(text) + " is not a size");
    return value;
}

// The first fault of a paragraph is the one that counts.
void ControlParser::fail(long atLine, const std::string& message) {
    if (!fault)
        fault = Problem{atLine, message};
}

}  // namespace packages
