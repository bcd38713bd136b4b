// Starting other programs. By default the reference host only records what a
// module asked to start (a test or a dry run must not launch anything); with
// `launch` set it starts the program for real, without a shell.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "vex/process.h"

namespace host {

class Processes final : public vex::IProcesses {
 public:
  struct Record {
    std::string program;
    std::vector<std::string> arguments;
    bool launched = false;  ///< started for real
    int pid = 0;
  };
  vex::Result<void> Start(std::string_view program, const std::vector<std::string>& arguments) override;
  std::vector<Record> Records() const;
  void Clear();
  /// Waits for every program started for real; returns how many ended with a non-zero status.
  int WaitAll();
  bool launch = false;

 private:
  mutable std::mutex mutex_;
  std::vector<Record> records_;
};

}  // namespace host
