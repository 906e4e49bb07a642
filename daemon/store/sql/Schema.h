// The tables of the store, and the conversion of files of older formats.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <string>

namespace keldane::schema {

/// Makes the file when there is none, readable by its owner only, and returns its path without symbolic
/// links. Throws SQLite::Exception for anything but a file of this user that others cannot read.
std::string privateFile(const std::string& file);

/// Sets the connection up and brings the tables to the present format. Throws SQLite::Exception for a file of
/// a newer format, which is left as it is.
void prepare(SQLite::Database& database);

/// Deletes everything that can be read from the repository again, in one transaction.
void clearCatalogue(SQLite::Database& database);

}  // namespace keldane::schema
