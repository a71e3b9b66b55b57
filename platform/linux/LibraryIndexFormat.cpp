#include "platform/linux/LibraryIndexFormat.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <memory>
#include <vector>

namespace velqor {
namespace {

// "VQLB": the application id in the database header that marks our index.
constexpr std::int64_t kApplicationId = 0x56514C42;
constexpr std::int64_t kVersion = 1;
// The table exactly as SQLite keeps its text; an index made by the earlier
// release without the id has this text too.
constexpr const char* kTable =
    "CREATE TABLE assets (local_id TEXT PRIMARY KEY, uuid TEXT UNIQUE NOT NULL, ext TEXT NOT NULL,"
    " video INTEGER NOT NULL, size INTEGER NOT NULL, created REAL NOT NULL)";
constexpr std::array kExtensions{"JPG", "PNG", "HEIC", "MOV", "MP4", "M4V", "DAT"};
constexpr const char* kLocalSuffix = "/L0/001";

struct StatementDeleter {
  void operator()(sqlite3_stmt* s) const noexcept { sqlite3_finalize(s); }
};
using Statement = std::unique_ptr<sqlite3_stmt, StatementDeleter>;

struct SchemaObject {
  std::string type, name, sql;
  bool hasSql = false;
};

struct IndexState {
  std::int64_t applicationId = 0, version = 0;
  std::vector<SchemaObject> objects;
};

StatusOr<std::int64_t> pragmaNumber(sqlite3* db, const char* sql, const std::string& path) {
  sqlite3_stmt* raw = nullptr;
  const int rc = sqlite3_prepare_v2(db, sql, -1, &raw, nullptr);
  Statement s(raw);
  if (rc != SQLITE_OK || sqlite3_step(raw) != SQLITE_ROW)
    return Status::dataLoss("the photo library index " + path + " is unusable: " + sqlite3_errmsg(db));
  return static_cast<std::int64_t>(sqlite3_column_int64(raw, 0));
}

StatusOr<IndexState> readState(sqlite3* db, const std::string& path) {
  IndexState state;
  ASSIGN_OR_RETURN(state.applicationId, pragmaNumber(db, "PRAGMA application_id", path));
  ASSIGN_OR_RETURN(state.version, pragmaNumber(db, "PRAGMA user_version", path));
  sqlite3_stmt* raw = nullptr;
  if (sqlite3_prepare_v2(db, "SELECT type, name, sql FROM sqlite_schema", -1, &raw, nullptr) != SQLITE_OK)
    return Status::dataLoss("the photo library index " + path + " is unusable: " + sqlite3_errmsg(db));
  Statement s(raw);
  int rc;
  while ((rc = sqlite3_step(raw)) == SQLITE_ROW) {
    SchemaObject o;
    auto text = [&](int col) {
      const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(raw, col));
      return p ? std::string(p, static_cast<size_t>(sqlite3_column_bytes(raw, col))) : std::string();
    };
    o.type = text(0);
    o.name = text(1);
    o.hasSql = sqlite3_column_type(raw, 2) == SQLITE_TEXT;
    o.sql = text(2);
    state.objects.push_back(std::move(o));
  }
  if (rc != SQLITE_DONE) return Status::dataLoss("the photo library index " + path + " is unusable: " + sqlite3_errmsg(db));
  return state;
}

// Why the objects are not exactly our table and its two automatic indexes, or OK.
Status checkObjects(const IndexState& state, const std::string& path) {
  bool table = false;
  for (const auto& o : state.objects) {
    const bool autoIndex = o.type == "index" && !o.hasSql &&
                           (o.name == "sqlite_autoindex_assets_1" || o.name == "sqlite_autoindex_assets_2");
    if (o.type == "table" && o.name == "assets" && o.hasSql && o.sql == kTable) {
      table = true;
      continue;
    }
    if (autoIndex) continue;
    return Status::failedPrecondition("the database " + path + " is not a photo library of this program: it holds " +
                                      o.type + " \"" + o.name.substr(0, 64) + "\" of another layout");
  }
  if (!table) return Status::failedPrecondition("the database " + path + " is not a photo library of this program: it has no table of assets");
  return Status::okStatus();
}

Status exec(sqlite3* db, const char* sql, const std::string& path) {
  char* err = nullptr;
  if (sqlite3_exec(db, sql, nullptr, nullptr, &err) == SQLITE_OK) return Status::okStatus();
  std::string message = err ? err : sqlite3_errmsg(db);
  sqlite3_free(err);
  return Status::dataLoss("the photo library index " + path + " is unusable: " + message);
}

// Within an open write transaction: lays out an empty database, stamps an
// earlier index of ours, accepts a current one, refuses the rest.
Status settle(sqlite3* db, const std::string& path) {
  ASSIGN_OR_RETURN(IndexState state, readState(db, path));
  const std::string stamp = "PRAGMA application_id=" + std::to_string(kApplicationId) +
                            "; PRAGMA user_version=" + std::to_string(kVersion) + ";";
  if (state.objects.empty() && state.applicationId == 0 && state.version == 0) {
    RETURN_IF_ERROR(exec(db, (std::string(kTable) + ";").c_str(), path));
    return exec(db, stamp.c_str(), path);
  }
  if (state.applicationId != kApplicationId && state.applicationId != 0)
    return Status::failedPrecondition("the database " + path + " belongs to another program (application id " +
                                      std::to_string(state.applicationId) + ")");
  if (state.applicationId == kApplicationId && state.version != kVersion)
    return Status::failedPrecondition("the photo library index " + path + " is of version " +
                                      std::to_string(state.version) + "; this program reads version " +
                                      std::to_string(kVersion));
  if (state.applicationId == 0 && state.version != 0)
    return Status::failedPrecondition("the database " + path + " is not a photo library of this program (version " +
                                      std::to_string(state.version) + ")");
  RETURN_IF_ERROR(checkObjects(state, path));
  if (state.applicationId == 0) return exec(db, stamp.c_str(), path);
  return Status::okStatus();
}

std::string columnText(sqlite3_stmt* s, int col) {
  const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(s, col));
  return p ? std::string(p, static_cast<size_t>(sqlite3_column_bytes(s, col))) : std::string();
}

