#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace velqor::testing {

// A real `velqor-camera serve` child on a free loopback port, with its own
// temporary folder, library and state below `work`. Its memory is read from
// /proc while it runs.
class ServeProcess {
 public:
  ServeProcess(const std::string& binary, const std::string& work, std::vector<std::string> extra = {}) {
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(out[1], 1);
      ::setenv("XDG_STATE_HOME", (work + "/state").c_str(), 1);
      ::setenv("TMPDIR", work.c_str(), 1);
      std::vector<std::string> args{binary, "serve", "--port", "0", "--temp-dir", work + "/tmp",
                                    "--library", work + "/library"};
      args.insert(args.end(), extra.begin(), extra.end());
      std::vector<char*> argv;
      for (auto& a : args) argv.push_back(a.data());
      argv.push_back(nullptr);
      ::execv(binary.c_str(), argv.data());
      ::_exit(127);
    }
    ::close(out[1]);
    // "velqor-camera: serving http://127.0.0.1:PORT/ ..." is the first line.
    std::string line;
    char c;
    while (line.find('\n') == std::string::npos && ::read(out[0], &c, 1) == 1) line.push_back(c);
    output_ = out[0];
    const auto at = line.find("127.0.0.1:");
    if (at != std::string::npos) port_ = std::stoi(line.substr(at + 10));
  }
  ~ServeProcess() {
    stop();
    if (output_ >= 0) ::close(output_);
  }

  int port() const { return port_; }
  pid_t pid() const { return pid_; }
  bool running() const { return pid_ > 0 && ::waitpid(pid_, nullptr, WNOHANG) == 0; }

  // Resident and peak resident memory in KiB (VmRSS, VmHWM).
  long memoryKiB(const char* field = "VmRSS:") const {
    std::ifstream in("/proc/" + std::to_string(pid_) + "/status");
    for (std::string key; in >> key;) {
      long value = 0;
      if (key == field && (in >> value)) return value;
    }
    return -1;
  }

  // SIGTERM, then waits up to `limit` for the exit; the exit status, or -1 when it had to be killed.
  int stop(std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    if (pid_ <= 0) return exit_;
    ::kill(pid_, SIGTERM);
    const auto end = std::chrono::steady_clock::now() + limit;
    int status = 0;
    while (::waitpid(pid_, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > end) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
        return exit_ = -1;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    pid_ = -1;
    return exit_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

 private:
  pid_t pid_ = -1;
  int port_ = 0;
  int output_ = -1;
  int exit_ = -1;
};

}  // namespace velqor::testing
