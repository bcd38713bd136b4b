// Output that appears whole or not at all: every file or directory a command writes is first
// written under a scratch name beside its target and put in place by a rename once it is
// complete. What is discarded (a failure, or the owner going away before committing) is removed,
// and so are the parent directories the staging created. The scratch name is fixed for a target
// (".vexinterop-partial-<target name>"), so the leftovers of a killed run are removed the next
// time the same target is staged.
#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "vex/error.h"

namespace host {

class StagedOutput {
 public:
  /// Every scratch name starts with this prefix followed by the target's file name.
  static constexpr std::string_view kScratchPrefix = ".vexinterop-partial-";

  enum class Kind {
    File,       ///< the scratch is a file path (nothing is created there yet)
    Directory,  ///< the scratch is an empty directory; the commit replaces the target directory
  };

  /// With `createParents` false, a target whose directory does not exist is refused instead.
  explicit StagedOutput(bool createParents = true) : createParents_(createParents) {}
  StagedOutput(const StagedOutput&) = delete;
  StagedOutput& operator=(const StagedOutput&) = delete;
  /// Discards everything not committed (see Discard).
  ~StagedOutput();

  /// Stages `target`: creates its missing parent directories (remembered), removes the scratch
  /// left by an earlier run of the same target and returns the entry's number. FileIO naming the
  /// path when a directory cannot be made, or when the target is a directory where a file is
  /// staged (or the reverse).
  vex::Result<std::size_t> Stage(const std::string& target, Kind kind);
  /// The scratch path to write entry `id` to.
  std::string Scratch(std::size_t id) const;
  const std::string& Target(std::size_t id) const;

  /// Puts entry `id` in place by renaming its scratch to the target (replacing a file, or a
  /// directory as a whole). On failure the entry is discarded.
  vex::Result<void> Commit(std::size_t id);
  /// Commits every staged entry in the order staged; stops at the first failure, discarding that
  /// entry and every later one (earlier ones stay committed).
  vex::Result<void> CommitAll();
  /// Removes the scratch of entry `id`.
  void Discard(std::size_t id);
  /// Removes the scratch of every entry not committed, then every directory the staging created
  /// that holds nothing any more (deepest first).
  void Discard();

  /// The scratch path that `target` gets, whether or not it is staged.
  static std::string ScratchFor(const std::string& target);

 private:
  struct Entry {
    std::string target;
    std::string scratch;
    Kind kind;
    bool open = true;
  };
  vex::Result<void> MakeParents(const std::string& target);
  void DiscardLocked(Entry& entry);
  bool createParents_ = true;
  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
  std::vector<std::string> createdDirectories_;  ///< in the order made (parents first)
};

/// Writes `bytes` to `path` through a staged output of its own (scratch file, then rename);
/// with `createParents` false the directory must exist.
vex::Result<void> WriteFileStaged(const std::string& path, std::string_view bytes, bool createParents = true);

}  // namespace host
