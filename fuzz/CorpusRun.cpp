// Runs the adversarial corpus through whole captures and prints what happened.
//
//   corpus_run                 generate, run every input in every destination, print the counts
//   corpus_run --write DIR     only write the corpus files to DIR
//
// Each input runs in a child process of its own (so a crash is counted, not
// fatal), against a temporary directory with a hostile layout: names with
// spaces, "%", a newline or bytes that are not UTF-8, links to files outside,
// read-only entries, and a small tmpfs that fills up when one can be mounted.
// For every capture the command must be answered exactly once, or stay open
// only while the picker waits for a user who then cancels; an error answer
// must leave no result file behind; nothing outside the temporary and library
// directories may change. Exit 0 only when all of that held.
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

#include "session/DeviceSession.h"
#include "fuzz/AdversarialCorpus.h"
#include "host/FileBytes.h"

namespace fs = std::filesystem;
using namespace velqor;
using velqor::fuzz::AdversarialCorpus;
using velqor::fuzz::CorpusEntry;

namespace {

constexpr int kChildSeconds = 180;
constexpr long kMemoryLimitKiB = 1536 * 1024;

// Every file below `dir` with its size, mode and contents, for before/after comparison.
std::map<std::string, std::string> snapshot(const fs::path& dir) {
  std::map<std::string, std::string> out;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(dir, ec); !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    struct stat st {};
    if (::lstat(it->path().c_str(), &st) != 0) continue;
    std::string state = std::to_string(st.st_mode) + ":" + std::to_string(st.st_size);
    if (S_ISREG(st.st_mode)) {
      auto bytes = FileBytes::read(it->path().string());
      if (bytes.ok()) state += ":" + std::to_string(std::hash<std::string_view>{}(
                                       std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size())));
    }
    out[it->path().string()] = state;
  }
  return out;
}

std::vector<std::string> resultFiles(const std::string& dir) {
  std::vector<std::string> out;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(dir, ec))
    if (e.path().filename().string().rfind("velqor_", 0) == 0 || e.path().filename().string().find(".staging") != std::string::npos)
      out.push_back(e.path().filename().string());
  return out;
}

// Lays out a hostile temporary directory: a link to an outside file, a link to
// an outside directory, a read-only file and a read-only directory.
void plantHostileEntries(const std::string& tmp, const fs::path& outside) {
  std::error_code ec;
  fs::create_directories(tmp, ec);
  fs::create_symlink(outside / "victim.jpg", fs::path(tmp) / "velqor_photo_link.jpg", ec);
  fs::create_directory_symlink(outside, fs::path(tmp) / "outside-dir", ec);
  std::ofstream(fs::path(tmp) / "readonly.jpg") << "ro";
  ::chmod((fs::path(tmp) / "readonly.jpg").c_str(), 0444);
  fs::create_directories(fs::path(tmp) / "ro-dir", ec);
  std::ofstream(fs::path(tmp) / "ro-dir" / "kept.txt") << "kept";
  ::chmod((fs::path(tmp) / "ro-dir").c_str(), 0555);
}

struct Layout {
  std::string name;
  std::string tmp;
  std::string library;
};