const char* typeName(int type) {
  switch (type) {
    case SQLITE_NULL: return "NULL";
    case SQLITE_INTEGER: return "an integer";
    case SQLITE_FLOAT: return "a real number";
    case SQLITE_BLOB: return "a blob";
    default: return "text";
  }
}

Status badRow(const std::string& why) { return Status::dataLoss("skipping a row of the photo library index: " + why); }

StatusOr<std::string> textColumn(sqlite3_stmt* s, int col, const char* name, size_t maxLength) {
  const int type = sqlite3_column_type(s, col);
  if (type != SQLITE_TEXT) return badRow(std::string(name) + " is " + typeName(type) + ", not text");
  if (static_cast<size_t>(sqlite3_column_bytes(s, col)) > maxLength)
    return badRow(std::string(name) + " is " + std::to_string(sqlite3_column_bytes(s, col)) + " bytes long");
  return columnText(s, col);
}

}  // namespace

Status LibraryIndexFormat::adopt(sqlite3* db, const std::string& path) {
  // Nothing in the file may run code or write through a view or a trigger.
  sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
  // Read-only first: a file that is no database, or another program's, is
  // refused before the write lock is even asked for.
  {
    ASSIGN_OR_RETURN(IndexState state, readState(db, path));
    if (!state.objects.empty()) RETURN_IF_ERROR(checkObjects(state, path));
  }
  // Two processes may open a new library at once: the layout is decided
  // again under the write lock.
  RETURN_IF_ERROR(exec(db, "BEGIN IMMEDIATE", path));
  if (Status s = settle(db, path); !s.ok()) {
    sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
    return s;
  }
  RETURN_IF_ERROR(exec(db, "COMMIT", path));
  return exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;", path);
}

StatusOr<AssetRecord> LibraryIndexFormat::rowFrom(sqlite3_stmt* s, const std::string& directory) {
  if (sqlite3_column_count(s) != 6) return badRow("it has " + std::to_string(sqlite3_column_count(s)) + " columns");
  AssetRecord r;
  ASSIGN_OR_RETURN(r.uuid, textColumn(s, 1, "uuid", 36));
  if (!uuidShape(r.uuid)) return badRow("uuid \"" + r.uuid + "\" is not an identifier this library gives");
  ASSIGN_OR_RETURN(r.localIdentifier, textColumn(s, 0, "local_id", 64));
  if (r.localIdentifier != r.uuid + kLocalSuffix)
    return badRow("local_id of " + r.uuid + " does not name it (\"" + r.localIdentifier + "\")");
  ASSIGN_OR_RETURN(r.extension, textColumn(s, 2, "ext", 8));
  if (!knownExtension(r.extension)) return badRow("ext of " + r.uuid + " is not an extension this library writes");
  for (int col : {3, 4})
    if (sqlite3_column_type(s, col) != SQLITE_INTEGER)
      return badRow(std::string(col == 3 ? "video" : "size") + " of " + r.uuid + " is " +
                    typeName(sqlite3_column_type(s, col)) + ", not an integer");
  const std::int64_t video = sqlite3_column_int64(s, 3);
  if (video != 0 && video != 1) return badRow("video of " + r.uuid + " is neither 0 nor 1");
  r.video = video == 1;
  r.size = sqlite3_column_int64(s, 4);
  if (r.size < 0) return badRow("size of " + r.uuid + " is negative");
  const int createdType = sqlite3_column_type(s, 5);
  if (createdType != SQLITE_FLOAT && createdType != SQLITE_INTEGER)
    return badRow("created of " + r.uuid + " is " + typeName(createdType) + ", not a number");
  r.created = sqlite3_column_double(s, 5);
  if (!std::isfinite(r.created)) return badRow("created of " + r.uuid + " is not a finite number");
  r.file = directory + "/assets/" + r.fileName();
  return r;
}

bool LibraryIndexFormat::uuidShape(const std::string& uuid) {
  if (uuid.size() != 36) return false;
  for (size_t i = 0; i < uuid.size(); ++i) {
    const char c = uuid[i];
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (c != '-') return false;
    } else if (!std::isdigit(static_cast<unsigned char>(c)) && !(c >= 'A' && c <= 'F')) {
      return false;
    }
  }
  return true;
}

bool LibraryIndexFormat::knownExtension(const std::string& extension) {
  return std::any_of(kExtensions.begin(), kExtensions.end(), [&](const char* e) { return extension == e; });
}

bool LibraryIndexFormat::fileNameShape(const std::string& name) {
  const size_t dot = name.find('.');
  return dot != std::string::npos && uuidShape(name.substr(0, dot)) && knownExtension(name.substr(dot + 1));
}

}  // namespace velqor
