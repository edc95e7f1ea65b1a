#pragma once

#include <string>
#include <string_view>

#include "record/BagWriter.h"
#include "record/Database.h"

namespace tool {

// The tables of a recording, as Schema.h has them.

// Makes them, with the definitions of all types and no topics.
void MakeTables(Database& database);
// Adds a sensor's topics, or those that have no sensor's name in front. They are numbered one
// behind the other.
BagWriter::Numbers AddTopics(Database& database, std::string_view sensor);

// Opens a file of several sensors to add to it, a new one if `path` does not exist or is empty, in
// a transaction that has begun. Throws Failure, also if it is any other file.
Database OpenFleetTables(const std::string& path);

// The value of a key; empty if there is none.
std::string ReadKey(const Database& database, const char* key);
void SetKey(const Database& database, const char* key, const std::string& value);
// 0 unless the text begins with a number.
std::int64_t WholeNumberIn(const std::string& text);

}  // namespace tool
