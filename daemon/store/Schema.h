// The tables of the store, and how a file of an older format becomes one of this.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <string>

namespace keldane::schema {

/// Makes the file where there is none, readable to its owner alone, and answers its path without symbolic
/// links. Throws SQLite::Exception for what is no file of this user alone.
std::string privateFile(const std::string& file);

/// Sets the connection up and brings the tables to the present format. Throws SQLite::Exception for a file of
/// a newer format, which is left as it is.
void prepare(SQLite::Database& database);

/// Drops all that the repository can tell again, in one transaction.
void clearCatalogue(SQLite::Database& database);

}  // namespace keldane::schema
