// vexinterop convert | import: parameter sets to files other tools open, and
// such files back to parameter sets.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <set>

#include <nlohmann/json.hpp>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/task_arena.h>

#include "cli/commands.h"
#include "host/formats/catalogue.h"
#include "host/formats/conversion.h"
#include "host/formats/formats.h"
#include "host/formats/scene_bridge.h"
#include "host/input_files.h"
#include "host/json_text.h"
#include "host/material_exchange.h"
#include "host/paramset_json.h"
#include "host/scene_file.h"
#include "host/staged_output.h"
#include "vex/interfaces.h"
#include "vex/lookup.h"
#include "vex/ports.h"

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

namespace cli {
namespace {

std::string Describe(const vex::Error& error) {
  return error.message + " (" + error.unit + ":" + std::to_string(error.line) + ")";
}

// --- convert --------------------------------------------------------------------------------------

struct ConvertArgs {
  std::vector<std::string> inputs;
  std::string fromList;  ///< a file naming inputs, one per line
  std::string shard;     ///< "K/N": every N-th input from the K-th
  std::int64_t textureSize = 1024;  ///< scenes: size of baked textures
  std::string to;
  std::string output;
  bool emissiveStrength = false;
  bool fbxAscii = false;
  bool glb = false;
  bool embedTextures = false;
  bool floatTextures = false;
  int maxTextureSize = 0;
  bool powerOfTwo = false;
  std::string report;
};

struct Outcome {
  bool ok = false;
  bool noMapping = false;
  std::string message;  ///< the failure, or what was written
  std::vector<std::string> warnings;
  Json report = Json::object();  ///< what each port of the written set became (for --report)
};

/// The report entry of a written material: every port of the set the writer took, with its
/// value (textures by size and by the file they became), the defaults a mapping used, warnings.
Json ReportEntry(const host::formats::Converted& formatSet, const host::formats::WrittenFiles& written,
                 const std::vector<std::string>& resized) {
  Json entry = Json::object();
  entry["bundle"] = formatSet.set->GetBundle().Str();
  entry["mapped"] = formatSet.mapped;
  entry["files"] = written.files;
  Json ports = Json::parse(host::json::DumpParameterSet(*formatSet.set, host::json::TextureMode::Describe))["parameters"];
  for (const auto& t : written.textures)
    if (ports.contains(t.port)) ports[t.port]["file"] = t.file;
  entry["ports"] = std::move(ports);
  Json defaults = Json::array();
  for (const auto& d : formatSet.defaults) defaults.push_back({{"source", d.sourcePort}, {"target", d.targetPort}});
  entry["defaultsUsed"] = std::move(defaults);
  entry["resized"] = resized;
  entry["warnings"] = written.warnings;
  return entry;
}

std::string ReportValue(const Json& port) {
  if (port.contains("value")) return port["value"].dump();
  if (port.contains("url")) return port["url"].dump();
  return "";
}

/// The report as Markdown: one section per input.
std::string ReportMarkdown(const Json& report) {
  std::string md = "# vexinterop convert to " + report["format"].get<std::string>() + "\n";
  for (const auto& m : report["materials"]) {
    md += "\n## " + m["input"].get<std::string>() + "\n\n";
    if (!m["ok"].get<bool>()) {
      md += "Failed: " + m["error"].get<std::string>() + "\n";
      continue;
    }
    if (m.contains("scene")) {
      md += "Scene; files: " + m["files"].front().get<std::string>() + "\n";
      for (const auto& w : m["warnings"]) md += "\nWarning: " + w.get<std::string>() + "\n";
      continue;
    }
    md += "Bundle `" + m["bundle"].get<std::string>() + "`" + (m["mapped"].get<bool>() ? " (mapped)" : "") +
          "; files: " + m["files"].front().get<std::string>() + "\n\n| port | value | texture |\n|---|---|---|\n";
    for (const auto& [port, value] : m["ports"].items()) {
      std::string texture;
      if (value.contains("texture"))
        texture = value.value("file", std::string("-")) + " (" + std::to_string(value["texture"]["width"].get<int>()) +
                  "x" + std::to_string(value["texture"]["height"].get<int>()) + ")";
      md += "| " + port + " | " + ReportValue(value) + " | " + texture + " |\n";
    }
    for (const auto& d : m["defaultsUsed"])
      md += "\nDefault used: " + d["source"].get<std::string>() + " -> " + d["target"].get<std::string>() + "\n";
    for (const auto& r : m["resized"]) md += "\nResized: " + r.get<std::string>() + "\n";
    for (const auto& w : m["warnings"]) md += "\nWarning: " + w.get<std::string>() + "\n";
  }
  return md;
}

/// Stages the report (Markdown for a ".md" name, else JSON) with the run's other output.
vex::Result<void> StageReport(const std::string& path, const Json& report, host::StagedOutput& staged) {
  const std::string text = fs::path(path).extension() == ".md" ? ReportMarkdown(report) : host::DumpJsonText(report, 2) + "\n";
  VEX_ASSIGN(const std::size_t id, staged.Stage(path, host::StagedOutput::Kind::File));
  std::ofstream out(staged.Scratch(id), std::ios::binary);
  out << text;
  out.close();
  if (!out) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot write: " + host::OsErrorText(errno));
  return {};
}

Outcome Failed(const vex::Error& error) {
  Outcome outcome;
  outcome.message = Describe(error);
  outcome.noMapping = error.kind == vex::ErrorKind::NotFound;
  return outcome;
}

host::formats::WriteOptions FormatWriteOptions(const ConvertArgs& args) {
  host::formats::WriteOptions write;
  write.emissiveStrength = args.emissiveStrength;
  write.fbxAscii = args.fbxAscii;
  write.glb = args.glb;
  write.embedTextures = args.embedTextures;
  write.floatTextures = args.floatTextures;
  return write;
}

/// One set (from a JSON file, or from a scene's material exporter) as the material `name` in
/// "<out>/<name>/": carried into a bundle the format's writer takes, fitted, and written as a
/// folder staged in `staged` that replaces the target folder when it is complete. Module calls
/// are made under `moduleLock`: the component system serves one caller at a time; reading and
/// writing files run in parallel.
Outcome WriteSetAsFile(host::ReferenceHost& host, std::mutex& moduleLock, const vex::ParameterSetRef& source,
                       const std::string& name, const host::formats::FormatRow& row, const fs::path& out,
                       const ConvertArgs& args, host::StagedOutput& staged) {
  Outcome outcome;
  const auto fail = [](const vex::Error& error) { return Failed(error); };
  host::formats::ConversionContext conversion{&host.documents()};
  // The mapping's pixel loops run on the same thread pool: isolated, a thread waiting for them
  // cannot pick up another input's conversion, which would wait for this lock forever.
  vex::Result<host::formats::Converted> formatSet = tbb::this_task_arena::isolate([&] {
    std::lock_guard lock(moduleLock);
    return host::formats::ToWriterBundle(source, row, conversion);
  });
  if (!formatSet) return fail(formatSet.error());
  std::vector<std::string> resized;
  if (args.maxTextureSize > 0 || args.powerOfTwo) {
    auto fitted = std::make_shared<vex::ParameterSet>(*formatSet->set);
    auto notes = host::formats::FitTextures(*fitted, args.maxTextureSize, args.powerOfTwo);
    if (!notes) return fail(notes.error());
    resized = std::move(*notes);
    formatSet->set = std::move(fitted);
  }

  const std::string stem = host::formats::SafeName(name);
  const fs::path target = out / stem;
  auto written = host::formats::WriteFormatFile(row, host::formats::PreviewScene(name, formatSet->set), target.string(),
                                                stem, host.bundles(), FormatWriteOptions(args), staged);
  if (!written) return fail(written.error());
  written->warnings.insert(written->warnings.begin(), formatSet->warnings.begin(), formatSet->warnings.end());
  outcome.ok = true;
  outcome.message = (target / written->files.front()).string();
  if (!args.report.empty()) outcome.report = ReportEntry(*formatSet, *written, resized);
  outcome.warnings = std::move(written->warnings);
  return outcome;
}

/// True for the inputs that are whole scenes: .vex and every file a reader of the catalogue takes.
bool IsScene(const std::string& path) {
  std::string suffix = fs::path(path).extension().string();
  std::transform(suffix.begin(), suffix.end(), suffix.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return suffix == "." + std::string(host::scene_file::kSuffix) || host::formats::FindReader(path) != nullptr;
}

bool IsVexFile(const std::string& path) {
  std::string suffix = fs::path(path).extension().string();
  std::transform(suffix.begin(), suffix.end(), suffix.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return suffix == "." + std::string(host::scene_file::kSuffix);
}

/// The module's light classes, made once per use.
struct LightServices {
  std::shared_ptr<vex::IGlobalUtils> utils;
  std::shared_ptr<vex::IGlobalImport> importer;
};

vex::Result<LightServices> OpenLightServices() {
  LightServices s;
  VEX_ASSIGN(s.utils, vex::CreateAs<vex::IGlobalUtils>(host::formats::kGlobalUtilsClass));
  VEX_ASSIGN(s.importer, vex::CreateAs<vex::IGlobalImport>(host::formats::kGlobalImportClass));
  return s;
}

/// Closes a document of the host when the scope ends.
struct CloseDocument {
  host::ReferenceHost& host;
  host::Document* document = nullptr;
  ~CloseDocument() {
    if (document != nullptr) host.documents().Close(document);
  }
};

/// A scene file read and checked: the files it names exist (a missing texture fails the scene
/// here, where reading a file's materials only warns), the reader takes it, and what it holds can
/// be written.
vex::Result<host::formats::SceneData> ReadSceneFile(host::ReferenceHost& host, const std::string& input,
                                                    host::formats::ReadOptions read = {}) {
  VEX_TRY(host::formats::CheckReferencedFiles(input));
  read.requireFiles = true;
  VEX_ASSIGN(host::formats::SceneData scene, host::formats::ReadFormatFile(input, host.bundles(), read));
  VEX_TRY(host::formats::ValidateScene(scene, input));
  scene.name = fs::path(input).stem().string();
  return scene;
}

/// A .vex scene loaded as a document of the host and checked as a scene file is: the texture
/// files its materials name exist. The caller closes the document.
vex::Result<host::Document*> LoadSceneFile(host::ReferenceHost& host, const std::string& input) {
  VEX_ASSIGN(host::Document * document, LoadScene(host, input));
  if (auto present = host::formats::CheckDocumentFiles(*document, input); !present) {
    host.documents().Close(document);
    return std::unexpected(present.error());
  }
  return document;
}

/// The scene built into a new document of the host and saved with its textures as `path`
/// (inside a staged folder). Call under the module lock.
vex::Result<std::size_t> SaveSceneAsVex(host::ReferenceHost& host, host::formats::SceneData&& scene,
                                        const std::string& source, const std::string& path,
                                        std::vector<std::string>& warnings) {
  VEX_ASSIGN(const LightServices services, OpenLightServices());
  const fs::path file = fs::absolute(path);
  CloseDocument close{host, &host.documents().NewDocument(file.stem().string())};
  close.document->SetPath(file.parent_path().string());
  host::formats::DocumentImport how;
  how.utils = services.utils.get();
  how.importer = services.importer.get();
  VEX_ASSIGN(auto lost, host::formats::SceneIntoDocument(std::move(scene), *close.document, source, how));
  warnings.insert(warnings.end(), lost.begin(), lost.end());
  return SaveSceneWithTextures(*close.document, file.string());
}

/// A whole scene (.vex or a file a reader takes) as "<out>/<stem>/<stem>.<suffix>": every
/// object, material, light and camera. `row` is nullptr for a .vex output. The document work runs
/// under `moduleLock`; reading and writing files run in parallel.
Outcome ConvertScene(host::ReferenceHost& host, std::mutex& moduleLock, const std::string& input,
                     const host::formats::FormatRow* row, const fs::path& out, const ConvertArgs& args,
                     host::StagedOutput& staged) {
  Outcome outcome;
  const std::string stem = host::formats::SafeName(fs::path(input).stem().string());
  const fs::path target = out / stem;
  const bool vexInput = IsVexFile(input);
  host::formats::SceneData scene;
  if (!vexInput) {
    auto read = ReadSceneFile(host, input);
    if (!read) return Failed(read.error());
    scene = std::move(*read);
    outcome.warnings = std::move(scene.warnings);
    scene.warnings.clear();
  }

  if (row == nullptr) {
    auto id = staged.Stage(target.string(), host::StagedOutput::Kind::Directory);
    if (!id) return Failed(id.error());
    const std::string file = (fs::path(staged.Scratch(*id)) / (stem + "." + std::string(host::scene_file::kSuffix))).string();
    vex::Result<std::size_t> saved = tbb::this_task_arena::isolate([&]() -> vex::Result<std::size_t> {
      std::lock_guard lock(moduleLock);
      if (!vexInput) return SaveSceneAsVex(host, std::move(scene), input, file, outcome.warnings);
      VEX_ASSIGN(host::Document * document, LoadSceneFile(host, input));
      CloseDocument close{host, document};
      // The copy's relative file references still find their files from the new folder.
      host::RebaseFileReferences(*document, fs::path(file).parent_path().string());
      return SaveSceneWithTextures(*document, file);
    });
    if (!saved) {
      staged.Discard(*id);
      return Failed(saved.error());
    }
    if (auto committed = staged.Commit(*id); !committed) return Failed(committed.error());
    outcome.ok = true;
    outcome.message = (target / fs::path(file).filename()).string();
    return outcome;
  }

  vex::Result<void> prepared = tbb::this_task_arena::isolate([&]() -> vex::Result<void> {
    std::lock_guard lock(moduleLock);
    host::formats::ConversionContext conversion{&host.documents()};
    if (!vexInput) {
      VEX_ASSIGN(auto lines, host::formats::MaterialsToWriter(scene, *row, conversion));
      for (auto& line : lines) outcome.warnings.push_back(std::move(line));
      return {};
    }
    VEX_ASSIGN(const LightServices services, OpenLightServices());
    VEX_ASSIGN(host::Document * document, LoadSceneFile(host, input));
    CloseDocument close{host, document};
    host::formats::DocumentExport how;
    how.row = row;
    how.textureSize = args.textureSize;
    how.conversion = conversion;
    how.utils = services.utils.get();
    VEX_ASSIGN(scene, host::formats::SceneFromDocument(*document, input, how));
    scene.name = fs::path(input).stem().string();
    for (auto& line : scene.warnings) outcome.warnings.push_back(std::move(line));
    scene.warnings.clear();
    return {};
  });
  if (!prepared) return Failed(prepared.error());
  host::formats::ConvertFrameFor(scene, *row);
  if (auto valid = host::formats::ValidateScene(scene, input); !valid) return Failed(valid.error());
  auto written =
      host::formats::WriteFormatFile(*row, scene, target.string(), stem, host.bundles(), FormatWriteOptions(args), staged);
  if (!written) return Failed(written.error());
  outcome.ok = true;
  outcome.message = (target / written->files.front()).string();
  for (auto& w : written->warnings) outcome.warnings.push_back(std::move(w));
  if (!args.report.empty())
    outcome.report = {{"scene", true}, {"files", written->files}, {"warnings", outcome.warnings}};
  return outcome;
}

/// A parameter set as a .vex: the preview sphere with the material, through the same road as a
/// scene.
Outcome WriteSetAsVex(host::ReferenceHost& host, std::mutex& moduleLock, const std::string& input, const fs::path& out,
                      host::StagedOutput& staged) {
  auto set = ReadSetFile(host, input);
  if (!set) return Failed(set.error());
  const std::string name = fs::path(input).stem().string();
  const std::string stem = host::formats::SafeName(name);
  auto id = staged.Stage((out / stem).string(), host::StagedOutput::Kind::Directory);
  if (!id) return Failed(id.error());
  const std::string file = (fs::path(staged.Scratch(*id)) / (stem + "." + std::string(host::scene_file::kSuffix))).string();
  Outcome outcome;
  vex::Result<std::size_t> saved = tbb::this_task_arena::isolate([&]() -> vex::Result<std::size_t> {
    std::lock_guard lock(moduleLock);
    return SaveSceneAsVex(host,
                          host::formats::PreviewScene(name, std::make_shared<const vex::ParameterSet>(std::move(*set))),
                          input, file, outcome.warnings);
  });
  if (!saved) {
    staged.Discard(*id);
    return Failed(saved.error());
  }
  if (auto committed = staged.Commit(*id); !committed) return Failed(committed.error());
  outcome.ok = true;
  outcome.message = (out / stem / fs::path(file).filename()).string();
  return outcome;
}

Outcome ConvertOne(host::ReferenceHost& host, std::mutex& moduleLock, const std::string& input,
                   const host::formats::FormatRow* row, const fs::path& out, const ConvertArgs& args,
                   host::StagedOutput& staged) {
  if (IsScene(input)) return ConvertScene(host, moduleLock, input, row, out, args, staged);
  if (row == nullptr) return WriteSetAsVex(host, moduleLock, input, out, staged);
  auto set = ReadSetFile(host, input);
  if (!set) return Failed(set.error());
  const auto source = std::make_shared<const vex::ParameterSet>(std::move(*set));
  return WriteSetAsFile(host, moduleLock, source, fs::path(input).stem().string(), *row, out, args, staged);
}

/// The inputs of a run: those named on the command line, then those of --from-list (one per
/// line; blank lines and lines starting with '#' skipped; relative paths taken from the list's
/// folder), then only every N-th from the K-th when --shard K/N is given. Usage errors (exit 64)
/// for a bad --shard and a run without inputs.
struct Inputs {
  std::vector<std::string> paths;
  std::size_t before = 0;  ///< how many there were before the shard took its share
};

vex::Result<std::pair<std::size_t, std::size_t>> ParseShard(const std::string& text) {
  const auto fail = [&] {
    return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                    "--shard " + text + ": expected K/N with whole numbers 0 <= K < N (for example 0/4)");
  };
  const auto slash = text.find('/');
  if (slash == std::string::npos) return fail();
  const auto number = [](std::string_view digits, std::size_t& value) {
    if (digits.empty() || digits.size() > 9) return false;
    value = 0;
    for (const char c : digits) {
      if (c < '0' || c > '9') return false;
      value = value * 10 + static_cast<std::size_t>(c - '0');
    }
    return true;
  };
  std::size_t k = 0, n = 0;
  if (!number(std::string_view(text).substr(0, slash), k) || !number(std::string_view(text).substr(slash + 1), n) ||
      n == 0 || k >= n)
    return fail();
  return std::pair{k, n};
}

vex::Result<Inputs> CollectInputs(const ConvertArgs& args) {
  Inputs inputs;
  inputs.paths = args.inputs;
  if (!args.fromList.empty()) {
    VEX_ASSIGN(const std::string text, host::ReadInputFile(args.fromList));
    const fs::path folder = fs::path(args.fromList).parent_path();
    std::size_t start = 0;
    while (start <= text.size()) {
      std::size_t end = text.find('\n', start);
      if (end == std::string::npos) end = text.size();
      std::string line = text.substr(start, end - start);
      start = end + 1;
      while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) line.pop_back();
      const std::size_t first = line.find_first_not_of(" \t");
      if (first == std::string::npos || line[first] == '#') continue;
      const fs::path path(line.substr(first));
      inputs.paths.push_back(path.is_absolute() ? path.string() : (folder / path).string());
    }
  }
  inputs.before = inputs.paths.size();
  if (!args.shard.empty()) {
    VEX_ASSIGN(const auto shard, ParseShard(args.shard));
    std::vector<std::string> mine;
    for (std::size_t i = shard.first; i < inputs.paths.size(); i += shard.second) mine.push_back(inputs.paths[i]);
    inputs.paths = std::move(mine);
  }
  return inputs;
}

/// The format `--to` names, or the message listing the catalogue's names.
vex::Result<const host::formats::FormatRow*> ChosenFormat(const std::string& name) {
  const auto* row = host::formats::FindFormat(name);
  if (row == nullptr)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, "--to " + name + ": expected " + host::formats::FormatNames(", "));
  return row;
}

/// Warns about options the chosen format does not honour.
void WarnUnusedOptions(const host::formats::FormatRow& row, const ConvertArgs& args) {
  using namespace host::formats;
  const std::pair<FormatOption, bool> given[] = {{kOptionGlb, args.glb},
                                                 {kOptionEmissiveStrength, args.emissiveStrength},
                                                 {kOptionFbxAscii, args.fbxAscii},
                                                 {kOptionEmbedTextures, args.embedTextures},
                                                 {kOptionFloatTextures, args.floatTextures}};
  for (const auto& [option, on] : given)
    if (on && (row.options & option) == 0)
      std::cerr << "vexinterop: warning: " << OptionFlag(option) << " does not apply to " << row.name << '\n';
}

int RunConvert(Context& context, const ConvertArgs& given) {
  const bool toVex = given.to == host::scene_file::kSuffix;
  const host::formats::FormatRow* row = nullptr;
  if (!toVex) {
    auto chosen = ChosenFormat(given.to);
    if (!chosen) return Fail(chosen.error().message + ", " + std::string(host::scene_file::kSuffix));
    row = *chosen;
    WarnUnusedOptions(*row, given);
  }
  if (!given.shard.empty())
    if (auto shard = ParseShard(given.shard); !shard) return Fail(shard.error().message, kExitUsage);
  if (given.inputs.empty() && given.fromList.empty())
    return Fail("convert: name the inputs, or a list of them with --from-list", kExitUsage);
  auto collected = CollectInputs(given);
  if (!collected) return Fail(collected.error());
  ConvertArgs args = given;
  args.inputs = std::move(collected->paths);
  auto h = context.Host();
  if (!h) return Fail(h.error());
  host::ReferenceHost& host = **h;

  const fs::path out(args.output);
  std::error_code ec;
  if (fs::exists(out, ec) && !fs::is_directory(out, ec)) return Fail(args.output + ": not a directory");

  const std::size_t n = args.inputs.size();
  std::vector<Outcome> outcomes(n);
  // Two inputs with the same name would write the same folder: the later ones fail.
  std::map<std::string, std::string> byStem;
  std::vector<bool> clash(n, false);
  for (std::size_t i = 0; i < n; ++i) {
    const std::string stem = host::formats::SafeName(fs::path(args.inputs[i]).stem().string());
    auto [it, fresh] = byStem.emplace(stem, args.inputs[i]);
    if (!fresh) {
      clash[i] = true;
      outcomes[i].message = "writes the same folder " + stem + " as " + it->second;
    }
  }

  // Each input's folder is committed as soon as it is complete; the output directory, when this
  // run made it, goes again if nothing landed in it.
  host::StagedOutput staged;
  const bool terminal = isatty(STDERR_FILENO) != 0;
  std::mutex moduleLock;
  std::mutex printLock;
  std::atomic<std::size_t> done{0};
  tbb::parallel_for(std::size_t{0}, n, [&](std::size_t i) {
    if (!clash[i]) outcomes[i] = ConvertOne(host, moduleLock, args.inputs[i], row, out, args, staged);
    const std::size_t finished = ++done;
    if (terminal) {
      std::lock_guard lock(printLock);
      std::cerr << "\r\033[K[" << finished << "/" << n << "] " << fs::path(args.inputs[i]).filename().string()
                << std::flush;
    }
  });
  if (terminal) std::cerr << "\r\033[K";

  std::size_t succeeded = 0;
  bool allNoMapping = true;
  std::string kept;
  for (std::size_t i = 0; i < n; ++i) {
    const Outcome& o = outcomes[i];
    if (o.ok) {
      ++succeeded;
      kept += (kept.empty() ? "" : ", ") + fs::path(args.inputs[i]).stem().string();
      std::cout << "wrote " << o.message << '\n';
      for (const auto& w : o.warnings) std::cerr << "vexinterop: warning: " << args.inputs[i] << ": " << w << '\n';
    } else {
      allNoMapping = allNoMapping && o.noMapping;
      // Most messages name the file already.
      const bool named = o.message.rfind(args.inputs[i], 0) == 0;
      std::cerr << "vexinterop: " << (named ? "" : args.inputs[i] + ": ") << o.message << '\n';
    }
  }

  // The report belongs to a run that succeeded: it is written only then.
  bool reportFailed = false;
  if (!args.report.empty() && succeeded == n) {
    Json report = {{"format", args.to}, {"output", args.output}, {"materials", Json::array()}};
    for (std::size_t i = 0; i < n; ++i) {
      Json entry = {{"input", args.inputs[i]}, {"ok", outcomes[i].ok}};
      entry.update(outcomes[i].report);
      report["materials"].push_back(std::move(entry));
    }
    host::StagedOutput reportOutput;
    auto written = StageReport(args.report, report, reportOutput);
    if (written) written = reportOutput.CommitAll();
    if (!written) reportFailed = Fail(written.error()) != kExitOk;
  }

  std::cout << "converted " << succeeded << " of " << n << " to " << args.to << " in " << args.output;
  if (succeeded != n) std::cout << ", " << (n - succeeded) << " failed; kept: " << (kept.empty() ? "none" : kept);
  std::cout << '\n';
  staged.Discard();
  if (succeeded == n) return reportFailed ? kExitFailure : kExitOk;
  return allNoMapping ? kExitNoMapping : kExitFailure;
}

// --- import ---------------------------------------------------------------------------------------

struct ImportArgs {
  std::string input;
  std::string output;
  bool json = false;
  bool native = false;
  int textureSize = 0;
};

int RunImport(Context& context, const ImportArgs& args) {
  auto h = context.Host();
  if (!h) return Fail(h.error());
  host::ReferenceHost& host = **h;
  host::formats::ReadOptions read;
  read.textureSize = args.textureSize;
  if (!args.json && !args.native) {
    // The whole scene, through the same road as `convert --to vex`.
    auto scene = ReadSceneFile(host, args.input, read);
    if (!scene) return Fail(scene.error());
    for (const auto& w : scene->warnings) std::cerr << "vexinterop: warning: " << args.input << ": " << w << '\n';
    const std::size_t nodes = scene->nodes.size(), materials = scene->materials.size(), lights = scene->lights.size(),
                      cameras = scene->cameras.size();
    std::vector<std::string> warnings;
    const fs::path out = fs::absolute(args.output);
    auto saved = SaveSceneAsVex(host, std::move(*scene), args.input, out.string(), warnings);
    for (const auto& w : warnings) std::cerr << "vexinterop: warning: " << args.input << ": " << w << '\n';
    if (!saved) return Fail(saved.error());
    std::cout << "wrote " << out.string() << " (" << nodes << " objects, " << materials << " materials, " << lights
              << " lights, " << cameras << " cameras, " << *saved << " textures)\n";
    return kExitOk;
  }
  auto file = host::formats::ReadFormatFile(args.input, host.bundles(), read);
  if (!file) return Fail(file.error());
  if (file->materials.empty()) return Fail(args.input + ": the file has no material");
  for (const auto& w : file->warnings) std::cerr << "vexinterop: warning: " << args.input << ": " << w << '\n';
  // Channel selections and value scales are applied to the pixels before anything maps them.
  for (auto& m : file->materials) {
    auto resolved = std::make_shared<vex::ParameterSet>(*m.set);
    host::formats::ResolveTextureProperties(*resolved);
    m.set = std::move(resolved);
  }

  std::vector<std::pair<std::string, vex::ParameterSetRef>> sets;
  std::set<std::string> names;
  host::formats::ConversionContext conversion{&host.documents()};
  for (auto& m : file->materials) {
    vex::ParameterSetRef result = m.set;
    if (!args.native) {
      auto corvane = host::formats::ConvertSet(m.set, vex::ports::corvane::kId, conversion);
      if (!corvane) return Fail(args.input + ": material " + m.name + ": " + Describe(corvane.error()));
      for (const auto& w : corvane->warnings)
        std::cerr << "vexinterop: warning: " << args.input << ": material '" << m.name << "': " << w << '\n';
      result = corvane->set;
    }
    std::string name = host::formats::SafeName(m.name);
    for (int k = 2; !names.insert(name).second; ++k) name = host::formats::SafeName(m.name) + "_" + std::to_string(k);
    sets.emplace_back(name, std::move(result));
  }

  const fs::path out(args.output);
  std::error_code ec;
  if (fs::exists(out, ec) && !fs::is_directory(out, ec)) return Fail(args.output + ": not a directory");
  host::StagedOutput staged;
  auto write = SetWriteOptions(host);
  for (const auto& [name, set] : sets)
    if (auto written = host::json::WriteParameterSetFile((out / (name + ".json")).string(), *set, write, staged);
        !written)
      return Fail(written.error());
  if (auto committed = staged.CommitAll(); !committed) return Fail(committed.error());
  for (const auto& [name, set] : sets) std::cout << "wrote " << (out / (name + ".json")).string() << '\n';
  return kExitOk;
}

}  // namespace

