#include "host/FileBytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/UniqueFd.h"

namespace velqor {

StatusOr<Bytes> FileBytes::read(const std::string& path, std::uint64_t maxBytes) {
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) return Status::notFound("cannot open " + path + ": " + std::strerror(errno));
  struct stat st;
  if (::fstat(fd.get(), &st) != 0) return Status::unavailable("cannot stat " + path + ": " + std::strerror(errno));
  if (!S_ISREG(st.st_mode)) return Status::invalidArgument(path + " is not a regular file");
  if (static_cast<std::uint64_t>(st.st_size) > maxBytes)
    return Status::resourceExhausted(path + " is larger than " + std::to_string(maxBytes) + " bytes");
  Bytes out(static_cast<size_t>(st.st_size));
  size_t done = 0;
  while (done < out.size()) {
    ssize_t n = ::read(fd.get(), out.data() + done, out.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return Status::unavailable("cannot read " + path + ": " + std::strerror(errno));
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  out.resize(done);
  return out;
}

int FileBytes::writeAll(int fd, std::span<const std::uint8_t> bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno;
    done += static_cast<size_t>(n);
  }
  return 0;
}

Status FileBytes::writeAtomically(const std::string& path, std::span<const std::uint8_t> bytes) {
  std::string temp = path + ".partial-" + std::to_string(::getpid());
  {
    UniqueFd fd(::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!fd.valid()) return Status::unavailable("cannot write " + path + ": " + std::strerror(errno));
    if (int err = writeAll(fd.get(), bytes)) {
      ::unlink(temp.c_str());
      return Status::unavailable("cannot write " + path + ": " + std::strerror(err));
    }
  }
  if (::rename(temp.c_str(), path.c_str()) != 0) {
    int err = errno;
    ::unlink(temp.c_str());
    return Status::unavailable("cannot write " + path + ": " + std::strerror(err));
  }
  return Status::okStatus();
}

}  // namespace velqor
