// vexinterop convert | import: parameter sets to files other tools open, and
// such files back to parameter sets.
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <set>

#include <nlohmann/json.hpp>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/task_arena.h>

#include "cli/commands.h"
#include "host/formats/conversion.h"
#include "host/formats/formats.h"
#include "host/formats/readers.h"
#include "host/json_text.h"
#include "host/material_exchange.h"
#include "host/paramset_json.h"
#include "host/scene_file.h"
#include "vex/lookup.h"

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

namespace cli {
namespace {

std::string Describe(const vex::Error& error) {
  return error.message + " (" + error.unit + ":" + std::to_string(error.line) + ")";
}

/// A fresh directory beside `target` ("<target>.partial-<n>") that a command fills before it
/// renames it into place, so that a failure leaves no half-written output.
vex::Result<fs::path> MakeScratchBeside(const fs::path& target) {
  std::random_device random;
  std::error_code ec;
  const fs::path parent = target.parent_path().empty() ? fs::path(".") : target.parent_path();
  if (!fs::is_directory(parent, ec)) fs::create_directories(parent, ec);
  for (int attempt = 0; attempt < 8; ++attempt) {
    fs::path scratch = parent / ("." + target.filename().string() + ".partial-" + std::to_string(random() % 1000000));
    if (fs::create_directory(scratch, ec)) return scratch;
    if (ec) break;
  }
  return VEX_FAIL(vex::ErrorKind::FileIO, parent.string() + ": cannot create a directory" +
                                              (ec ? ": " + ec.message() : std::string()));
}

/// Puts the scratch directory's content at `target`: renamed as a whole when `target` does not
/// exist (or, with `replace`, after removing it), else moved in file by file.
vex::Result<void> MoveIntoPlace(const fs::path& scratch, const fs::path& target, bool replace) {
  std::error_code ec;
  if (replace && fs::exists(target, ec)) fs::remove_all(target, ec);
  if (!fs::exists(target, ec)) {
    fs::rename(scratch, target, ec);
    if (ec) return VEX_FAIL(vex::ErrorKind::FileIO, target.string() + ": cannot write: " + ec.message());
    return {};
  }
  for (const auto& entry : fs::directory_iterator(scratch)) {
    fs::rename(entry.path(), target / entry.path().filename(), ec);
    if (ec) return VEX_FAIL(vex::ErrorKind::FileIO, target.string() + ": cannot write: " + ec.message());
  }
  fs::remove_all(scratch, ec);
  return {};
}

// --- convert --------------------------------------------------------------------------------------

struct ConvertArgs {
  std::vector<std::string> inputs;
  std::string to;
  std::string output;
  bool emissiveStrength = false;
  bool fbxBinary = false;
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
Json ReportEntry(const host::formats::FormatSet& formatSet, const host::formats::WrittenMaterial& written,
                 const std::vector<std::string>& resized) {
  Json entry = Json::object();
  entry["bundle"] = formatSet.set->GetBundle().Str();
  entry["mapped"] = formatSet.mapped;
  entry["files"] = written.files;
  Json ports = Json::parse(host::json::DumpParameterSet(*formatSet.set, host::json::TextureMode::Describe))["parameters"];
  for (const auto& [port, file] : written.textures)
    if (ports.contains(port)) ports[port]["file"] = file;
  entry["ports"] = std::move(ports);
  Json defaults = Json::array();
  for (const auto& d : formatSet.defaults) defaults.push_back({{"source", d.sourcePort}, {"target", d.targetPort}});
  entry["defaultsUsed"] = std::move(defaults);
  entry["resized"] = resized;
  entry["warnings"] = written.warnings;
  return entry;
}

std::string ReportValue(const Json& port) {
  if (port.contains("value")) return host::DumpJsonText(port["value"]);
  if (port.contains("url")) return host::DumpJsonText(port["url"]);
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

/// Writes the report (Markdown for a ".md" name, else JSON) under a temporary name, then renames.
vex::Result<void> WriteReport(const std::string& path, const Json& report) {
  const fs::path target(path);
  const std::string text = target.extension() == ".md" ? ReportMarkdown(report) : host::DumpJsonText(report, 2) + "\n";
  const fs::path temp = target.parent_path() / ("." + target.filename().string() + ".partial");
  std::error_code ec;
  if (!target.parent_path().empty()) fs::create_directories(target.parent_path(), ec);
  {
    std::ofstream out(temp, std::ios::binary);
    out << text;
    out.close();
    if (!out) {
      fs::remove(temp, ec);
      return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot write");
    }
  }
  fs::rename(temp, target, ec);
  if (ec) {
    const std::string reason = ec.message();  // before the clean-up reuses ec
    fs::remove(temp, ec);
    return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot write: " + reason);
  }
  return {};
}

Outcome Failed(const vex::Error& error) {
  Outcome outcome;
  outcome.message = Describe(error);
  outcome.noMapping = error.kind == vex::ErrorKind::NotFound;
  return outcome;
}

/// One set (from a JSON file, or from a scene's material exporter) as the material `name` in
/// "<out>/<name>/": mapped into the format's bundle, fitted, written into a scratch folder that
/// replaces the target folder at the end. Module calls are made under `moduleLock`: the component
/// system serves one caller at a time; reading and writing files run in parallel.
Outcome WriteSetAsFile(host::ReferenceHost& host, std::mutex& moduleLock, const vex::ParameterSetRef& source,
                       const std::string& name, host::formats::Format format, const fs::path& out,
                       const ConvertArgs& args) {
  Outcome outcome;
  const auto fail = [](const vex::Error& error) { return Failed(error); };
  host::formats::ConvertOptions convert;
  convert.emissiveStrength = args.emissiveStrength;
  // The mapping's pixel loops run on the same thread pool: isolated, a thread waiting for them
  // cannot pick up another input's conversion, which would wait for this lock forever.
  vex::Result<host::formats::FormatSet> formatSet = tbb::this_task_arena::isolate([&] {
    std::lock_guard lock(moduleLock);
    return host::formats::ToFormatBundle(source, format, convert);
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
  auto scratch = MakeScratchBeside(target);
  if (!scratch) return fail(scratch.error());
  host::formats::WriteOptions write;
  write.emissiveStrength = args.emissiveStrength;
  write.fbxBinary = args.fbxBinary;
  auto written =
      host::formats::WriteMaterial(format, *formatSet->set, stem, scratch->string(), host.bundles(), write);
  if (written)
    written->warnings.insert(written->warnings.begin(), formatSet->warnings.begin(), formatSet->warnings.end());
  std::error_code ec;
  if (!written) {
    fs::remove_all(*scratch, ec);
    return fail(written.error());
  }
  if (auto moved = MoveIntoPlace(*scratch, target, true); !moved) {
    fs::remove_all(*scratch, ec);
    return fail(moved.error());
  }
  outcome.ok = true;
  outcome.message = (target / written->files.front()).string();
  if (!args.report.empty()) outcome.report = ReportEntry(*formatSet, *written, resized);
  outcome.warnings = std::move(written->warnings);
  return outcome;
}

Outcome ConvertOne(host::ReferenceHost& host, std::mutex& moduleLock, const std::string& input,
                   host::formats::Format format, const fs::path& out, const ConvertArgs& args) {
  auto set = ReadSetFile(host, input);
  if (!set) return Failed(set.error());
  const auto source = std::make_shared<const vex::ParameterSet>(std::move(*set));
  return WriteSetAsFile(host, moduleLock, source, fs::path(input).stem().string(), format, out, args);
}

int RunConvert(Context& context, const ConvertArgs& args) {
  const auto format = host::formats::ParseFormat(args.to);
  if (!format) return Fail("--to " + args.to + ": expected gltf, usd, obj or fbx");
  auto h = context.Host();
  if (!h) return Fail(h.error());
  host::ReferenceHost& host = **h;

  const fs::path out(args.output);
  std::error_code ec;
  const bool created = !fs::exists(out, ec);
  if (!created && !fs::is_directory(out, ec)) return Fail(args.output + ": not a directory");
  if (created && !fs::create_directories(out, ec)) return Fail(args.output + ": cannot create: " + ec.message());

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

  const bool terminal = isatty(STDERR_FILENO) != 0;
  std::mutex moduleLock;
  std::mutex printLock;
  std::atomic<std::size_t> done{0};
  tbb::parallel_for(std::size_t{0}, n, [&](std::size_t i) {
    if (!clash[i]) outcomes[i] = ConvertOne(host, moduleLock, args.inputs[i], *format, out, args);
    const std::size_t finished = ++done;
    if (terminal) {
      std::lock_guard lock(printLock);
      std::cerr << "\r\033[K[" << finished << "/" << n << "] " << fs::path(args.inputs[i]).filename().string()
                << std::flush;
    }
  });
  if (terminal) std::cerr << "\r\033[K";

  bool reportFailed = false;
  if (!args.report.empty()) {
    Json report = {{"format", args.to}, {"output", args.output}, {"materials", Json::array()}};
    for (std::size_t i = 0; i < n; ++i) {
      Json entry = {{"input", args.inputs[i]}, {"ok", outcomes[i].ok}};
      if (outcomes[i].ok) entry.update(outcomes[i].report);
      else entry["error"] = outcomes[i].message;
      report["materials"].push_back(std::move(entry));
    }
    if (auto written = WriteReport(args.report, report); !written) reportFailed = Fail(written.error()) != kExitOk;
  }

  std::size_t succeeded = 0;
  bool allNoMapping = true;
  for (std::size_t i = 0; i < n; ++i) {
    const Outcome& o = outcomes[i];
    if (o.ok) {
      ++succeeded;
      std::cout << "wrote " << o.message << '\n';
      for (const auto& w : o.warnings) std::cerr << "vexinterop: warning: " << args.inputs[i] << ": " << w << '\n';
    } else {
      allNoMapping = allNoMapping && o.noMapping;
      // Most messages name the file already.
      const bool named = o.message.rfind(args.inputs[i], 0) == 0;
      std::cerr << "vexinterop: " << (named ? "" : args.inputs[i] + ": ") << o.message << '\n';
    }
  }
  std::cout << "converted " << succeeded << " of " << n << " to " << args.to << " in " << args.output;
  if (succeeded != n) std::cout << ", " << (n - succeeded) << " failed";
  std::cout << '\n';
  if (succeeded == n) return reportFailed ? kExitFailure : kExitOk;
  if (created && succeeded == 0) fs::remove_all(out, ec);
  return allNoMapping ? kExitNoMapping : kExitFailure;
}

// --- import ---------------------------------------------------------------------------------------

struct ImportArgs {
  std::string input;
  std::string output;
  bool json = false;
  bool native = false;
};

/// Builds a Corvane node material for each imported set in a new scene at `scenePath`, through the
/// module's material importer; textures that came with the file are written beside the scene. On a
/// failure nothing is left at `scenePath`.
vex::Result<void> ImportIntoScene(host::ReferenceHost& host, const std::vector<host::formats::ImportedMaterial>& materials,
                                  const std::string& scenePath) {
  const fs::path out = fs::absolute(scenePath);
  host::Document& document = host.documents().NewDocument(out.stem().string());
  document.SetPath(out.parent_path().string());
  const auto close = [&] { host.documents().Close(&document); };
  for (const auto& m : materials) {
    auto material = host::ImportMaterial(document, m.set, vex::nodespace::kCorvane);
    if (!material) {
      close();
      return VEX_FAIL(material.error().kind, scenePath + ": material " + m.name + ": " + Describe(material.error()));
    }
    if (auto* imported = dynamic_cast<host::Material*>(material->get())) imported->SetName(m.name);
  }
  std::error_code ec;
  fs::create_directories(out.parent_path(), ec);
  auto textures = host::WritePendingTextures(document, out.parent_path().string());
  if (!textures) {
    close();
    return std::unexpected(textures.error());
  }
  if (auto saved = host::scene_file::Save(document, out.string()); !saved) {
    for (const auto& t : *textures) fs::remove(t, ec);
    close();
    return std::unexpected(saved.error());
  }
  std::cout << "wrote " << out.string() << " (" << materials.size() << " materials, " << textures->size()
            << " textures)\n";
  close();
  return {};
}

/// A set of the OBJ or generic bundle into the Corvane bundle the way the application does it: the
/// importer builds a Corvane node material in a scratch document, and the exporter takes it back out
/// as a Corvane set with its textures.
vex::Result<vex::ParameterSetRef> CorvaneThroughImporter(host::ReferenceHost& host, const vex::ParameterSetRef& set) {
  // The importer's textures are files of the scratch scene until the exporter bakes them again.
  std::error_code ec;
  const fs::path directory = fs::temp_directory_path(ec) / ("vexinterop-import-" + std::to_string(::getpid()) + "-" +
                                                           std::to_string(std::random_device{}()));
  fs::create_directories(directory, ec);
  if (ec) return VEX_FAIL(vex::ErrorKind::FileIO, directory.string() + ": cannot create: " + ec.message());
  host::Document& scratch = host.documents().NewDocument("import");
  scratch.SetPath(directory.string());
  const auto close = [&] {
    host.documents().Close(&scratch);
    fs::remove_all(directory, ec);
  };
  auto material = host::ImportMaterial(scratch, *set, vex::nodespace::kCorvane);
  if (!material) {
    close();
    return std::unexpected(material.error());
  }
  if (auto written = host::WritePendingTextures(scratch, directory.string()); !written) {
    close();
    return std::unexpected(written.error());
  }
  auto* imported = dynamic_cast<host::Material*>(material->get());
  std::shared_ptr<host::Material> shared;
  for (const auto& m : scratch.Materials().All())
    if (m.get() == imported) shared = m;
  if (!shared) {
    close();
    return VEX_FAIL(vex::ErrorKind::IllegalState, "the imported material is not in its document");
  }
  host::MaterialExportRequest request;
  request.accepted.Insert(vex::Id(vex::bundle::kCorvane), 0);
  request.spaceId = std::string(vex::nodespace::kCorvane);
  auto exported = host::ExportMaterial(shared, request);
  close();
  if (!exported) return std::unexpected(exported.error());
  return std::make_shared<const vex::ParameterSet>(std::move(*exported));
}

int RunImport(Context& context, const ImportArgs& args) {
  auto h = context.Host();
  if (!h) return Fail(h.error());
  host::ReferenceHost& host = **h;
  auto materials = host::formats::ReadMaterials(args.input, host.bundles());
  if (!materials) return Fail(materials.error());
  if (materials->empty()) return Fail(args.input + ": the file has no material");
  for (const auto& m : *materials)
    for (const auto& w : m.warnings) std::cerr << "vexinterop: warning: " << m.name << ": " << w << '\n';
  if (!args.json && !args.native) {
    if (auto built = ImportIntoScene(host, *materials, args.output); !built) return Fail(built.error());
    return kExitOk;
  }

  std::vector<std::pair<std::string, vex::ParameterSetRef>> sets;
  std::set<std::string> names;
  for (auto& m : *materials) {
    auto set = std::make_shared<const vex::ParameterSet>(std::move(m.set));
    vex::ParameterSetRef result = set;
    if (!args.native) {
      auto corvane = set->GetBundle() == vex::bundle::kGltf || set->GetBundle() == vex::bundle::kCorvane
                         ? host::formats::ToCorvane(set)
                         : CorvaneThroughImporter(host, set);
      if (!corvane) return Fail(args.input + ": material " + m.name + ": " + Describe(corvane.error()));
      result = *corvane;
    }
    std::string name = host::formats::SafeName(m.name);
    for (int k = 2; !names.insert(name).second; ++k) name = host::formats::SafeName(m.name) + "_" + std::to_string(k);
    sets.emplace_back(name, std::move(result));
  }

  const fs::path out(args.output);
  std::error_code ec;
  if (fs::exists(out, ec) && !fs::is_directory(out, ec)) return Fail(args.output + ": not a directory");
  auto scratch = MakeScratchBeside(out);
  if (!scratch) return Fail(scratch.error());
  auto write = SetWriteOptions(host);
  for (const auto& [name, set] : sets) {
    const std::string path = (*scratch / (name + ".json")).string();
    if (auto written = host::json::WriteParameterSetFile(path, *set, write); !written) {
      fs::remove_all(*scratch, ec);
      return Fail(written.error());
    }
  }
  if (auto moved = MoveIntoPlace(*scratch, out, false); !moved) {
    fs::remove_all(*scratch, ec);
    return Fail(moved.error());
  }
  for (const auto& [name, set] : sets) std::cout << "wrote " << (out / (name + ".json")).string() << '\n';
  return kExitOk;
}

}  // namespace

/// A bundle the importer does not take (the viewport material) reaches the Corvane bundle through
/// its glTF mapping and the glTF mapping's import direction.
vex::Result<vex::ParameterSetRef> CorvaneThroughGltf(const vex::ParameterSetRef& set) {
  VEX_ASSIGN(auto mapping, vex::FindMapping(set->GetBundle().Str(), vex::bundle::kGltf));
  VEX_ASSIGN(auto output, mapping->MapMaterialData(set));
  return host::formats::ToCorvane(vex::ParameterSetRef(std::move(output.target)));
}

struct ExportArgs : ConvertArgs {
  std::string scene;
  std::vector<std::string> materials;
  std::int64_t textureSize = 1024;
};

/// Every material of a scene (or the named ones) as files of one format: the exporter registered
/// for the material's type produces its set, preferring the bundles the format takes and otherwise
/// the material's own bundle, which the mapper registry then carries into the format's bundle.
int RunExport(Context& context, const ExportArgs& args) {
  const auto format = host::formats::ParseFormat(args.to);
  if (!format) return Fail("--to " + args.to + ": expected gltf, usd, obj or fbx");
  auto h = context.Host();
  if (!h) return Fail(h.error());
  host::ReferenceHost& host = **h;
  auto loaded = LoadScene(host, args.scene);
  if (!loaded) return Fail(loaded.error());
  host::Document& document = **loaded;

  std::vector<std::shared_ptr<host::Material>> chosen;
  if (args.materials.empty()) {
    chosen = document.Materials().All();
  } else {
    for (const auto& name : args.materials) {
      std::shared_ptr<host::Material> found;
      for (const auto& m : document.Materials().All())
        if (m->GetName() == name) found = m;
      if (!found) return Fail(args.scene + ": no material named \"" + name + "\"");
      chosen.push_back(std::move(found));
    }
  }
  if (chosen.empty()) return Fail(args.scene + ": the scene has no material");

  host::MaterialExportRequest request;
  for (const auto bundle : host::formats::AcceptedBundles(*format)) request.accepted.Insert(vex::Id(bundle), 0);
  const vex::MaterialTypesMap fallbacks = host::DefaultAcceptedBundles();
  for (const auto& [bundle, value] : fallbacks.Entries()) {
    (void)value;
    request.accepted.Insert(bundle, 1);
  }
  request.textureSize = args.textureSize;

  const fs::path out(args.output);
  std::error_code ec;
  const bool created = !fs::exists(out, ec);
  if (!created && !fs::is_directory(out, ec)) return Fail(args.output + ": not a directory");
  if (created && !fs::create_directories(out, ec)) return Fail(args.output + ": cannot create: " + ec.message());

  std::mutex moduleLock;
  std::size_t succeeded = 0;
  for (const auto& material : chosen) {
    const std::string name = material->GetName();
    auto set = host::ExportMaterial(material, request);
    Outcome outcome = Failed(set ? vex::Error{} : set.error());
    if (set) {
      const auto exported = std::make_shared<const vex::ParameterSet>(std::move(*set));
      outcome = WriteSetAsFile(host, moduleLock, exported, name, *format, out, args);
      // A bundle no mapping leads from into the format's goes the importer's way: into a Corvane
      // node material and out again as a Corvane set, which every format has a mapping for.
      if (!outcome.ok && outcome.noMapping && exported->GetBundle() != vex::bundle::kCorvane) {
        auto corvane = CorvaneThroughImporter(host, exported);
        if (!corvane) corvane = CorvaneThroughGltf(exported);
        if (corvane) outcome = WriteSetAsFile(host, moduleLock, *corvane, name, *format, out, args);
      }
    }
    if (outcome.ok) {
      ++succeeded;
      std::cout << "wrote " << outcome.message << '\n';
      for (const auto& w : outcome.warnings) std::cerr << "vexinterop: warning: " << name << ": " << w << '\n';
    } else {
      std::cerr << "vexinterop: " << args.scene << ": material " << name << ": " << outcome.message << '\n';
    }
  }
  std::cout << "exported " << succeeded << " of " << chosen.size() << " materials to " << args.to << " in "
            << args.output << '\n';
  if (succeeded == chosen.size()) return kExitOk;
  if (created && succeeded == 0) fs::remove_all(out, ec);
  return kExitFailure;
}

void AddFileCommands(CLI::App& app, Context& context) {
  auto convertArgs = std::make_shared<ConvertArgs>();
  auto* convert = app.add_subcommand("convert", "Write parameter sets as glTF, USD, OBJ or FBX files");
  convert->add_option("inputs", convertArgs->inputs, "Parameter-set JSON files")->required();
  convert->add_option("--to", convertArgs->to, "Format: gltf, usd, obj or fbx")->required();
  convert->add_option("-o,--output", convertArgs->output, "Output directory (one folder per input)")->required();
  convert->add_flag("--emissive-strength", convertArgs->emissiveStrength,
                    "glTF: keep emission above 1 with KHR_materials_emissive_strength instead of clamping it");
  convert->add_flag("--fbx-binary", convertArgs->fbxBinary,
                    "FBX: write binary FBX instead of ASCII FBX (vexinterop import reads only the ASCII form back)");
  convert->add_option("--max-texture-size", convertArgs->maxTextureSize,
                      "Downscale textures whose longer side exceeds N pixels (filtered, aspect kept)")
      ->check(WholeNumberIn(1, 1 << 20));
  convert->add_flag("--pot", convertArgs->powerOfTwo, "Resample textures to power-of-two sides");
  convert->add_option("--report", convertArgs->report,
                      "Write a per-material report of what each port became (JSON; Markdown for .md)");
  convert->callback([&context, convertArgs] { throw CLI::RuntimeError(RunConvert(context, *convertArgs)); });

  auto exportArgs = std::make_shared<ExportArgs>();
  auto* exporter = app.add_subcommand("export", "Write the materials of a scene as glTF, USD, OBJ or FBX files");
  exporter->add_option("scene", exportArgs->scene, "The scene file (.vex)")->required();
  exporter->add_option("--to", exportArgs->to, "Format: gltf, usd, obj or fbx")->required();
  exporter->add_option("-o,--output", exportArgs->output, "Output directory (one folder per material)")->required();
  exporter->add_option("--material", exportArgs->materials, "Export only these materials (repeatable)");
  exporter->add_option("--texture-size", exportArgs->textureSize, "Size N of baked textures")
      ->check(WholeNumberIn(1, 16384));
  exporter->add_flag("--emissive-strength", exportArgs->emissiveStrength,
                     "glTF: keep emission above 1 with KHR_materials_emissive_strength instead of clamping it");
  exporter->add_flag("--fbx-binary", exportArgs->fbxBinary, "FBX: write binary FBX instead of ASCII FBX");
  exporter->callback([&context, exportArgs] { throw CLI::RuntimeError(RunExport(context, *exportArgs)); });

  auto importArgs = std::make_shared<ImportArgs>();
  auto* import = app.add_subcommand("import", "Read the materials of a glTF, GLB, OBJ or FBX file");
  import->add_option("input", importArgs->input, "The file (.gltf, .glb, .obj, .fbx)")->required();
  import->add_option("-o,--output", importArgs->output, "Output: a scene file, or a directory with --json")
      ->required();
  import->add_flag("--json", importArgs->json, "Write each material as a Corvane parameter-set JSON into the directory");
  import->add_flag("--native", importArgs->native,
                   "Write each material in the file format's own bundle (glTF, OBJ or generic) instead");
  import->callback([&context, importArgs] { throw CLI::RuntimeError(RunImport(context, *importArgs)); });
}

}  // namespace cli
