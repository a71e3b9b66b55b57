// The photo library's index as a fuzz target. An input is either a whole
// database file (it starts with SQLite's magic) or SQL text that lays one out:
// tables of any shape, rows of any type, ids and versions in the header. The
// library then opens it, lists it, looks its rows up and reads their files.
// What must hold: no crash; a record the library hands out has the shapes it
// gives names; a database the library refuses is left byte for byte as it was.
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "fuzz/FuzzTargets.h"
#include "host/FileBytes.h"
#include "platform/linux/LibraryIndexFormat.h"
#include "platform/linux/SqlitePhotoLibrary.h"

namespace velqor::fuzz {
namespace {

namespace fs = std::filesystem;

const std::string& libraryScratch() {
  static const std::string dir = [] {
    std::string pattern = (fs::temp_directory_path() / "velqor-library-fuzz-XXXXXX").string();
    return std::string(::mkdtemp(pattern.data()) ? pattern : "");
  }();
  static const struct Remover {
    ~Remover() {
      std::error_code ec;
      fs::remove_all(dir, ec);
    }
  } remover;
  return dir;
}

// Only statements that shape this one database: no ATTACH (a file elsewhere),
// no VACUUM INTO, no pragma but the header's two numbers.
int authorize(void*, int action, const char* a, const char*, const char*, const char*) {
  switch (action) {
    case SQLITE_CREATE_TABLE: case SQLITE_CREATE_INDEX: case SQLITE_CREATE_TRIGGER: case SQLITE_CREATE_VIEW:
    case SQLITE_INSERT: case SQLITE_UPDATE: case SQLITE_DELETE: case SQLITE_READ: case SQLITE_SELECT:
    case SQLITE_FUNCTION: case SQLITE_TRANSACTION: case SQLITE_DROP_TABLE: case SQLITE_DROP_INDEX:
    case SQLITE_ALTER_TABLE: case SQLITE_SAVEPOINT: case SQLITE_RECURSIVE:
      return SQLITE_OK;
    case SQLITE_PRAGMA:
      return a && (std::string_view(a) == "user_version" || std::string_view(a) == "application_id") ? SQLITE_OK
                                                                                                   : SQLITE_DENY;
    default:
      return SQLITE_DENY;
  }
}

int stopLongRuns(void* steps) { return ++*static_cast<int*>(steps) > 2000; }

// Lays the database out from SQL text, within bounds of time and size.
void buildFromSql(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) == SQLITE_OK) {
    sqlite3_limit(db, SQLITE_LIMIT_LENGTH, 1 << 16);
    sqlite3_limit(db, SQLITE_LIMIT_ATTACHED, 0);
    sqlite3_set_authorizer(db, authorize, nullptr);
    int steps = 0;
    sqlite3_progress_handler(db, 1000, stopLongRuns, &steps);
    sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
  }
  sqlite3_close(db);
}

// A file in assets/ for each row that names one, so the rows survive the
// check that drops rows whose file is gone.
void placeAssetFiles(const std::string& directory) {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2((directory + "/library.sqlite").c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_stmt* s = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT uuid, ext FROM assets LIMIT 16", -1, &s, nullptr) == SQLITE_OK) {
      while (sqlite3_step(s) == SQLITE_ROW) {
        const auto* uuid = reinterpret_cast<const char*>(sqlite3_column_text(s, 0));
        const auto* ext = reinterpret_cast<const char*>(sqlite3_column_text(s, 1));
        if (!uuid || !ext) continue;
        const std::string name = std::string(uuid) + "." + ext;
        if (name.size() > 100 || name.find('/') != std::string::npos || name == "." || name == "..") continue;
        std::ofstream(directory + "/assets/" + name, std::ios::binary) << "\xFF\xD8\xFF asset";
      }
    }
    sqlite3_finalize(s);
  }
  sqlite3_close(db);
}

std::string fileText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

constexpr std::string_view kMagic("SQLite format 3\0", 16);

const char* kTable =
    "CREATE TABLE assets (local_id TEXT PRIMARY KEY, uuid TEXT UNIQUE NOT NULL, ext TEXT NOT NULL,"
    " video INTEGER NOT NULL, size INTEGER NOT NULL, created REAL NOT NULL);";

}  // namespace

