#include "host/processes.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstring>

#include "host/services.h"

extern char** environ;

namespace host {

vex::Result<void> Processes::Start(std::string_view program, const std::vector<std::string>& arguments) {
  Record record{std::string(program), arguments, false, 0};
  if (launch) {
    // The program path is used as given ("\" or "/" separated); no shell sees the arguments.
    const std::string path = NativePath(program);
    std::vector<std::string> args{path};
    args.insert(args.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    const int error = posix_spawn(&pid, path.c_str(), nullptr, nullptr, argv.data(), environ);
    if (error != 0)
      return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot start: " + std::strerror(error));
    record.launched = true;
    record.pid = pid;
  }
  std::lock_guard lock(mutex_);
  records_.push_back(std::move(record));
  return {};
}

std::vector<Processes::Record> Processes::Records() const {
  std::lock_guard lock(mutex_);
  return records_;
}

void Processes::Clear() {
  std::lock_guard lock(mutex_);
  records_.clear();
}

int Processes::WaitAll() {
  std::lock_guard lock(mutex_);
  int failed = 0;
  for (auto& r : records_) {
    if (!r.launched || r.pid <= 0) continue;
    int status = 0;
    while (waitpid(r.pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) ++failed;
    r.pid = 0;
  }
  return failed;
}

}  // namespace host
