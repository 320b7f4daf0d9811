// What the driver's statements rely on, whatever the server, the database or the
// user's account is set up for.

#pragma once

#include <deque>
#include <string>

#include "drivers/postgres/PostgresSource.h"
#include "drivers/postgres/PostgresWire.h"

namespace Kes::sql {

std::string quotedName(const std::string& name);

/// One query makes all settings: for the session or, where a pooler gives each
/// transaction another one, for the transaction that it is sent in.
class PostgresSettings {
public:
    explicit PostgresSettings(const PostgresSource& source);
    PostgresSettings(const PostgresSettings&) = delete;
    PostgresSettings& operator=(const PostgresSettings&) = delete;

    /// The names that a model uses mean tables of that schema; to be called once
    /// where the source names none. Until then the search path is that of the
    /// account, whatever others have made of it in the session.
    void useSchema(const std::string& schema);

    const std::string& query() const { return text; }
    const WireValues& values() const { return bound; }

private:
    void set(const std::string& name, const std::string& value);
    void write();

    bool isLocal;
    bool hasSchema = false;
    std::string text;
    std::deque<std::string> texts;  // names and values, in turn; they stay where they are
    WireValues bound;
};

}  // namespace Kes::sql
