// A COMMIT that a PostgreSQL server is at work on for as long as a test likes.

#pragma once

#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "tests/drivers/PlainPostgres.h"

namespace Kes::testing {

/// From now on, one that has changed a person in that schema.
class SlowCommit {
public:
    SlowCommit(const std::string& url, const std::string& schema) : plain(url) {
        plain.run("SET search_path TO " + schema);
        plain.run(
            "CREATE FUNCTION wait() RETURNS trigger LANGUAGE plpgsql AS 'BEGIN PERFORM "
            "pg_catalog.pg_advisory_xact_lock(" +
            key + "); RETURN NULL; END'");
        plain.run(
            "CREATE CONSTRAINT TRIGGER waits AFTER UPDATE ON \"Person\" DEFERRABLE INITIALLY "
            "DEFERRED FOR EACH ROW EXECUTE FUNCTION wait()");
        plain.run("SELECT pg_advisory_lock(" + key + ")");
    }

    /// Returns when the server has begun; false when it has not after five seconds.
    bool await() {
        const std::string waiting =
            "SELECT count(*) FROM pg_stat_activity JOIN pg_locks USING (pid) WHERE query = "
            "'COMMIT' AND locktype = 'advisory' AND NOT granted AND objid = " +
            key;
        for (int i = 0; i < 500; ++i) {
            if (plain.ask(waiting) == "1")
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    void letGoOn() { plain.run("SELECT pg_advisory_unlock(" + key + ")"); }

private:
    PlainPostgres plain;
    const std::string key = std::to_string(getpid());
};

}  // namespace Kes::testing
