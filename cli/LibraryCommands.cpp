
#include <nlohmann/json.hpp>

#include "cli/Cli.h"
#include "host/FileBytes.h"
#include "platform/linux/SqlitePhotoLibrary.h"

namespace velqor::cli {
namespace {

std::shared_ptr<SqlitePhotoLibrary> openLibrary(const std::string& dir) {
  auto lib = SqlitePhotoLibrary::open(dir.empty() ? SqlitePhotoLibrary::defaultPath() : dir);
  if (!lib.ok()) throw UsageError{lib.status().message()};
  return *lib;
}

nlohmann::ordered_json describe(const AssetRecord& r) {
  nlohmann::ordered_json j;
  j["identifier"] = r.localIdentifier;
  j["referenceURL"] = r.referenceUrl().absoluteString();
  j["type"] = r.video ? "video" : "image";
  j["extension"] = r.extension;
  j["size"] = r.size;
  j["created"] = r.created;
  return j;
}

}  // namespace

void registerLibraryCommands(CLI::App& app, Registration& chosen) {
  static std::string dir, file, id, out;
  auto* library = app.add_subcommand("library", "List, add, export and remove photo-library assets");
  library->add_option("--library", dir, "The photo library directory");
  library->require_subcommand(1);

  // The library's own option also after its subcommand: `library list --library DIR`.
  library->fallthrough();
  auto* list = library->add_subcommand("list", "Print one JSON object per asset");
  list->callback([&chosen] {
    chosen.run = [] {
      auto lib = openLibrary(dir);
      auto rows = lib->list();
      if (!rows.ok()) throw UsageError{rows.status().message()};
      for (const auto& r : *rows) Console::result(describe(r).dump());
      return kExitOk;
    };
  });
  auto* add = library->add_subcommand("add", "Import a file as a new asset");
  add->add_option("FILE", file, "The photo or movie")->required();
  add->callback([&chosen] {
    chosen.run = [] {
      requireReadableFile("FILE", file);
      auto record = openLibrary(dir)->importFile(file);
      if (!record.ok()) throw UsageError{record.status().message()};
      Console::result(describe(*record).dump());
      return kExitOk;
    };
  });
  auto* exportCmd = library->add_subcommand("export", "Copy an asset's bytes to a file");
  exportCmd->add_option("ID", id, "The asset's local identifier")->required();
  exportCmd->add_option("OUT", out, "Where to write it")->required();
  exportCmd->callback([&chosen] {
    chosen.run = [] {
      auto lib = openLibrary(dir);
      auto bytes = lib->assetBytes(id, 1ull << 34);
      if (!bytes.ok()) throw UsageError{bytes.status().message()};
      if (Status s = FileBytes::writeAtomically(out, *bytes); !s.ok()) {
        Console::error(out + ": " + s.message());
        return kExitFailure;
      }
      return kExitOk;
    };
  });
  auto* remove = library->add_subcommand("remove", "Delete an asset");
  remove->add_option("ID", id, "The asset's local identifier")->required();
  remove->callback([&chosen] {
    chosen.run = [] {
      if (Status s = openLibrary(dir)->remove(id); !s.ok()) throw UsageError{s.message()};
      return kExitOk;
    };
  });
}

}  // namespace velqor::cli
