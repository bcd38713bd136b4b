// Inputs the host and the command line read from the user's disk. Only regular files are read:
// a directory, a FIFO, a device or a socket is refused by name before any reader opens it, so
// that no reader blocks on a pipe, probes /dev/zero forever or dies on a directory.
#pragma once

#include <string>
#include <string_view>

#include "vex/error.h"

namespace host {

/// Succeeds when `path` names a regular file (links followed). Otherwise a FileIO error
/// "PATH: cannot read: <reason>" where the reason is the OS's text ("No such file or directory",
/// "Permission denied") or "is a directory", "is a FIFO", "is a device", "is a socket".
vex::Result<void> CheckInputFile(const std::string& path);

/// The whole file as bytes, after the same check (made on the opened file, so a path swapped for a
/// FIFO between the check and the open cannot block). Errors name the path and the OS's reason.
vex::Result<std::string> ReadInputFile(const std::string& path);

/// `value` in double quotes for a message, cut to at most 200 characters: a longer value ends in
/// "..." followed by its full size, so a megabyte-long key is never echoed whole. Control
/// characters are written as \n, \t or \xNN so that a message stays on one line.
std::string Quoted(std::string_view value);

/// `text` as it is when at most 200 characters long, else its first 200 followed by
/// "... (N bytes)": for places in messages that are built from the file's own keys.
std::string Shortened(std::string_view text);

/// The OS's text for an errno value ("Is a directory"); never "Success": 0 gives "unknown error".
std::string OsErrorText(int error);

}  // namespace host
