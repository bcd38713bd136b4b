#include "host/input_files.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {
namespace {

constexpr std::size_t kQuotedMax = 200;

/// Empty when the mode is a regular file, else why it is not one.
const char* NotRegular(mode_t mode) {
  if (S_ISREG(mode)) return nullptr;
  if (S_ISDIR(mode)) return "is a directory, not a file";
  if (S_ISFIFO(mode)) return "is a FIFO (named pipe), not a file";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "is a device, not a file";
  if (S_ISSOCK(mode)) return "is a socket, not a file";
  return "is not a regular file";
}

vex::Result<void> CannotRead(const std::string& path, const std::string& reason) {
  return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot read: " + reason);
}

}  // namespace

std::string OsErrorText(int error) {
  if (error == 0) return "unknown error";
  char buffer[256];
  // GNU strerror_r returns the text (possibly not in the buffer).
  const char* text = strerror_r(error, buffer, sizeof buffer);
  return text ? std::string(text) : "error " + std::to_string(error);
}

vex::Result<void> CheckInputFile(const std::string& path) {
  if (path.empty()) return VEX_FAIL(vex::ErrorKind::IllegalArgument, "empty file path");
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return CannotRead(path, OsErrorText(errno));
  if (const char* why = NotRegular(info.st_mode)) return CannotRead(path, why);
  return {};
}

vex::Result<std::string> ReadInputFile(const std::string& path) {
  if (path.empty()) return VEX_FAIL(vex::ErrorKind::IllegalArgument, "empty file path");
  // Non-blocking open: opening a FIFO without a writer would otherwise wait for one.
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) {
    const int error = errno;
    // A directory opens read-only on Linux; other refusals carry the OS's reason.
    return std::unexpected(CannotRead(path, OsErrorText(error)).error());
  }
  struct Closer {
    int fd;
    ~Closer() { ::close(fd); }
  } closer{fd};
  struct stat info {};
  if (::fstat(fd, &info) != 0) return std::unexpected(CannotRead(path, OsErrorText(errno)).error());
  if (const char* why = NotRegular(info.st_mode)) return std::unexpected(CannotRead(path, why).error());
  std::string bytes;
  if (info.st_size > 0) bytes.reserve(static_cast<std::size_t>(info.st_size));
  char chunk[1 << 16];
  for (;;) {
    const ssize_t got = ::read(fd, chunk, sizeof chunk);
    if (got == 0) break;
    if (got < 0) {
      if (errno == EINTR) continue;
      return std::unexpected(CannotRead(path, OsErrorText(errno)).error());
    }
    bytes.append(chunk, static_cast<std::size_t>(got));
  }
  return bytes;
}

std::string Shortened(std::string_view text) {
  if (text.size() <= kQuotedMax) return std::string(text);
  const std::string quoted = Quoted(text);  // cut on a character boundary
  return quoted.substr(1, quoted.find("\"... (") - 1) + "... (" + std::to_string(text.size()) + " bytes)";
}

std::string Quoted(std::string_view value) {
  std::string out = "\"";
  std::size_t shown = 0;
  for (const char c : value) {
    if (shown == kQuotedMax) break;
    const auto u = static_cast<unsigned char>(c);
    if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c == '\r') {
      out += "\\r";
    } else if (u < 0x20 || u == 0x7F) {
      static const char* const kHex = "0123456789abcdef";
      out += "\\x";
      out += kHex[u >> 4];
      out += kHex[u & 15];
    } else {
      out += c;
    }
    ++shown;
  }
  if (value.size() > kQuotedMax) {
    // Never end on half a UTF-8 sequence.
    std::size_t end = out.size();
    while (end > 1 && (static_cast<unsigned char>(out[end - 1]) & 0xC0) == 0x80) --end;
    if (end > 1 && static_cast<unsigned char>(out[end - 1]) >= 0xC0) --end;
    if (end < out.size() && static_cast<unsigned char>(out[end]) >= 0x80) out.resize(end);
  }
  out += '"';
  if (value.size() > kQuotedMax) out += "... (" + std::to_string(value.size()) + " bytes)";
  return out;
}

}  // namespace host
