// Runs fuzz targets without libFuzzer, for the default suite and for
// reproducing a finding:
//   fuzz_replay --seeds DIR           writes every target's seeds to DIR/<target>/
//   fuzz_replay --all REGRESSIONS     every target over its seeds and REGRESSIONS/<target>/*
//   fuzz_replay TARGET FILE...        one target over the given files
#include <cstdio>
#include <filesystem>
#include <iostream>

#include "fuzz/FuzzTargets.h"
#include "host/FileBytes.h"

namespace fs = std::filesystem;
using namespace velqor;

namespace {

int runFile(const fuzz::Target& target, const fs::path& file) {
  auto bytes = FileBytes::read(file.string(), 64u << 20);
  if (!bytes.ok()) {
    std::cerr << "fuzz_replay: " << file << ": " << bytes.status().message() << "\n";
    return 1;
  }
  target.run(bytes->data(), bytes->size());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: fuzz_replay --seeds DIR | --all REGRESSIONS | TARGET FILE...\n";
    return 2;
  }
  const std::string mode = argv[1];
  if (mode == "--seeds") {
    for (const auto& t : fuzz::targets()) {
      const fs::path dir = fs::path(argv[2]) / t.name;
      fs::create_directories(dir);
      for (const auto& [name, bytes] : t.seeds())
        if (!FileBytes::writeAtomically((dir / name).string(), std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size())).ok())
          return 1;
    }
    return 0;
  }
  if (mode == "--all") {
    int inputs = 0;
    for (const auto& t : fuzz::targets()) {
      int mine = 0;
      for (const auto& [name, bytes] : t.seeds()) {
        t.run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        ++mine;
      }
      const fs::path dir = fs::path(argv[2]) / t.name;
      std::error_code ec;
      for (const auto& entry : fs::directory_iterator(dir, ec)) {
        if (!entry.is_regular_file()) continue;
        if (runFile(t, entry.path()) != 0) return 1;
        ++mine;
      }
      std::cout << t.name << ": " << mine << " inputs\n";
      inputs += mine;
    }
    std::cout << "fuzz_replay: " << inputs << " inputs, no crash\n";
    return 0;
  }
  const fuzz::Target* target = fuzz::targetNamed(mode);
  if (!target) {
    std::cerr << "fuzz_replay: no target " << mode << "\n";
    return 2;
  }
  for (int i = 2; i < argc; ++i)
    if (runFile(*target, argv[i]) != 0) return 1;
  return 0;
}
