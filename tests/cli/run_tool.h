// Runs the built vexinterop the way a pipeline does: a child process, stdout and stderr together.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace cli_test {

struct Outcome {
  int exit = -1;
  std::string output;
};

/// A shell command line in a child process, stdout and stderr together.
inline Outcome Shell(const std::string& command) {
  Outcome o;
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  char buffer[4096];
  while (pipe && fgets(buffer, sizeof buffer, pipe)) o.output += buffer;
  const int status = pipe ? pclose(pipe) : -1;
  o.exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return o;
}

inline Outcome Tool(const std::string& arguments) { return Shell(std::string(INTEROP_VEXINTEROP_PATH) + " " + arguments); }

/// A path single-quoted for the shell.
inline std::string Quote(const std::filesystem::path& path) { return "'" + path.string() + "'"; }
/// Whether the shell finds `program`.
inline bool OnPath(const std::string& program) { return Shell("command -v " + program + " >/dev/null").exit == 0; }

}  // namespace cli_test
