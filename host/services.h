// The reference host's basic services: console, parallel-for, configuration,
// clock, resources, dialogs, files, images and the id table.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "vex/host.h"

namespace host {

/// Console: lines go to stderr (unless quiet) and into an in-memory log.
class Console final : public vex::IConsole {
 public:
  void Print(std::string_view line) override;
  void Diagnostic(std::string_view text, std::string_view unit, int line) override;
  std::vector<std::string> Lines() const;
  void Clear();
  bool quiet = false;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

/// Parallel-for on oneTBB. The worker count is oneTBB's (all cores) unless limited.
class Parallel final : public vex::IParallel {
 public:
  explicit Parallel(int maxThreads = 0);
  ~Parallel() override;
  vex::Result<void> ParallelFor(std::int64_t count, vex::FunctionRef<void(std::int64_t, std::int64_t)> body,
                                std::int64_t grain) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

class Configuration final : public vex::IConfiguration {
 public:
  struct Value {
    std::string help;
    std::string value;
  };
  vex::Result<void> Register(std::string_view name, std::string_view help, std::string_view fallback) override;
  std::string GetString(std::string_view name) const override;
  vex::Result<void> SetString(std::string_view name, std::string_view value) override;
  const std::map<std::string, Value, std::less<>>& Values() const { return values_; }

 private:
  mutable std::mutex mutex_;
  std::map<std::string, Value, std::less<>> values_;
};

class Clock final : public vex::IClock {
 public:
  double NowSeconds() const override;
};

/// Reads "<resourceDir>/<library stem>.strings.json": {"10000": "text", ...}.
class Resources final : public vex::IResources {
 public:
  vex::Result<vex::StringTable> LoadModuleStrings(const vex::ModuleHostContext& module) override;
};

/// Non-interactive dialogs: recorded; questions answered by `answerQuestions`.
class Dialogs final : public vex::IDialogs {
 public:
  struct Record {
    std::string text;
    bool question = false;
    bool answer = false;
  };
  void Message(std::string_view text) override;
  bool Question(std::string_view text) override;
  /// Recorded as a question whose text lists the boxes as answered ("[x] label"). Answers with
  /// `choiceAnswers` when set (boxes past its end keep their preset), else with the presets;
  /// `cancelChoices` cancels.
  std::optional<std::vector<bool>> Choose(std::string_view text, const std::vector<Choice>& choices) override;
  std::vector<Record> Records() const;
  void Clear();
  bool answerQuestions = false;
  bool echo = false;  ///< print each dialog to stderr
  std::optional<std::vector<bool>> choiceAnswers;
  bool cancelChoices = false;

 private:
  mutable std::mutex mutex_;
  std::vector<Record> records_;
};

/// Plain files. "\" and "/" both separate path components.
class FileSystem final : public vex::IFileSystem {
 public:
  bool Exists(std::string_view path) const override;
  bool IsDirectory(std::string_view path) const override;
  vex::Result<void> CreateDirectory(std::string_view path) override;
  vex::Result<void> Remove(std::string_view path) override;
  vex::Result<std::unique_ptr<vex::IFile>> OpenWrite(std::string_view path,
                                                     const vex::FileOpenOptions& options) override;
  std::string UserWritePath() const override;
  vex::Result<void> WriteParameterSet(std::string_view path, const vex::ParameterSet& set) override;
  std::string userWritePath;  ///< empty: $XDG_DATA_HOME or ~/.local/share, then "vexon"
  /// Every file OpenWrite opened, with the options asked for. On file systems with extended
  /// attributes a four-character type and creator are also kept as "user.vexon.type" and
  /// "user.vexon.creator"; the byte order concerns only values wider than a byte.
  struct OpenRecord {
    std::string path;
    vex::FileOpenOptions options;
  };
  std::vector<OpenRecord> Opened() const;

 private:
  mutable std::mutex openedMutex_;
  std::vector<OpenRecord> opened_;
};

/// Image files through OpenImageIO.
class Images final : public vex::IImages {
 public:
  vex::Result<vex::TextureBuffer> Read(std::string_view path, bool colorData) override;
};

class IdTable final : public vex::IIdTable {
 public:
  vex::InternedId Intern(std::string_view text) override;

 private:
  std::mutex mutex_;
  std::deque<vex::IdEntry> entries_;
  std::map<std::string, const vex::IdEntry*, std::less<>> index_;
};

/// Turns a path with either separator into the platform's form.
std::string NativePath(std::string_view path);

}  // namespace host
