// vexinterop material export|import
#include <charconv>
#include <filesystem>
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "host/material_exchange.h"
#include "host/paramset_json.h"
#include "host/staged_output.h"
#include "host/scene_file.h"

namespace fs = std::filesystem;

namespace cli {
namespace {

struct ExportArgs {
  std::string scene;
  std::string material;
  std::vector<std::string> accept;
  std::int64_t textureSize = 1024;
  std::string resize = "stretch";
  std::string output;
};

struct ImportArgs {
  std::string set;
  std::string scene;
  std::string space{vex::nodespace::kCorvane};
  std::string output;
};

vex::Result<vex::TextureResize> ResizeMode(const std::string& name) {
  if (name == "stretch") return vex::TextureResize::Stretch;
  if (name == "pad") return vex::TextureResize::Pad;
  if (name == "crop") return vex::TextureResize::Crop;
  if (name == "fit") return vex::TextureResize::Fit;
  return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                  "--resize: unknown mode \"" + name + "\" (stretch, pad, crop or fit)");
}

vex::Result<vex::MaterialTypesMap> AcceptedBundles(const std::vector<std::string>& accept,
                                                   const vex::IPortBundles& bundles) {
  if (accept.empty()) return host::DefaultAcceptedBundles();
  vex::MaterialTypesMap map;
  for (const auto& a : accept) {
    const auto eq = a.find('=');
    std::int32_t value = 0;
    const char* end = a.data() + a.size();
    if (eq == std::string::npos || eq == 0 ||
        std::from_chars(a.data() + eq + 1, end, value).ptr != end || eq + 1 == a.size())
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, "--accept: expected BUNDLE_ID=VALUE, got \"" + a + "\"");
    const std::string bundle = a.substr(0, eq);
    VEX_TRY(bundles.Find(bundle));
    map.Insert(vex::Id(bundle), value);
  }
  return map;
}

int RunExport(Context& context, const ExportArgs& args) {
  auto h = context.Host();
  if (!h) return Fail(h.error());
  host::ReferenceHost& host = **h;
  host::MaterialExportRequest request;
  auto accepted = AcceptedBundles(args.accept, host.bundles());
  if (!accepted) return Fail(accepted.error());
  request.accepted = std::move(*accepted);
  auto resize = ResizeMode(args.resize);
  if (!resize) return Fail(resize.error());
  request.resize = *resize;
  request.textureSize = args.textureSize;

  auto document = LoadScene(host, args.scene);
  if (!document) return Fail(document.error());
  std::shared_ptr<host::Material> material;
  for (const auto& m : (*document)->Materials().All())
    if (m->GetName() == args.material) material = m;
  if (!material) return Fail(args.scene + ": no material named \"" + args.material + "\"");

  auto set = host::ExportMaterial(material, request);
  if (!set) return Fail(args.scene + ": material \"" + args.material + "\": " + set.error().message + " (" +
                        set.error().unit + ":" + std::to_string(set.error().line) + ")");
  auto write = SetWriteOptions(host);
  // The output's directory is made if missing, and removed again when the write fails.
  host::StagedOutput staged;
  if (auto written = host::json::WriteParameterSetFile(args.output, *set, write, staged); !written)
    return Fail(written.error());
  if (auto committed = staged.CommitAll(); !committed) return Fail(committed.error());
  std::cout << args.material << " -> " << set->GetBundle().Str() << " (" << set->Size() << " parameters)\n";
  return kExitOk;
}

int RunImport(Context& context, const ImportArgs& args) {
  auto h = context.Host();
  if (!h) return Fail(h.error());
  host::ReferenceHost& host = **h;
  auto set = ReadSetFile(host, args.set);
  if (!set) return Fail(set.error());
  auto loaded = LoadScene(host, args.scene);
  if (!loaded) return Fail(loaded.error());
  host::Document& document = **loaded;

  // The scene is saved elsewhere: its file references and the imported textures follow it there.
  const fs::path out = fs::absolute(args.output);
  host::RebaseFileReferences(document, out.parent_path().string());
  document.SetName(out.stem().string());

  auto material = host::ImportMaterial(document, *set, args.space);
  if (!material) return Fail(args.set + ": " + material.error().message + " (" + material.error().unit + ":" +
                             std::to_string(material.error().line) + ")");
  if (auto* imported = dynamic_cast<host::Material*>(material->get()))
    imported->SetName(fs::path(args.set).stem().string());

  auto textures = SaveSceneWithTextures(document, out.string());
  if (!textures) return Fail(textures.error());
  std::cout << (*material)->GetName() << " -> " << args.output << " (" << *textures << " textures)\n";
  return kExitOk;
}

}  // namespace

void AddMaterialCommands(CLI::App& app, Context& context) {
  auto* material = app.add_subcommand("material", "Export a scene material or import a parameter set");
  material->require_subcommand(1);

  auto exportArgs = std::make_shared<ExportArgs>();
  auto* ex = material->add_subcommand("export", "Export a material of a scene as a parameter set");
  ex->add_option("scene", exportArgs->scene, "Scene file (.vex)")->required()->check(CLI::ExistingFile);
  ex->add_option("--material", exportArgs->material, "Name of the material")->required();
  ex->add_option("--accept", exportArgs->accept,
                 "Accepted port bundle and its value (0: preferred), repeatable; default: standard surface, "
                 "Corvane and viewport material, all 0");
  ex->add_option("--texture-size", exportArgs->textureSize, "Size N of baked textures")
      ->check(WholeNumberIn(1, 16384));
  ex->add_option("--resize", exportArgs->resize, "How baked textures fit N x N: stretch, pad, crop or fit");
  ex->add_option("-o,--output", exportArgs->output, "Output parameter-set JSON (textures are written beside it)")
      ->required();
  ex->callback([&context, exportArgs] { throw CLI::RuntimeError(RunExport(context, *exportArgs)); });

  auto importArgs = std::make_shared<ImportArgs>();
  auto* im = material->add_subcommand("import", "Import a parameter set as a node material into a scene");
  im->add_option("set", importArgs->set, "Parameter-set JSON")->required()->check(CLI::ExistingFile);
  im->add_option("--scene", importArgs->scene, "Scene file (.vex) to add the material to")
      ->required()
      ->check(CLI::ExistingFile);
  im->add_option("--space", importArgs->space, "Node space of the new material")->capture_default_str();
  im->add_option("-o,--output", importArgs->output, "Output scene file (.vex); imported textures go beside it")
      ->required();
  im->callback([&context, importArgs] { throw CLI::RuntimeError(RunImport(context, *importArgs)); });
}

}  // namespace cli