struct ExportArgs : ConvertArgs {
  std::string scene;
  std::vector<std::string> materials;
  std::int64_t textureSize = 1024;
};

/// Every material of a scene (or the named ones) as files of one format: the exporter registered
/// for the material's type produces its set, preferring the bundles the format takes and otherwise
/// the material's own bundle, which the conversion path then carries into the format's bundle.
int RunExport(Context& context, const ExportArgs& args) {
  auto chosen = ChosenFormat(args.to);
  if (!chosen) return Fail(chosen.error().message);
  const host::formats::FormatRow& row = **chosen;
  WarnUnusedOptions(row, args);
  auto h = context.Host();
  if (!h) return Fail(h.error());
  host::ReferenceHost& host = **h;
  auto loaded = LoadScene(host, args.scene);
  if (!loaded) return Fail(loaded.error());
  host::Document& document = **loaded;

  std::vector<std::shared_ptr<host::Material>> chosenMaterials;
  if (args.materials.empty()) {
    chosenMaterials = document.Materials().All();
  } else {
    for (const auto& name : args.materials) {
      std::shared_ptr<host::Material> found;
      for (const auto& m : document.Materials().All())
        if (m->GetName() == name) found = m;
      if (!found) return Fail(args.scene + ": no material named \"" + name + "\"");
      chosenMaterials.push_back(std::move(found));
    }
  }
  if (chosenMaterials.empty()) return Fail(args.scene + ": the scene has no material");

  host::MaterialExportRequest request;
  for (const auto bundle : row.bundles) request.accepted.Insert(vex::Id(bundle), 0);
  const vex::MaterialTypesMap fallbacks = host::DefaultAcceptedBundles();
  for (const auto& [bundle, value] : fallbacks.Entries()) {
    (void)value;
    if (!request.accepted.Find(bundle)) request.accepted.Insert(bundle, 1);
  }
  request.textureSize = args.textureSize;

  const fs::path out(args.output);
  std::error_code ec;
  if (fs::exists(out, ec) && !fs::is_directory(out, ec)) return Fail(args.output + ": not a directory");

  host::StagedOutput staged;
  std::mutex moduleLock;
  std::size_t succeeded = 0;
  std::string kept;
  for (const auto& material : chosenMaterials) {
    const std::string name = material->GetName();
    auto set = host::ExportMaterial(material, request);
    std::vector<std::string> substance;
    if (set) substance = host::ResolveSubstanceReferences(*material, *set);
    Outcome outcome = set ? WriteSetAsFile(host, moduleLock, std::make_shared<const vex::ParameterSet>(std::move(*set)),
                                           name, row, out, args, staged)
                          : Failed(set.error());
    outcome.warnings.insert(outcome.warnings.begin(), substance.begin(), substance.end());
    if (outcome.ok) {
      ++succeeded;
      kept += (kept.empty() ? "" : ", ") + name;
      std::cout << "wrote " << outcome.message << '\n';
      for (const auto& w : outcome.warnings)
        std::cerr << "vexinterop: warning: " << args.scene << ": material '" << name << "': " << w << '\n';
    } else {
      std::cerr << "vexinterop: " << args.scene << ": material " << name << ": " << outcome.message << '\n';
    }
  }
  std::cout << "exported " << succeeded << " of " << chosenMaterials.size() << " materials to " << args.to << " in "
            << args.output;
  if (succeeded != chosenMaterials.size())
    std::cout << ", " << (chosenMaterials.size() - succeeded) << " failed; kept: " << (kept.empty() ? "none" : kept);
  std::cout << '\n';
  staged.Discard();
  return succeeded == chosenMaterials.size() ? kExitOk : kExitFailure;
}

