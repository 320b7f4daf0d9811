// Catalogues of packages, as the demo reads them: whatever the input, what comes
// out is as promised, once, and so is what is reported.

#include <sstream>

#include "packages/ControlParser.h"

#include "drivers/common/TextForms.h"
#include "tests/fuzz/Input.h"

using Kes::fuzz::demand;

namespace {

void check(const packages::PackageRecord& record) {
    for (const std::string* text :
         {&record.name, &record.version, &record.architecture, &record.maintainer, &record.section,
          &record.priority, &record.homepage, &record.summary, &record.sha256, &record.depends,
          &record.provides, &record.status}) {
        demand(text->find('\0') == std::string::npos, "a NUL in a text");
        demand(Kes::sql::isValidUtf8(text->data(), text->size()), "no UTF-8: " + *text);
    }
    demand(!record.name.empty(), "a package without a name");
    demand(record.sha256.empty() || record.sha256.size() == 64, "a digest of another size");
    demand(record.installedSize >= 0 && record.downloadSize >= 0, "a size below 0");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::istringstream input(std::string(reinterpret_cast<const char*>(data), size));
    long problemLine = 0;
    packages::ControlParser parser(input, [&](const packages::Problem& problem) {
        demand(problem.line > problemLine, "a problem that is told twice, or too late");
        problemLine = problem.line;
        demand(!problem.message.empty(), "a problem without words");
    });
    long lastLine = 0;
    packages::PackageRecord record;
    while (parser.next(record)) {
        check(record);
        demand(record.line > lastLine, "a paragraph that is read twice");
        lastLine = record.line;
        demand(parser.linesRead() >= record.line, "a paragraph that begins behind what was read");
    }
    return 0;
}
