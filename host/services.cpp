#include "host/services.h"

#include <sys/xattr.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include <nlohmann/json.hpp>
#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/parallel_for.h>

#include "host/paramset_json.h"

namespace fs = std::filesystem;

namespace host {

std::string NativePath(std::string_view path) {
  std::string out(path);
  for (char& c : out)
    if (c == '\\') c = '/';
  return out;
}

// --- console -----------------------------------------------------------------------------------

void Console::Print(std::string_view line) {
  std::lock_guard lock(mutex_);
  lines_.emplace_back(line);
  if (!quiet) std::cerr << line << '\n';
}

void Console::Diagnostic(std::string_view text, std::string_view unit, int line) {
  std::string full(text);
  full.append(" [").append(unit).append(":").append(std::to_string(line)).append("]");
  Print(full);
}

std::vector<std::string> Console::Lines() const {
  std::lock_guard lock(mutex_);
  return lines_;
}

void Console::Clear() {
  std::lock_guard lock(mutex_);
  lines_.clear();
}

// --- parallel-for --------------------------------------------------------------------------------

struct Parallel::Impl {
  std::unique_ptr<tbb::global_control> limit;
};

Parallel::Parallel(int maxThreads) : impl_(std::make_unique<Impl>()) {
  if (maxThreads > 0)
    impl_->limit = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism,
                                                         static_cast<std::size_t>(maxThreads));
}

Parallel::~Parallel() = default;

vex::Result<void> Parallel::ParallelFor(std::int64_t count, vex::FunctionRef<void(std::int64_t, std::int64_t)> body,
                                        std::int64_t grain) {
  if (count < 0 || !body)
    return std::unexpected(vex::MakeError(vex::ErrorKind::IllegalState,
                                          "Assertion failed: Someone has broken ParallelFor.", "parallelfordynamic",
                                          __LINE__));
  if (count == 0) return {};
  const std::int64_t g = grain > 0 ? grain : 1;
  if (count <= g) {
    body(0, count);
    return {};
  }
  tbb::parallel_for(tbb::blocked_range<std::int64_t>(0, count, static_cast<std::size_t>(g)),
                    [&](const tbb::blocked_range<std::int64_t>& r) { body(r.begin(), r.end()); });
  return {};
}

// --- configuration -------------------------------------------------------------------------------

vex::Result<void> Configuration::Register(std::string_view name, std::string_view help, std::string_view fallback) {
  std::lock_guard lock(mutex_);
  auto [it, inserted] = values_.try_emplace(std::string(name));
  it->second.help = std::string(help);
  if (inserted) it->second.value = std::string(fallback);
  return {};
}

std::string Configuration::GetString(std::string_view name) const {
  std::lock_guard lock(mutex_);
  const auto it = values_.find(name);
  return it == values_.end() ? std::string() : it->second.value;
}

vex::Result<void> Configuration::SetString(std::string_view name, std::string_view value) {
  std::lock_guard lock(mutex_);
  const auto it = values_.find(name);
  if (it == values_.end())
    return VEX_FAIL(vex::ErrorKind::NotFound, "Unknown setting: " + std::string(name));
  it->second.value = std::string(value);
  return {};
}

// --- clock ---------------------------------------------------------------------------------------

