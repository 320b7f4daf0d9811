#include "drivers/postgres/PostgresSettings.h"

namespace Kes::sql {

std::string quotedName(const std::string& name) {
    std::string text = "\"";
    for (const char c : name)
        text.append(c == '"' ? 2 : 1, c);
    return text + "\"";
}

PostgresSettings::PostgresSettings(const PostgresSource& source)
    : isLocal(source.pooler == Pooler::Transaction) {
    set("standard_conforming_strings", "on");
    set("client_min_messages", "warning");
    set("lock_timeout", std::to_string(source.limits.lock));
    if (source.limits.statement.has_value())
        set("statement_timeout", std::to_string(*source.limits.statement));
    if (!isLocal)
        set("default_transaction_isolation", source.isolation);
    if (source.schema.empty())
        write();
    else
        useSchema(source.schema);
}

void PostgresSettings::set(const std::string& name, const std::string& value) {
    for (const std::string& each : {name, value}) {
        texts.push_back(each);
        bound.types.push_back(0);
        bound.values.push_back(texts.back().c_str());
        bound.sizes.push_back(static_cast<int>(each.size()));
    }
}

void PostgresSettings::useSchema(const std::string& schema) {
    set("search_path", quotedName(schema));
    hasSchema = true;
    write();
}

void PostgresSettings::write() {
    const std::string scope = isLocal ? ", true)" : ", false)";
    text = "SELECT ";
    for (std::size_t i = 1; i < texts.size(); i += 2)
        text += (i == 1 ? "" : ", ") + std::string("pg_catalog.set_config($") + std::to_string(i) +
                ", $" + std::to_string(i + 1) + scope;
    if (!hasSchema)
        text +=
            ", pg_catalog.set_config('search_path', (SELECT reset_val FROM "
            "pg_catalog.pg_settings WHERE name = 'search_path')" +
            scope;
}

}  // namespace Kes::sql
