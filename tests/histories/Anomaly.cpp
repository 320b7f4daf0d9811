#include "tests/histories/Anomaly.h"

#include <algorithm>
#include <cstdlib>
#include <ostream>

namespace Kes::testing {

const char* nameOf(Anomaly anomaly) {
    switch (anomaly) {
    case Anomaly::LostCommit: return "lost commit";
    case Anomaly::StoredRefusal: return "stored refusal";
    case Anomaly::DirtyRead: return "dirty read";
    case Anomaly::IntermediateRead: return "intermediate read";
    case Anomaly::LostUpdate: return "lost update";
    case Anomaly::CircularFlow: return "circular flow";
    case Anomaly::TornSelection: return "torn selection";
    case Anomaly::StaleRead: return "stale read";
    case Anomaly::BrokenLink: return "broken link";
    case Anomaly::ReadSkew: return "read skew";
    case Anomaly::WriteSkew: return "write skew";
    }
    return "";
}

bool Level::permits(Anomaly anomaly) const {
    return std::find(permitted.begin(), permitted.end(), anomaly) != permitted.end();
}

void PrintTo(const Level& level, std::ostream* stream) {
    *stream << level.engine << " " << level.option;
}

std::vector<Level> levelsOf(const std::string& engine) {
    const std::vector<Anomaly> skews{Anomaly::ReadSkew, Anomaly::WriteSkew};
    const std::vector<Anomaly> writeSkew{Anomaly::WriteSkew};
    if (engine == "sqlite")
        return {{engine, "", skews}};
    // Nodes of a cluster certify what is written and not what is read.
    const std::vector<Anomaly> strongest = engine == "galera" ? writeSkew : std::vector<Anomaly>();
    return {{engine, "isolation=read committed", skews},
            {engine, "isolation=repeatable read", writeSkew},
            {engine, "isolation=serializable", strongest}};
}

std::string driverUnderTest() {
    const char* set = std::getenv("KES_TEST_DRIVER");
    return set != nullptr ? set : "sqlite";
}

std::string shownName(const ::testing::TestParamInfo<Level>& info) {
    const std::string& option = info.param.option;
    std::string name = option.empty() ? "default" : option.substr(option.find('=') + 1);
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
}

}  // namespace Kes::testing
