#include "host/staged_output.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace host {
namespace {

/// Where a replaced directory waits while its successor is renamed into place.
fs::path ReplacedName(const fs::path& scratch) { return fs::path(scratch.string() + "~replaced"); }

void RemoveQuietly(const fs::path& path) {
  std::error_code ec;
  fs::remove_all(path, ec);
}

}  // namespace

StagedOutput::~StagedOutput() { Discard(); }

std::string StagedOutput::ScratchFor(const std::string& target) {
  const fs::path path(target);
  return (path.parent_path() / (std::string(kScratchPrefix) + path.filename().string())).string();
}

vex::Result<void> StagedOutput::MakeParents(const std::string& target) {
  const fs::path parent = fs::path(target).parent_path();
  if (parent.empty()) return {};
  std::vector<fs::path> missing;
  std::error_code ec;
  for (fs::path p = parent; !p.empty() && !fs::exists(p, ec); p = p.parent_path()) {
    missing.push_back(p);
    if (p == p.parent_path()) break;
  }
  std::reverse(missing.begin(), missing.end());
  if (!createParents_ && !missing.empty())
    return VEX_FAIL(vex::ErrorKind::FileIO, target + ": cannot write: " + parent.string() + " does not exist");
  for (const auto& dir : missing) {
    if (!fs::create_directory(dir, ec) && ec)
      return VEX_FAIL(vex::ErrorKind::FileIO,
                      target + ": cannot create the directory " + dir.string() + ": " + ec.message());
    createdDirectories_.push_back(dir.string());
  }
  if (!fs::is_directory(parent, ec))
    return VEX_FAIL(vex::ErrorKind::FileIO, target + ": cannot write: " + parent.string() + " is not a directory");
  return {};
}

vex::Result<std::size_t> StagedOutput::Stage(const std::string& target, Kind kind) {
  std::lock_guard lock(mutex_);
  if (target.empty() || fs::path(target).filename().empty())
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, "\"" + target + "\": not a file or directory name");
  std::error_code ec;
  const auto status = fs::status(target, ec);
  if (kind == Kind::File && fs::is_directory(status))
    return VEX_FAIL(vex::ErrorKind::FileIO, target + ": cannot write: is a directory");
  if (kind == Kind::Directory && fs::exists(status) && !fs::is_directory(status))
    return VEX_FAIL(vex::ErrorKind::FileIO, target + ": cannot write: exists and is not a directory");
  VEX_TRY(MakeParents(target));
  const fs::path scratch = ScratchFor(target);
  // What a killed run of the same target left behind.
  RemoveQuietly(scratch);
  RemoveQuietly(ReplacedName(scratch));
  if (kind == Kind::Directory && !fs::create_directory(scratch, ec))
    return VEX_FAIL(vex::ErrorKind::FileIO,
                    scratch.string() + ": cannot create the directory: " + (ec ? ec.message() : "it exists"));
  entries_.push_back({target, scratch.string(), kind, true});
  return entries_.size() - 1;
}

std::string StagedOutput::Scratch(std::size_t id) const {
  std::lock_guard lock(mutex_);
  return entries_.at(id).scratch;
}

const std::string& StagedOutput::Target(std::size_t id) const {
  std::lock_guard lock(mutex_);
  return entries_.at(id).target;
}

vex::Result<void> StagedOutput::Commit(std::size_t id) {
  std::lock_guard lock(mutex_);
  Entry& entry = entries_.at(id);
  if (!entry.open) return {};
  std::error_code ec;
  const fs::path target(entry.target);
  if (entry.kind == Kind::File) {
    if (!fs::exists(entry.scratch, ec)) {
      DiscardLocked(entry);
      return VEX_FAIL(vex::ErrorKind::FileIO, entry.target + ": nothing was written");
    }
    fs::rename(entry.scratch, target, ec);  // replaces an existing file in one step
    if (ec) {
      DiscardLocked(entry);
      return VEX_FAIL(vex::ErrorKind::FileIO, entry.target + ": cannot put the file in place: " + ec.message());
    }
  } else {
    const fs::path replaced = ReplacedName(entry.scratch);
    const bool existed = fs::exists(target, ec);
    if (existed) {
      fs::rename(target, replaced, ec);
      if (ec) {
        DiscardLocked(entry);
        return VEX_FAIL(vex::ErrorKind::FileIO, entry.target + ": cannot replace the directory: " + ec.message());
      }
    }
    fs::rename(entry.scratch, target, ec);
    if (ec) {
      const std::string reason = ec.message();
      if (existed) fs::rename(replaced, target, ec);
      DiscardLocked(entry);
      return VEX_FAIL(vex::ErrorKind::FileIO, entry.target + ": cannot put the directory in place: " + reason);
    }
    RemoveQuietly(replaced);
  }
  entry.open = false;
  return {};
}

vex::Result<void> StagedOutput::CommitAll() {
  std::size_t n = 0;
  {
    std::lock_guard lock(mutex_);
    n = entries_.size();
  }
  for (std::size_t i = 0; i < n; ++i) {
    if (auto committed = Commit(i); !committed) {
      Discard();
      return committed;
    }
  }
  return {};
}

void StagedOutput::DiscardLocked(Entry& entry) {
  if (!entry.open) return;
  RemoveQuietly(entry.scratch);
  entry.open = false;
}

void StagedOutput::Discard(std::size_t id) {
  std::lock_guard lock(mutex_);
  DiscardLocked(entries_.at(id));
}

void StagedOutput::Discard() {
  std::lock_guard lock(mutex_);
  for (auto& entry : entries_) DiscardLocked(entry);
  // Deepest first; a directory that holds anything (a committed output, someone else's file)
  // stays.
  for (auto it = createdDirectories_.rbegin(); it != createdDirectories_.rend(); ++it) {
    std::error_code ec;
    if (fs::is_directory(*it, ec) && fs::is_empty(*it, ec)) fs::remove(*it, ec);
  }
  createdDirectories_.clear();
}

vex::Result<void> WriteFileStaged(const std::string& path, std::string_view bytes, bool createParents) {
  StagedOutput staged(createParents);
  VEX_ASSIGN(const std::size_t id, staged.Stage(path, StagedOutput::Kind::File));
  const std::string scratch = staged.Scratch(id);
  {
    std::ofstream out(scratch, std::ios::binary | std::ios::trunc);
    if (!out) {
      const int error = errno;
      return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot write: " + std::strerror(error));
    }
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.flush();
    if (!out) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot write (disk full?)");
  }
  return staged.Commit(id);
}

}  // namespace host
