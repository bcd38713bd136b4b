#include "host/ui_services.h"

namespace host {

vex::Result<void> FileViewer::Open(std::string_view path) {
  std::lock_guard lock(mutex_);
  opened_.emplace_back(path);
  return {};
}

std::vector<std::string> FileViewer::Opened() const {
  std::lock_guard lock(mutex_);
  return opened_;
}

void FileViewer::Clear() {
  std::lock_guard lock(mutex_);
  opened_.clear();
}

void StatusBar::SetProgress(std::string_view text, double fraction) {
  {
    std::lock_guard lock(mutex_);
    ++reports_;
  }
  if (listener) listener(text, fraction < 0 ? 0 : (fraction > 1 ? 1 : fraction));
}

void StatusBar::Clear() {
  if (listener) listener({}, -1);
}

std::size_t StatusBar::Reports() const {
  std::lock_guard lock(mutex_);
  return reports_;
}

void StatusBar::Reset() {
  std::lock_guard lock(mutex_);
  reports_ = 0;
}

}  // namespace host
