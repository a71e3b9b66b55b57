#pragma once

#include <string>

#include "host/StatusOr.h"
#include "platform/linux/AssetRecord.h"

struct sqlite3;
struct sqlite3_stmt;

namespace velqor {

// The shape of the photo library's index and the checks that keep a foreign
// or damaged database from being taken for one: the index carries its own
// application id and version, holds exactly the one table and its indexes,
// and every row is checked column by column before it becomes a record.
//
// Threads: any; the connection passed in is the caller's and used only for
// the duration of the call.
class LibraryIndexFormat {
 public:
  // SELECT list whose columns rowFrom reads, in order.
  static constexpr const char* kSelect = "SELECT local_id, uuid, ext, video, size, created FROM assets";

  // Readies a freshly opened connection: a brand-new (empty) database gets the
  // table, the application id and the version; an index of this format (or
  // the earlier one without the id, whose table is exactly ours) is accepted;
  // anything else is refused before a single byte of it is written.
  static Status adopt(sqlite3* db, const std::string& path);

  // The record in the current row of `statement` (columns as in kSelect), or
  // why the row cannot be one.
  static StatusOr<AssetRecord> rowFrom(sqlite3_stmt* statement, const std::string& directory);

  // The shapes the library gives names: "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX"
  // in upper-case hex, and one of the extensions it writes.
  static bool uuidShape(const std::string& uuid);
  static bool knownExtension(const std::string& extension);
  // A staging or asset file name: uuid "." extension.
  static bool fileNameShape(const std::string& name);
};

}  // namespace velqor
