// The host's user-facing services beyond dialogs: showing a file to the user,
// and the progress bar of long operations. Also the codes a scene saver
// returns for file failures.
#pragma once

#include <cstdint>
#include <string_view>

#include "vex/error.h"

namespace vex {

/// Codes of the host's file service, as scene savers return them.
inline constexpr std::int32_t kFileErrorOpen = -1;   ///< the file could not be opened for writing
inline constexpr std::int32_t kFileErrorWrite = -2;  ///< writing, flushing or closing failed

/// Opens files for the user (a log in the system's text viewer, for example).
class IFileViewer {
 public:
  virtual ~IFileViewer() = default;
  virtual Result<void> Open(std::string_view path) = 0;
};

/// The host's status bar: progress of the running operation.
class IStatusBar {
 public:
  virtual ~IStatusBar() = default;
  /// `fraction` in [0, 1]; `text` says what is running.
  virtual void SetProgress(std::string_view text, double fraction) = 0;
  /// The operation ended; the bar is cleared.
  virtual void Clear() = 0;
};

}  // namespace vex