int libraryFile(const std::uint8_t* data, std::size_t size) {
  if (libraryScratch().empty()) return 0;
  const std::string directory = libraryScratch() + "/library";
  std::error_code ec;
  fs::remove_all(directory, ec);
  fs::create_directories(directory + "/assets", ec);
  fs::create_directories(directory + "/staging", ec);
  const std::string database = directory + "/library.sqlite";
  const std::string input(reinterpret_cast<const char*>(data), size);
  if (input.compare(0, kMagic.size(), kMagic) == 0) {
    std::ofstream(database, std::ios::binary) << input;
  } else {
    buildFromSql(database, input);
  }
  placeAssetFiles(directory);
  const std::string before = fileText(database);

  auto library = SqlitePhotoLibrary::open(directory);
  if (!library.ok()) {
    // Refused: not one byte of the database may have changed.
    if (fileText(database) != before) std::abort();
    return 0;
  }
  auto rows = (*library)->list();
  if (!rows.ok()) return 0;
  for (const auto& r : *rows) {
    if (!LibraryIndexFormat::uuidShape(r.uuid) || r.localIdentifier != r.uuid + "/L0/001" ||
        !LibraryIndexFormat::knownExtension(r.extension) || r.file != directory + "/assets/" + r.fileName())
      std::abort();
    (void)(*library)->asset(r.localIdentifier);
    (void)(*library)->assetBytes(r.uuid, 1 << 20);
  }
  (void)(*library)->asset(std::string(input.substr(0, 64)));
  return 0;
}

std::vector<std::pair<std::string, std::string>> librarySeeds() {
  const std::string uuid = "0A1B2C3D-0000-4000-8000-00000000000A";
  std::vector<std::pair<std::string, std::string>> seeds{
      {"library.sql", std::string(kTable) + "PRAGMA application_id=1448168514; PRAGMA user_version=1;"
                          "INSERT INTO assets VALUES('" + uuid + "/L0/001','" + uuid + "','JPG',0,9,1.5);"},
      {"earlier-library.sql", std::string(kTable) + "INSERT INTO assets VALUES('" + uuid + "/L0/001','" + uuid +
                                  "','PNG',0,9,2);"},
      {"null-identifier.sql", std::string(kTable) + "INSERT INTO assets VALUES(NULL,'u1','jpg',0,1,1.0);"},
      {"no-constraints.sql",
       "CREATE TABLE assets (local_id, uuid, ext, video, size, created);"
       "INSERT INTO assets VALUES('a/L0/001',NULL,NULL,X'00',-1,'x');"},
      {"wrong-types.sql", std::string(kTable) + "INSERT INTO assets VALUES('" + uuid + "/L0/001','" + uuid +
                              "','../../x',2,'big',X'FF');"},
      {"other-program.sql", "PRAGMA application_id=1234; CREATE TABLE notes (body TEXT); INSERT INTO notes VALUES('hi');"},
      {"newer-version.sql", std::string(kTable) + "PRAGMA application_id=1448168514; PRAGMA user_version=7;"},
      {"extra-trigger.sql",
       std::string(kTable) + "CREATE TRIGGER t AFTER INSERT ON assets BEGIN DELETE FROM assets; END;"}};
  // A database file the library wrote itself, for mutations of the raw pages.
  const std::string directory = libraryScratch() + "/seed";
  std::error_code ec;
  fs::remove_all(directory, ec);
  if (auto made = SqlitePhotoLibrary::open(directory); made.ok()) {
    const std::string jpeg = "\xFF\xD8\xFF seed";
    auto bytes = std::make_shared<const Bytes>(jpeg.begin(), jpeg.end());
    (*made)->performChanges([bytes](AssetChangeRequests& r) { r.creationRequestForAsset().addResource(1, bytes); },
                            [](bool, std::optional<PlatformError>) {});
    (*made)->drain();
  }
  // Folded back from the write-ahead log by the close above.
  if (std::string raw = fileText(directory + "/library.sqlite"); raw.compare(0, kMagic.size(), kMagic) == 0)
    seeds.emplace_back("library.sqlite", raw);
  return seeds;
}

}  // namespace velqor::fuzz
