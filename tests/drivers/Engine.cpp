#include "tests/drivers/Engine.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "tests/drivers/Engines.h"

namespace Kes::testing {

namespace {

std::string environment(const char* name, const char* otherwise) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : otherwise;
}

}  // namespace

std::unique_ptr<Engine> Engine::make() {
    const std::string wanted = environment("KES_TEST_DRIVER", "sqlite");
#ifdef KES_TEST_SQLITE
    if (wanted == "sqlite")
        return makeSqliteEngine();
#endif
#ifdef KES_TEST_POSTGRES
    if (wanted == "postgres")
        return makePostgresEngine();
    if (wanted == "pgbouncer")
        return makePgbouncerEngine();
#endif
#ifdef KES_TEST_MARIADB
    if (wanted == "mariadb")
        return makeMariadbEngine();
    if (wanted == "galera")
        return makeGaleraEngine();
#endif
    throw std::runtime_error("the driver suite was not built for the driver " + wanted);
}

std::string Engine::serverFolder() {
    return environment("KES_TEST_SERVERS", KES_TEST_SERVERS);
}

std::string Engine::serverFile(const std::string& server, const std::string& name) {
    return serverFolder() + "/" + server + "/" + name;
}

std::string Engine::serverSays(const std::string& server, const std::string& name) {
    const std::string file = serverFile(server, name);
    std::ifstream stream(file);
    std::string line;
    if (!std::getline(stream, line))
        throw std::runtime_error("no server runs: there is no " + file + "; start one with " +
                                 "tests/engines/" + server + ".sh");
    return line;
}

void Engine::open(Model& model, const std::string& more) const {
    std::string all = options();
    if (!all.empty() && !more.empty())
        all += ";";
    all += more;
    model.open(driver().c_str(), source().c_str(), password().c_str(), user().c_str(), all.c_str());
}

std::string Engine::quoted(std::string text) const {
    for (char& c : text)
        if (c == '[' || c == ']')
            c = quote();
    return text;
}

}  // namespace Kes::testing