// One input in every destination; one line per capture on `out`:
// "DEST OUTCOME DETAIL" with OUTCOME answered | cancelled | open | doubled | leftover.
void runChild(const CorpusEntry& entry, const std::string& file, const Layout& layout, const fs::path& outside, int index,
              std::ostream& out) {
  plantHostileEntries(layout.tmp, outside);
  for (int destination : {0, 1, 2}) {
    DeviceConfig config;
    config.temporaryDirectory = layout.tmp;
    config.libraryDirectory = layout.library;
    config.device.bundlePath = DeviceSession::shippedBundle();
    config.pickerChoice = SimPickerChoice{entry.movie ? SimPickerChoice::Kind::video : SimPickerChoice::Kind::photo, file, "", {}};
    auto session = DeviceSession::create(config);
    if (!session.ok()) {
      out << destination << " setup " << session.status().message() << "\n";
      continue;
    }
    auto& s = **session;
    const bool save = index % 4 == 0;
    Array args{Value(std::int64_t{50}), Value(std::int64_t{destination}), Value(std::int64_t{1}), Value(64.0), Value(64.0),
               Value(std::int64_t{0}), Value(std::int64_t{entry.movie ? 1 : 0}), Value(false), Value(true), Value(save)};
    const auto before = resultFiles(layout.tmp);
    auto id = s.host().callCommand("takePicture:", std::move(args));
    auto result = s.host().runUntilAnswered(*id, std::chrono::seconds(60));
    std::string outcome = "answered";
    if (result != HostRuntime::RunResult::answered) {
      // The picker could not take the file and waits; the user gives up.
      if (s.device().cancelPicker()) {
        outcome = "cancelled";
        result = s.host().runUntilAnswered(*id, std::chrono::seconds(60));
      }
    }
    s.host().runUntilQuiescent(std::chrono::seconds(30));
    const auto answers = s.host().answers()->answersFor(*id);
    if (result != HostRuntime::RunResult::answered || answers.empty()) {
      out << destination << " open " << (s.whyOpen().empty() ? "" : s.whyOpen().front()) << "\n";
      continue;
    }
    if (answers.size() != 1 || answers[0].afterFinal) {
      out << destination << " doubled " << answers.size() << "\n";
      continue;
    }
    const auto& a = answers[0];
    // Two error answers keep the file they wrote, by the plug-in's contract: a
    // photo path that is not a valid URL, and a movie asked for as a native URI.
    const std::string message = a.messageText();
    const bool keepsItsFile = a.status == CommandStatus::UNABLE_FILE_WRITE &&
                              (message == "Invalid image path" || message == "Fail take picture");
    if (const auto after = resultFiles(layout.tmp); a.status != CommandStatus::OK && !keepsItsFile && after != before) {
      out << destination << " leftover after " << std::string(commandStatusName(a.status)) << ": " << message << "; files:";
      for (const auto& f : after) out << " " << f;
      out << "\n";
      continue;
    }
    std::string detail = std::string(commandStatusName(a.status));
    if (a.status != CommandStatus::OK) {
      std::string line = message;
      std::replace(line.begin(), line.end(), '\n', ' ');
      detail += " " + line.substr(0, 80);
    }
    out << destination << " " << outcome << " " << detail << "\n";
  }
  // The host empties its temporary directory between inputs.
  DeviceConfig config;
  config.temporaryDirectory = layout.tmp;
  config.libraryDirectory = layout.library;
  if (auto session = DeviceSession::create(config); session.ok()) {
    auto id = (*session)->host().callCommand("cleanup:", Array{});
    (*session)->host().runUntilAnswered(*id, std::chrono::seconds(30));
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::string writeOnly;
  if (argc == 3 && std::string(argv[1]) == "--write") writeOnly = argv[2];
  std::string pattern = (fs::temp_directory_path() / "velqor-corpus-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) return 1;
  const fs::path root = pattern;
  struct Cleanup {
    fs::path root;
    std::vector<std::string> mounts;
    ~Cleanup() {
      for (const auto& m : mounts) ::umount2(m.c_str(), MNT_DETACH);
      std::error_code ec;
      for (auto it = fs::recursive_directory_iterator(root, ec); !ec && it != fs::recursive_directory_iterator(); it.increment(ec))
        if (it->is_directory(ec) && !it->is_symlink(ec)) ::chmod(it->path().c_str(), 0755);
      fs::remove_all(root, ec);
    }
  } cleanup{root, {}};

  auto corpus = AdversarialCorpus::make(root.string());
  if (!corpus.ok()) {
    std::cerr << "corpus_run: " << corpus.status().message() << "\n";
    return 1;
  }
  const fs::path inputs = writeOnly.empty() ? root / "inputs" : fs::path(writeOnly);
  fs::create_directories(inputs);
  for (const auto& e : *corpus)
    if (!FileBytes::writeAtomically((inputs / e.name).string(),
                                    std::span(reinterpret_cast<const std::uint8_t*>(e.bytes.data()), e.bytes.size())).ok())
      return 1;
  if (!writeOnly.empty()) {
    std::cout << "corpus_run: wrote " << corpus->size() << " inputs to " << writeOnly << "\n";
    return 0;
  }

  const fs::path outside = root / "outside";
  fs::create_directories(outside);
  std::ofstream(outside / "victim.jpg") << "an outside file nobody may touch";
  std::vector<Layout> layouts;
  for (const std::string& name : {std::string("tmp with space"), std::string("tmp%41%25"), std::string("tmp\nnewline"),
                                 std::string("tmp\xFF\xFE-latin1-\xE9"), std::string("plain")}) {
    layouts.push_back({name, (root / "dirs" / name / "tmp").string(), (root / "dirs" / name / "library").string()});
  }
  // A small tmpfs that fills up, when this process may mount one.
  const fs::path full = root / "dirs" / "full-disk";
  fs::create_directories(full);
  std::string fullDisk = "not available (no permission to mount a tmpfs)";
  if (::mount("tmpfs", full.c_str(), "tmpfs", 0, "size=8k") == 0) {
    cleanup.mounts.push_back(full.string());
    layouts.push_back({"full-disk", (full / "tmp").string(), (root / "dirs" / "full-disk-library").string()});
    fullDisk = "an 8 KiB tmpfs as the temporary directory";
  }
  const auto outsideBefore = snapshot(outside);
  const auto inputsBefore = snapshot(inputs);

  std::map<std::string, int> outcomes;
  std::map<std::string, int> statuses;
  int tried = 0, crashes = 0, hangs = 0;
  long peakKiB = 0;
  std::vector<std::string> problems;
  const char* only = std::getenv("VELQOR_CORPUS_ONLY");  // a name substring, to rerun a few inputs
  for (size_t i = 0; i < corpus->size(); ++i) {
    const auto& entry = (*corpus)[i];
    if (only && entry.name.find(only) == std::string::npos) continue;
    const Layout& layout = layouts[i % layouts.size()];
    int fds[2];
    if (::pipe(fds) != 0) return 1;
    std::cout.flush();
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::close(fds[0]);
      ::alarm(kChildSeconds);
      std::ostringstream lines;
      runChild(entry, (inputs / entry.name).string(), layout, outside, static_cast<int>(i), lines);
      const std::string text = lines.str();
      (void)FileBytes::writeAll(fds[1], std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
      ::_exit(0);
    }
    ::close(fds[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = ::read(fds[0], buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(n));
    ::close(fds[0]);
    int status = 0;
    struct rusage usage {};
    ::wait4(pid, &status, 0, &usage);
    peakKiB = std::max(peakKiB, usage.ru_maxrss);
    if (usage.ru_maxrss > kMemoryLimitKiB)
      problems.push_back(entry.name + ": peak memory " + std::to_string(usage.ru_maxrss / 1024) + " MiB");
    if (entry.peakMiB > 0) {
      if (std::getenv("VELQOR_CORPUS_VERBOSE"))
        std::cout << entry.name << ": peak memory " << usage.ru_maxrss / 1024 << " MiB\n";
      if (usage.ru_maxrss > entry.peakMiB * 1024)
        problems.push_back(entry.name + ": peak memory " + std::to_string(usage.ru_maxrss / 1024) + " MiB, more than the " +
                           std::to_string(entry.peakMiB) + " MiB a file this small may take");
    }
    if (WIFSIGNALED(status) || (WIFEXITED(status) && WEXITSTATUS(status) != 0)) {
      const bool hang = WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM;
      (hang ? hangs : crashes) += 3;
      tried += 3;
      problems.push_back(entry.name + (hang ? ": did not finish" : ": crashed (" + std::to_string(status) + ")"));
      continue;
    }
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
      if (std::getenv("VELQOR_CORPUS_VERBOSE")) std::cout << entry.family << "/" << entry.name << " [" << layout.name << "] " << line << "\n";
      std::istringstream words(line);
      std::string destination, outcome, detail;
      words >> destination >> outcome;
      std::getline(words, detail);
      ++tried;
      ++outcomes[outcome];
      if (outcome == "answered" || outcome == "cancelled") {
        std::istringstream d(detail);
        std::string statusName;
        d >> statusName;
        ++statuses[entry.family.substr(0, entry.family.find('-')) + " " + statusName];
      } else {
        problems.push_back(entry.family + "/" + entry.name + " destination " + destination + ": " + outcome + detail);
      }
    }
  }
  if (snapshot(outside) != outsideBefore) problems.push_back("a file outside the temporary and library directories changed");
  if (snapshot(inputs) != inputsBefore) problems.push_back("an input file changed");

  std::cout << "corpus_run: " << corpus->size() << " files, " << tried << " inputs tried (each file in 3 destinations)\n";
  for (const auto& [outcome, n] : outcomes) std::cout << "  " << outcome << ": " << n << "\n";
  std::cout << "  crashes: " << crashes << "\n  hangs: " << hangs << "\n";
  std::cout << "  peak memory of one input's process: " << peakKiB / 1024 << " MiB (limit " << kMemoryLimitKiB / 1024
            << " MiB)\n";
  std::cout << "  full disk: " << fullDisk << "\n";
  std::cout << "answers by kind of input:\n";
  for (const auto& [key, n] : statuses) std::cout << "  " << key << ": " << n << "\n";
  for (const auto& p : problems) std::cout << "PROBLEM " << p << "\n";
  const int answered = outcomes["answered"] + outcomes["cancelled"];
  std::cout << "corpus_run: tried " << tried << ", answered " << answered << ", crashes " << crashes
            << (problems.empty() ? ", no problems\n" : ", " + std::to_string(problems.size()) + " problems\n");
  return problems.empty() && crashes == 0 && hangs == 0 ? 0 : 1;
}
