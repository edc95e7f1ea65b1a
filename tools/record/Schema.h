#pragma once

namespace tool {

// Rises when a reader of before would misunderstand.
inline constexpr int kRecordingVersion = 1;
// Of a file of several sensors: a reader of before finds no topic that it knows.
inline constexpr int kFleetVersion = 2;

// The tables of a rosbag2 bag, as its SQLite storage version 4 has them, and one of ours. Times:
// nanoseconds since 1970, host clock. Rows of messages are in the order of their arrival.
inline constexpr const char* kSchemaSql = R"sql(
CREATE TABLE schema(schema_version INTEGER PRIMARY KEY, ros_distro TEXT NOT NULL);
CREATE TABLE metadata(id INTEGER PRIMARY KEY, metadata_version INTEGER NOT NULL,
  metadata TEXT NOT NULL);
CREATE TABLE topics(id INTEGER PRIMARY KEY, name TEXT NOT NULL, type TEXT NOT NULL,
  serialization_format TEXT NOT NULL, offered_qos_profiles TEXT NOT NULL,
  type_description_hash TEXT NOT NULL);
CREATE TABLE message_definitions(id INTEGER PRIMARY KEY, topic_type TEXT NOT NULL,
  encoding TEXT NOT NULL, encoded_message_definition TEXT NOT NULL,
  type_description_hash TEXT NOT NULL);
CREATE TABLE messages(id INTEGER PRIMARY KEY, topic_id INTEGER NOT NULL,
  timestamp INTEGER NOT NULL, data BLOB NOT NULL);
CREATE INDEX timestamp_idx ON messages (timestamp ASC);
CREATE TABLE tessaline(key TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
INSERT INTO schema VALUES(4, 'jazzy');
INSERT INTO tessaline VALUES('version', ''), ('synced_ns', ''), ('closed', '');
)sql";

// In a file of several sensors, also how far a publisher's packets have come: all up to this one
// are in the file, or known to be lost.
inline constexpr const char* kPositionsSql = R"sql(
CREATE TABLE tessaline_positions(sensor TEXT NOT NULL, run TEXT NOT NULL,
  sequence INTEGER NOT NULL, PRIMARY KEY(sensor, run)) WITHOUT ROWID;
)sql";
// Tables and indexes of such a file.
inline constexpr int kFleetObjects = 8;

// Keys of the table tessaline, each of which has a row from the start.
inline constexpr const char* kVersionKey = "version";
// When the last sync was, and "yes" once the recording has been closed properly.
inline constexpr const char* kSyncedKey = "synced_ns";
inline constexpr const char* kClosedKey = "closed";

}  // namespace tool