/// The options every file-writing command shares; the format list comes from the catalogue.
void AddWriteOptions(CLI::App* command, ConvertArgs& args) {
  const std::string names = host::formats::FormatNames(", ");
  command->add_option("--to", args.to, "Format: " + names)->required();
  command->add_flag("--glb", args.glb, "glTF: one binary .glb instead of .gltf + .bin + images");
  command->add_flag("--emissive-strength", args.emissiveStrength,
                    "glTF: keep emission above 1 with KHR_materials_emissive_strength instead of clamping it");
  command->add_flag("--fbx-ascii", args.fbxAscii, "FBX: the ASCII form instead of binary FBX 7.4");
  command->add_flag("--embed-textures", args.embedTextures, "FBX: images inside the file instead of beside it");
  command->add_flag("--float-textures", args.floatTextures, "OBJ/USD: 32-bit float EXR textures instead of PNG");
}

void AddFileCommands(CLI::App& app, Context& context) {
  const std::string names = host::formats::FormatNames(", ");
  auto convertArgs = std::make_shared<ConvertArgs>();
  auto* convert = app.add_subcommand("convert", "Write parameter sets and whole scenes as files of another tool (" +
                                                    names + ", " + std::string(host::scene_file::kSuffix) + ")");
  convert->add_option("inputs", convertArgs->inputs,
                      "Parameter-set JSON files (each on a preview sphere) and scenes (.vex, " +
                          host::formats::ReadableSuffixes(", ") + "; written whole)");
  convert->add_option("-o,--output", convertArgs->output, "Output directory (one folder per input)")->required();
  AddWriteOptions(convert, *convertArgs);
  convert->get_option("--to")->description("Format: " + names + ", " + std::string(host::scene_file::kSuffix));
  convert->add_option("--from-list", convertArgs->fromList,
                      "Also convert the inputs this file names, one per line (blank lines and # comments skipped; "
                      "relative paths from the list's folder)");
  convert->add_option("--shard", convertArgs->shard,
                      "K/N: convert only every N-th input from the K-th (0 <= K < N), for array jobs");
  convert->add_option("--texture-size", convertArgs->textureSize, "Scenes: size N of baked textures")
      ->check(WholeNumberIn(1, 16384));
  convert->add_option("--max-texture-size", convertArgs->maxTextureSize,
                      "Downscale textures whose longer side exceeds N pixels (filtered, aspect kept)")
      ->check(WholeNumberIn(1, 1 << 20));
  convert->add_flag("--pot", convertArgs->powerOfTwo, "Resample textures to power-of-two sides");
  convert->add_option("--report", convertArgs->report,
                      "Write a per-material report of what each port became (JSON; Markdown for .md); "
                      "written only when every input converted");
  convert->callback([&context, convertArgs] { throw CLI::RuntimeError(RunConvert(context, *convertArgs)); });

  auto exportArgs = std::make_shared<ExportArgs>();
  auto* exporter = app.add_subcommand("export", "Write the materials of a scene as files of another tool (" + names + ")");
  exporter->add_option("scene", exportArgs->scene, "The scene file (.vex)")->required();
  exporter->add_option("-o,--output", exportArgs->output, "Output directory (one folder per material)")->required();
  AddWriteOptions(exporter, *exportArgs);
  exporter->add_option("--material", exportArgs->materials, "Export only these materials (repeatable)");
  exporter->add_option("--texture-size", exportArgs->textureSize, "Size N of baked textures")
      ->check(WholeNumberIn(1, 16384));
  exporter->callback([&context, exportArgs] { throw CLI::RuntimeError(RunExport(context, *exportArgs)); });

  const std::string suffixes = host::formats::ReadableSuffixes(", ");
  auto importArgs = std::make_shared<ImportArgs>();
  auto* import = app.add_subcommand("import", "Read a scene file (" + suffixes + ") into a .vex scene, or its materials");
  import->add_option("input", importArgs->input, "The file (" + suffixes + ")")->required();
  import->add_option("-o,--output", importArgs->output, "Output: a scene file, or a directory with --json")
      ->required();
  import->add_flag("--json", importArgs->json, "Write each material as a Corvane parameter-set JSON into the directory");
  import->add_flag("--native", importArgs->native,
                   "Write each material in the file format's own bundle (glTF, OBJ or generic) instead");
  import->add_option("--texture-size", importArgs->textureSize,
                     "Fit textures so that the longer side is N pixels (default: as the file has them)")
      ->check(WholeNumberIn(1, 16384));
  import->callback([&context, importArgs] { throw CLI::RuntimeError(RunImport(context, *importArgs)); });

  auto* formats = app.add_subcommand("formats", "List the file formats: name, suffixes, reads/writes, options");
  formats->callback([] {
    for (const auto& row : host::formats::Catalogue()) {
      std::string suffixList;
      for (const auto suffix : row.suffixes) suffixList += (suffixList.empty() ? "" : ",") + std::string(suffix);
      std::string options;
      for (unsigned bit = 1; bit <= host::formats::kOptionFloatTextures; bit <<= 1)
        if (row.options & bit)
          options += (options.empty() ? "" : ",") +
                     std::string(host::formats::OptionFlag(static_cast<host::formats::FormatOption>(bit)));
      std::cout << row.name << '\t' << suffixList << '\t' << (row.read != nullptr ? "read+write" : "write") << '\t'
                << (options.empty() ? "-" : options) << '\t' << row.description << '\n';
    }
    throw CLI::RuntimeError(kExitOk);
  });
}

}  // namespace cli
