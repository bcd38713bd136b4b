// The reference host's file viewer and status bar. The host is not
// interactive: opened files are recorded, and progress goes to whoever
// listens (the command line draws it on a terminal).
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "vex/ui.h"

namespace host {

class FileViewer final : public vex::IFileViewer {
 public:
  vex::Result<void> Open(std::string_view path) override;
  std::vector<std::string> Opened() const;
  void Clear();

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> opened_;
};

class StatusBar final : public vex::IStatusBar {
 public:
  void SetProgress(std::string_view text, double fraction) override;
  void Clear() override;
  /// Called on every progress report, and with a negative fraction when the bar is cleared.
  std::function<void(std::string_view text, double fraction)> listener;
  /// Reports received since the last Reset.
  std::size_t Reports() const;
  void Reset();

 private:
  mutable std::mutex mutex_;
  std::size_t reports_ = 0;
};

}  // namespace host
