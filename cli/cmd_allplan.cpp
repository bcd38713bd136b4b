// vexinterop allplan INPUT -o OUT.xml: a native scene or a mesh file written as
// Allplan XML through the module's scene saver.
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iostream>

#include "cli/allplan_options.h"
#include "cli/commands.h"
#include "host/staged_output.h"
#include "host/mesh_import.h"
#include "host/scene_file.h"
#include "vex/polygon.h"

namespace fs = std::filesystem;

namespace cli {
namespace {

struct AllplanArgs {
  std::string input;
  std::string output;
  int version = 2004;
  std::string unit;
  bool log = false;
  std::vector<std::string> options;
};

/// Progress is drawn only on a terminal, and only for scenes big enough to take a moment.
constexpr std::uint64_t kProgressPolygons = 200000;

vex::Result<host::Document*> OpenInput(host::ReferenceHost& host, const std::string& path) {
  if (fs::path(path).extension() == ".vex") {
    return LoadScene(host, path);
  }
  if (host::mesh_import::IsMeshFile(path)) return host::mesh_import::Load(host.documents(), path, host.units());
  return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                  path + ": unknown input format (expected a .vex scene or a mesh: .obj .gltf .glb .fbx .ply .stl .dae)");
}

std::uint64_t CountPolygons(const host::Document& document) {
  std::uint64_t total = 0;
  for (const auto* o : document.AllObjects())
    if (const vex::Data* d = o->Parameters().Find(vex::kPolygonMeshParameter))
      if (const auto* mesh = d->Get<vex::PolygonMesh>()) total += mesh->PolygonCount();
  return total;
}

int RunAllplan(Context& context, const AllplanArgs& args) {
  auto h = context.Host();
  if (!h) return Fail(h.error());
  host::ReferenceHost& host = **h;

  vex::ParamContainer settings;
  for (const auto& o : args.options)
    if (auto applied = ApplyAllplanOption(o, settings); !applied) return Fail(applied.error().message);
  settings.Set(2009, args.log);
  settings.Set(2110, args.version == 2005);
  if (!args.unit.empty()) {
    const auto unit = host.units().FindUnit(args.unit);
    if (!unit) return Fail("--unit " + args.unit + ": unknown unit");
    settings.Set(2005, vex::Data::MakeCustom(*unit));
  }

  auto opened = OpenInput(host, args.input);
  if (!opened) return Fail(opened.error().message);
  host::Document& document = **opened;
  if (!args.unit.empty() && !document.Settings().Contains(vex::kDocumentLengthUnit))
    std::cerr << "vexinterop: warning: " << args.input << " has no unit (setting 2117); --unit is not applied\n";

  const auto* saver = host.plugins().FindSaver("Allplan");
  if (saver == nullptr) return Fail("the module did not register the Allplan saver");
  const auto instance = saver->allocate();

  // The saver writes under scratch names beside the target (its log beside its file); they
  // replace the targets only when everything was written.
  const fs::path target(args.output);
  const fs::path targetLog = fs::path(target).replace_extension(".txt");
  host::StagedOutput staged;
  auto fileId = staged.Stage(target.string(), host::StagedOutput::Kind::File);
  if (!fileId) return Fail(fileId.error().message);
  auto logId = staged.Stage(targetLog.string(), host::StagedOutput::Kind::File);
  if (!logId) return Fail(logId.error().message);
  const fs::path temp = staged.Scratch(*fileId);

  host.console().Clear();
  host.dialogs().Clear();
  host.fileViewer().Clear();
  const bool progress = isatty(STDERR_FILENO) != 0 && CountPolygons(document) >= kProgressPolygons;
  int lastPercent = -1;
  if (progress)
    host.statusBar().listener = [&](std::string_view, double fraction) {
      if (fraction < 0) {
        std::fputs("\r\033[K", stderr);
        return;
      }
      const int percent = static_cast<int>(fraction * 100);
      if (percent == lastPercent) return;
      lastPercent = percent;
      std::fprintf(stderr, "\rwriting %s: %3d%%", target.filename().c_str(), percent);
      std::fflush(stderr);
    };
  const std::int32_t result = instance->Save(settings, temp.string(), document);
  host.statusBar().listener = nullptr;

  const auto reasons = [&] {
    std::string text;
    for (const auto& line : host.console().Lines()) text += "\n  " + line;
    return text;
  };
  if (result != 0)
    return Fail(args.input + ": Allplan export failed (result " + std::to_string(result) + ")" + reasons());
  const bool walkFailed = !host.dialogs().Records().empty();
  if (args.log) {
    if (auto committed = staged.Commit(*logId); !committed) return Fail(committed.error().message);
  }
  if (walkFailed)
    return Fail(args.input + ": some objects could not be written, no file made" + reasons() +
                (args.log ? "\n  see " + targetLog.string() : std::string()));
  if (auto committed = staged.Commit(*fileId); !committed) return Fail(committed.error().message);
  std::error_code ec;
  std::cout << "wrote " << target.string() << " (" << fs::file_size(target, ec) << " bytes)";
  if (args.log) std::cout << " and " << targetLog.string();
  std::cout << '\n';
  return kExitOk;
}

}  // namespace

void AddAllplanCommands(CLI::App& app, Context& context) {
  auto args = std::make_shared<AllplanArgs>();
  auto* cmd = app.add_subcommand("allplan", "Write a scene (.vex) or a mesh file as Allplan XML");
  cmd->add_option("input", args->input, "A .vex scene, or a mesh: .obj .gltf .glb .fbx .ply .stl .dae")
      ->required();
  cmd->add_option("-o,--output", args->output, "The Allplan XML file to write")->required();
  cmd->add_option("--version", args->version, "Document version")->check(CLI::IsMember({2004, 2005}));
  cmd->add_option("--unit", args->unit, "Unit of the file's coordinates (default: the scene's)")
      ->check(CLI::IsMember({"mm", "cm", "m", "km", "in", "ft"}));
  cmd->add_flag("--log", args->log, "Write a text log beside the file (OUT.txt)");
  cmd->add_option("--options", args->options,
                  "Saver options: prepare (weld points, drop degenerate polygons), edges, faces, volumes, packed, "
                  "weld=TOLERANCE (in the file's unit)")
      ->delimiter(',');
  cmd->callback([&context, args] { throw CLI::RuntimeError(RunAllplan(context, *args)); });
}

}  // namespace cli
