// The demo's catalogue gives the same report on every driver, byte for byte.

#include <sstream>

#include "packages/Browse.h"
#include "packages/Importer.h"
#include "packages/Report.h"
#include "tests/drivers/DriverTest.h"

namespace packages {
namespace {

// Circles, virtual packages, dependencies that nothing satisfies, and names and
// numbers whose order tells collations apart.
std::string catalogueText() {
    std::string text;
    const char* const names[] = {"alpha",  "Alpha-lib", "a2-tool", "A-tool",   "beta2",
                                 "beta10", "z-ende",    "zz_top",  "lib+plus", "lib.dot"};
    const char* const keepers[] = {"Zo\xC3\xAB <zoe@example.org>", "ada <ada@example.org>",
                                   "Ada <ada@example.org>", "\xE5\xBF\x83 <heart@example.org>"};
    for (int i = 0; i < 120; ++i) {
        const std::string name = names[i % 10] + ("-" + std::to_string(i / 10));
        text += "Package: " + name + "\nVersion: " + std::to_string(i) + ":1.0~rc" +
                std::to_string(i % 7) + "\nMaintainer: " + keepers[i % 4] + "\nSection: " +
                (i % 3 == 0   ? "libs"
                 : i % 3 == 1 ? "games"
                              : "Web") +
                "\nInstalled-Size: " + std::to_string(i * i * 37 % 5000) +
                "\nDepends: " + names[(i * 7 + 3) % 10] + "-" + std::to_string(i % 12) + ", " +
                names[(i * 3) % 10] + "-" + std::to_string((i + 5) % 12) +
                (i % 11 == 0 ? ", nowhere" : "") + "\n" +
                (i % 13 == 0 ? "Provides: virtual-thing\n" : "") +
                (i % 17 == 0 ? "Essential: yes\n" : "") + "\n";
    }
    return text;
}

class PackagesTest : public Kes::testing::DriverTest {
protected:
    PackagesTest() {
        std::istringstream input(catalogueText());
        ControlParser parser(input, [](const Problem&) {});
        Catalogue catalogue;
        for (PackageRecord record; parser.next(record);)
            catalogue.add(record);
        catalogue.resolve([](const Problem&) {});
        std::ostringstream progress;
        importCatalogue(*opened(), catalogue, false, progress, false);
    }

    std::unique_ptr<PackageModel> opened() {
        auto model = std::make_unique<PackageModel>(PackageModel::firstVersion);
        open(*model);
        return model;
    }
};

TEST_F(PackagesTest, GivesTheReportThatEveryDriverGives) {
    std::ostringstream report;

    writeReport(*opened(), report);

    EXPECT_EQ(R"(Objects
         120  Package
           1  VirtualPackage
           4  Maintainer
           3  Section

Maintainers with most packages
          30  Ada <ada@example.org>
          30  Zoë <zoe@example.org>
          30  ada <ada@example.org>
          30  心 <heart@example.org>

Entries that most packages depend on
           4  A-tool-0
           4  A-tool-10
           4  A-tool-2
           4  A-tool-4
           4  A-tool-6
           4  A-tool-8
           4  Alpha-lib-0
           4  Alpha-lib-10
           4  Alpha-lib-2
           4  Alpha-lib-4

Largest by installed size, in KiB
       4,948  a2-tool-10
       4,925  beta10-4
       4,893  A-tool-8
       4,800  alpha-2
       4,700  alpha-9
       4,597  lib.dot-10
       4,573  A-tool-2
       4,477  Alpha-lib-1
       4,472  z-ende-1
       4,468  lib+plus-5

Who maintains A-tool-0
  心 <heart@example.org>
)",
              report.str());
}

TEST_F(PackagesTest, ShowsTheNeedsThatEveryDriverShows) {
    std::ostringstream needs;

    showNeeds(*opened(), "alpha-0", needs);

    EXPECT_TRUE(needs.str().starts_with("A-tool-0\nA-tool-10\nA-tool-2\nA-tool-6\nAlpha-lib-0\n"))
        << needs.str();
    EXPECT_TRUE(needs.str().ends_with("alpha-0 needs 46 entries, 109,884 KiB installed\n"))
        << needs.str();
}

}  // namespace
}  // namespace packages
