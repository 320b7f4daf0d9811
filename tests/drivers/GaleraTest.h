// What the tests on a cluster have in common.

#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <kes/Kes.h>

#include "tests/drivers/Engine.h"
#include "tests/drivers/PlainMariadb.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

/// A database of the test's own on the cluster that ctest starts.
class GaleraTest : public ::testing::Test {
protected:
    static constexpr int Nodes = 3;

    GaleraTest() {
        static int made = 0;
        database = "test_" + std::to_string(getpid()) + "_" + std::to_string(++made);
        patiently([&] {
            PlainMariadb(sourceOf(1), user, password)
                .run("CREATE DATABASE IF NOT EXISTS " + database);
            for (int node = 1; node <= Nodes; ++node)
                PlainMariadb(sourceOf(node), user, password).catchUp();
        });
    }
    ~GaleraTest() override {
        try {
            PlainMariadb(sourceOf(1), user, password).run("DROP DATABASE " + database);
        } catch (const std::exception&) {
            // The cluster goes soon, with everything in it.
        }
    }

    static bool says(const std::string& message, const std::string& words) {
        return message.find(words) != std::string::npos;
    }

    /// A command of the script that the cluster was started with.
    static bool runScript(const std::string& verb, const std::string& node = "") {
        const std::string command =
            KES_TEST_GALERA " " + verb + " '" + Engine::serverFolder() + "' " + node;
        return std::system(command.c_str()) == 0;
    }

    /// Does what may be done twice until nothing is thrown, for half a minute. While
    /// the group changes, a node refuses statements, keeps them waiting and ends
    /// connections. Should one crash over it, that is told and it is started again.
    template <class Work>
    static std::invoke_result_t<Work> patiently(Work work) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        for (;;) {
            try {
                return work();
            } catch (const std::exception&) {
                if (std::chrono::steady_clock::now() > end)
                    throw;
            }
            for (int node = 1; node <= Nodes; ++node)
                if (hasCrashed(node)) {
                    std::fprintf(stderr, "node %d has crashed, as its error log says\n", node);
                    runScript("start");
                }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }

    /// A server that is started begins a new log.
    static bool hasCrashed(int node) {
        std::ifstream log(Engine::serverSays("galera", "place") + "/node" + std::to_string(node) +
                          "/error.log");
        for (std::string line; std::getline(log, line);)
            if (says(line, "got signal"))
                return true;
        return false;
    }

    static std::string sourceOf(int node) {
        return Engine::serverSays("galera", "node" + std::to_string(node) + "/source");
    }
    static std::string hostOf(int node) {
        return sourceOf(node).substr(0, sourceOf(node).find('/'));
    }

    /// Opens on the first of the nodes that answers.
    void open(Model& model, const std::vector<int>& nodes, const std::string& options = "") const {
        std::string source;
        for (const int node : nodes)
            source += (source.empty() ? "" : ",") + hostOf(node);
        source += "/" + database;
        model.open("mariadb", source.c_str(), password.c_str(), user.c_str(), options.c_str());
    }

    std::string ask(int node, const std::string& text) const {
        return patiently([&] {
            PlainMariadb plain(hostOf(node) + "/" + database, user, password);
            plain.catchUp();
            return plain.ask(text);
        });
    }

    void make(int people) const {
        StaffModel model;
        open(model, {1});
        model.startTransaction();
        for (int i = 0; i < people; ++i)
            model.newPerson(std::to_string(i).c_str());
        model.commit();
    }

    const std::string user = Engine::serverSays("galera", "user");
    const std::string password = Engine::serverSays("galera", "password");
    std::string database;
};

}  // namespace Kes::testing