double Clock::NowSeconds() const {
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

// --- resources -----------------------------------------------------------------------------------

vex::Result<vex::StringTable> Resources::LoadModuleStrings(const vex::ModuleHostContext& module) {
  const fs::path library(module.modulePath);
  std::string stem = library.stem().string();
  if (stem.rfind("lib", 0) == 0) stem = stem.substr(3);
  const fs::path file = fs::path(module.resourceDir) / (stem + ".strings.json");
  std::ifstream in(file);
  if (!in) return VEX_FAIL(vex::ErrorKind::FileIO, file.string() + ": cannot open the string resources");
  auto json = nlohmann::json::parse(in, nullptr, false);
  if (json.is_discarded() || !json.is_object())
    return VEX_FAIL(vex::ErrorKind::FileIO, file.string() + ": not a JSON object of strings");
  vex::StringTable table;
  for (const auto& [key, value] : json.items()) {
    char* end = nullptr;
    const long id = std::strtol(key.c_str(), &end, 10);
    if (end == key.c_str() || *end != '\0' || !value.is_string())
      return VEX_FAIL(vex::ErrorKind::FileIO, file.string() + ": entry \"" + key + "\" is not <number>: <text>");
    table.Set(static_cast<std::int32_t>(id), value.get<std::string>());
  }
  return table;
}

// --- dialogs -------------------------------------------------------------------------------------

void Dialogs::Message(std::string_view text) {
  std::lock_guard lock(mutex_);
  records_.push_back({std::string(text), false, false});
  if (echo) std::cerr << "[dialog] " << text << '\n';
}

bool Dialogs::Question(std::string_view text) {
  std::lock_guard lock(mutex_);
  records_.push_back({std::string(text), true, answerQuestions});
  if (echo) std::cerr << "[question] " << text << (answerQuestions ? " -> yes" : " -> no") << '\n';
  return answerQuestions;
}

std::optional<std::vector<bool>> Dialogs::Choose(std::string_view text, const std::vector<Choice>& choices) {
  std::lock_guard lock(mutex_);
  std::vector<bool> answer;
  for (std::size_t i = 0; i < choices.size(); ++i)
    answer.push_back(choices[i].enabled && choiceAnswers && i < choiceAnswers->size() ? (*choiceAnswers)[i]
                                                                                       : choices[i].preset);
  std::string record(text);
  for (std::size_t i = 0; i < choices.size(); ++i)
    record += std::string("\n") + (!choices[i].enabled ? "[-] " : answer[i] ? "[x] " : "[ ] ") + choices[i].label;
  records_.push_back({record, true, !cancelChoices});
  if (echo) std::cerr << "[choose] " << record << (cancelChoices ? "\n-> cancel" : "\n-> ok") << '\n';
  if (cancelChoices) return std::nullopt;
  return answer;
}

std::vector<Dialogs::Record> Dialogs::Records() const {
  std::lock_guard lock(mutex_);
  return records_;
}

void Dialogs::Clear() {
  std::lock_guard lock(mutex_);
  records_.clear();
}

// --- files ---------------------------------------------------------------------------------------

namespace {

class PlainFile final : public vex::IFile {
 public:
  PlainFile(std::FILE* f, std::string path) : file_(f), path_(std::move(path)) {}
  ~PlainFile() override {
    if (file_) std::fclose(file_);
  }
  vex::Result<void> Write(const void* bytes, std::size_t size) override {
    if (!file_) return VEX_FAIL(vex::ErrorKind::FileIO, path_ + ": file is closed");
    if (size != 0 && std::fwrite(bytes, 1, size, file_) != size)
      return VEX_FAIL(vex::ErrorKind::FileIO, path_ + ": write failed");
    return {};
  }
  vex::Result<void> Close() override {
    if (!file_) return {};
    const bool ok = std::fclose(file_) == 0;
    file_ = nullptr;
    if (!ok) return VEX_FAIL(vex::ErrorKind::FileIO, path_ + ": close failed");
    return {};
  }

 private:
  std::FILE* file_;
  std::string path_;
};

}  // namespace

bool FileSystem::Exists(std::string_view path) const {
  std::error_code ec;
  return fs::exists(NativePath(path), ec);
}

bool FileSystem::IsDirectory(std::string_view path) const {
  std::error_code ec;
  return fs::is_directory(NativePath(path), ec);
}

vex::Result<void> FileSystem::CreateDirectory(std::string_view path) {
  std::error_code ec;
  fs::create_directories(NativePath(path), ec);
  if (ec) return VEX_FAIL(vex::ErrorKind::FileIO, std::string(path) + ": cannot create directory: " + ec.message());
  return {};
}

vex::Result<void> FileSystem::Remove(std::string_view path) {
  std::error_code ec;
  fs::remove(NativePath(path), ec);
  if (ec) return VEX_FAIL(vex::ErrorKind::FileIO, std::string(path) + ": cannot remove: " + ec.message());
  return {};
}

vex::Result<std::unique_ptr<vex::IFile>> FileSystem::OpenWrite(std::string_view path,
                                                               const vex::FileOpenOptions& options) {
  // The byte order concerns only values wider than a byte; type and creator are kept below.
  const std::string native = NativePath(path);
  std::FILE* f = std::fopen(native.c_str(), "wb");
  if (!f) return VEX_FAIL(vex::ErrorKind::FileIO, native + ": cannot open for writing");
  {
    std::lock_guard lock(openedMutex_);
    opened_.push_back({native, options});
  }
  // Kept where the file system has extended attributes; silently dropped where it has not.
  if (!options.type.empty()) (void)setxattr(native.c_str(), "user.vexon.type", options.type.data(), options.type.size(), 0);
  if (!options.creator.empty())
    (void)setxattr(native.c_str(), "user.vexon.creator", options.creator.data(), options.creator.size(), 0);
  std::setvbuf(f, nullptr, _IOFBF, 1 << 20);
  return std::unique_ptr<vex::IFile>(std::make_unique<PlainFile>(f, native));
}

std::vector<FileSystem::OpenRecord> FileSystem::Opened() const {
  std::lock_guard lock(openedMutex_);
  return opened_;
}

std::string FileSystem::UserWritePath() const {
  if (!userWritePath.empty()) return userWritePath;
  if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg) return (fs::path(xdg) / "vexon").string();
  if (const char* home = std::getenv("HOME"); home && *home)
    return (fs::path(home) / ".local" / "share" / "vexon").string();
  return (fs::temp_directory_path() / "vexon").string();
}

vex::Result<void> FileSystem::WriteParameterSet(std::string_view path, const vex::ParameterSet& set) {
  const std::string native = NativePath(path);
  const fs::path parent = fs::path(native).parent_path();
  if (!parent.empty() && !IsDirectory(parent.string()))
    return VEX_FAIL(vex::ErrorKind::FileIO, parent.string() + ": directory does not exist");
  std::ofstream out(native, std::ios::binary);
  if (!out) return VEX_FAIL(vex::ErrorKind::FileIO, native + ": cannot open for writing");
  out << json::DumpParameterSet(set, json::TextureMode::Embed);
  out.close();
  if (!out) return VEX_FAIL(vex::ErrorKind::FileIO, native + ": write failed");
  return {};
}

// --- ids -----------------------------------------------------------------------------------------

vex::InternedId IdTable::Intern(std::string_view text) {
  std::lock_guard lock(mutex_);
  const auto it = index_.find(text);
  if (it != index_.end()) return vex::InternedId::FromTableEntry(it->second);
  entries_.push_back({std::string(text), vex::HashId(text)});
  const vex::IdEntry* entry = &entries_.back();
  index_.emplace(entry->text, entry);
  return vex::InternedId::FromTableEntry(entry);
}

}  // namespace host
