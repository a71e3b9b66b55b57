#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace velqor::fuzz {

// Each fuzz target is a plain function of one input, so the same code runs
// under libFuzzer (the fuzz_* programs, built with clang) and in the replay of
// seeds and regression inputs in the default suite (built with g++).
// A target returns 0; any crash, sanitizer report or uncaught exception is a
// finding.
using TargetFunction = int (*)(const std::uint8_t* data, std::size_t size);

struct Target {
  const char* name;
  TargetFunction run;
  // Seed inputs made with the project's own code: (file name, bytes).
  std::vector<std::pair<std::string, std::string>> (*seeds)();
};

// takePicture argument lists as JSON.
int takePictureArguments(const std::uint8_t* data, std::size_t size);
// Image decode, orientation correction, fit and encode (JPEG and PNG).
int imagePipeline(const std::uint8_t* data, std::size_t size);
// Metadata read, and write of what was read back into the image.
int imageMetadata(const std::uint8_t* data, std::size_t size);
// Strings-file parsing (UTF-8 and UTF-16).
int stringsFile(const std::uint8_t* data, std::size_t size);
// Scenario files, read and run in a scratch directory.
int scenarioFile(const std::uint8_t* data, std::size_t size);
// A movie given to the MP4 export.
int movieExport(const std::uint8_t* data, std::size_t size);

// JSON text through every reader with limits (arguments, bodies), then
// converted and printed as the host and the web host do.
int jsonReaders(const std::uint8_t* data, std::size_t size);
// The bytes of one HTTP connection, through the web host's request handling.
int httpRequest(const std::uint8_t* data, std::size_t size);
std::vector<std::pair<std::string, std::string>> httpSeeds();

// A photo library's index: a database file, or SQL text that lays one out,
// opened, listed and read by the library.
int libraryFile(const std::uint8_t* data, std::size_t size);
std::vector<std::pair<std::string, std::string>> librarySeeds();

const std::vector<Target>& targets();
const Target* targetNamed(const std::string& name);

}  // namespace velqor::fuzz
