// vexinterop info | map
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>

#include "cli/commands.h"
#include "host/formats/conversion.h"
#include "host/images.h"
#include "host/paramset_json.h"
#include "host/staged_output.h"
#include "vex/lookup.h"

namespace fs = std::filesystem;

namespace cli {

vex::Result<std::size_t> SaveSceneWithTextures(host::Document& document, const std::string& path) {
  const fs::path directory = fs::absolute(path).parent_path();
  host::StagedOutput staged;
  auto& pending = document.Materials().PendingTextures();
  for (const auto& texture : pending) {
    VEX_ASSIGN(const std::size_t id, staged.Stage((directory / texture.file).string(), host::StagedOutput::Kind::File));
    host::ImageWriteOptions options;
    options.srgb = texture.pixels.colorSpace == "sRGB";
    VEX_TRY(host::WriteImage(staged.Scratch(id), texture.pixels, options));
  }
  VEX_ASSIGN(const std::size_t id, staged.Stage(path, host::StagedOutput::Kind::File));
  VEX_TRY(host::scene_file::WriteFile(document, staged.Scratch(id), path));
  VEX_TRY(staged.CommitAll());
  const std::size_t count = pending.size();
  pending.clear();
  return count;
}

namespace {

int RunInfo(Context& context) {
  auto h = context.Host();
  if (!h) return Fail(h.error());
  host::ReferenceHost& host = **h;
  std::cout << "module: " << (context.modulePath.empty() ? host::ReferenceHost::DefaultModulePath() : context.modulePath)
            << "\n\nplug-ins:\n";
  for (const auto& s : host.plugins().Savers())
    std::cout << "  saver    " << std::setw(10) << std::left << s.id << " " << s.name << " (format " << s.formatName
              << ", suffix " << s.suffix << ")\n";
  for (const auto& c : host.plugins().Commands())
    std::cout << "  command  " << std::setw(10) << std::left << c.id << " " << c.name << '\n';
  for (const auto& k : host.plugins().Hooks())
    std::cout << "  hook     " << std::setw(10) << std::left << k.id << " " << k.name << '\n';
  std::cout << "\ndeclarations:\n";
  for (const auto& d : host.components().Declarations(host::ReferenceHost::kModuleName)) {
    using K = vex::DeclarationKind;
    switch (d.kind) {
      case K::Component:
        std::cout << "  class      " << d.id << (host.components().IsClassPublished(d.id) ? "" : " (unpublished)")
                  << '\n';
        break;
      case K::Interface:
        std::cout << "  interface  " << d.id << '\n';
        break;
      case K::Registry:
        std::cout << "  registry   " << d.id << '\n';
        break;
      case K::DataType:
        std::cout << "  data type  " << d.id << " (" << d.related << ")\n";
        break;
      case K::RegistryEntry:
        std::cout << "  entry      " << d.id << " in " << d.related << '\n';
        break;
      case K::Setting:
        std::cout << "  setting    " << d.id << " - " << d.related << '\n';
        break;
      default:
        break;
    }
  }
  return kExitOk;
}

struct MapArgs {
  std::string input;
  std::string target;
  std::string output;
  bool floatTextures = false;
};

int RunMap(Context& context, const MapArgs& args) {
  auto h = context.Host();
  if (!h) return Fail(h.error());
  host::ReferenceHost& host = **h;
  auto set = ReadSetFile(host, args.input);
  if (!set) return Fail(set.error());
  if (auto target = host.bundles().Find(args.target); !target) return Fail(target.error());
  auto mapping = host::formats::FindMappingEitherWay(*set, args.target);
  if (!mapping) return Fail(mapping.error(), kExitNoMapping);
  auto source = std::make_shared<const vex::ParameterSet>(std::move(*set));
  auto result = (*mapping)->MapMaterialData(source);
  if (!result) return Fail(args.input + ": " + result.error().message + " (" + result.error().unit + ":" +
                           std::to_string(result.error().line) + ")");
  auto write = SetWriteOptions(host);
  write.floatTextures = args.floatTextures;
  // The output's directory is made if missing, and removed again when the write fails.
  host::StagedOutput staged;
  if (auto written = host::json::WriteParameterSetFile(args.output, *result->target, write, staged); !written)
    return Fail(written.error());
  if (auto committed = staged.CommitAll(); !committed) return Fail(committed.error());
  for (const auto& d : result->defaults.entries)
    std::cerr << "default used: " << d.sourcePort << " -> " << d.targetPort << '\n';
  return kExitOk;
}

}  // namespace

void AddCoreCommands(CLI::App& app, Context& context) {
  auto* info = app.add_subcommand("info", "List the module's plug-ins and declarations");
  info->callback([&context] { throw CLI::RuntimeError(RunInfo(context)); });

  auto args = std::make_shared<MapArgs>();
  auto* map = app.add_subcommand("map", "Map a parameter set into another port bundle");
  map->add_option("input", args->input, "Parameter-set JSON")->required()->check(CLI::ExistingFile);
  map->add_option("--to", args->target, "Target port bundle id")->required();
  map->add_option("-o,--output", args->output, "Output parameter-set JSON (textures are written beside it)")
      ->required();
  map->add_flag("--float-textures", args->floatTextures, "Write textures as 32-bit float EXR instead of PNG");
  map->callback([&context, args] { throw CLI::RuntimeError(RunMap(context, *args)); });
}

}  // namespace cli
