// vexinterop light colortemp | base-intensity | convert | build
#include <cmath>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "cli/commands.h"
#include "host/scene_file.h"
#include "vex/interfaces.h"
#include "vex/lookup.h"

namespace fs = std::filesystem;

namespace cli {
namespace {

constexpr std::string_view kGlobalUtilsClass = "net.kelvo.exchange.globalutils";
constexpr std::string_view kGlobalImportClass = "net.kelvo.exchange.globalimport";
constexpr std::string_view kCorvaneNodeSpace = "com.corvane3d.corvane4vex.class.nodespace";
// Corvane light parameters the command reports on.
constexpr std::int32_t kLightTypeParameter = 10000;
constexpr std::int32_t kIntensityParameter = 11004;
constexpr std::int32_t kUnitsParameter = 11005;

std::string Number(double v) {
  std::ostringstream out;
  out << std::setprecision(17) << v;
  return out.str();
}

/// "file: message (unit:line)" on stderr.
int FailIn(const std::string& file, const vex::Error& error) {
  return Fail(file + ": " + error.message + " (" + error.unit + ":" + std::to_string(error.line) + ")");
}

bool IsTemperature(double t) { return std::isfinite(t) && t > 0.0; }

struct Session {
  host::ReferenceHost* host = nullptr;
  std::shared_ptr<vex::IGlobalUtils> utils;
};

vex::Result<Session> Open(Context& context) {
  Session s;
  VEX_ASSIGN(s.host, context.Host());
  VEX_ASSIGN(s.utils, vex::CreateAs<vex::IGlobalUtils>(kGlobalUtilsClass));
  return s;
}

// --- colortemp --------------------------------------------------------------------------------------

struct ColorTempArgs {
  double temperature = 0;
  double white = 6500.0;
  bool normalize = false;
};

int RunColorTemp(Context& context, const ColorTempArgs& args) {
  if (!IsTemperature(args.temperature))
    return Fail("colortemp: the temperature must be a positive number of kelvin, not " + Number(args.temperature));
  if (!IsTemperature(args.white))
    return Fail("colortemp: --white must be a positive number of kelvin, not " + Number(args.white));
  auto session = Open(context);
  if (!session) return Fail(session.error());
  const vex::Color rgb = session->utils->ComputeColorTemperatureRGB(args.temperature, args.normalize, args.white);
  std::cout << Number(rgb.r) << ' ' << Number(rgb.g) << ' ' << Number(rgb.b) << '\n';
  return kExitOk;
}

// --- base-intensity and convert ---------------------------------------------------------------------

struct SceneArgs {
  std::string scene;
  std::string object;
  std::int32_t units = 0;
  std::string output;
};

vex::Result<host::SceneObject*> FindLight(host::ReferenceHost& h, const SceneArgs& args, host::Document*& document) {
  VEX_ASSIGN(document, LoadScene(h, args.scene));
  host::SceneObject* object = document->FindObject(args.object);
  if (object == nullptr)
    return VEX_FAIL(vex::ErrorKind::NotFound, "no object named \"" + args.object + "\" in the scene");
  return object;
}

int RunBaseIntensity(Context& context, const SceneArgs& args) {
  auto session = Open(context);
  if (!session) return Fail(session.error());
  host::Document* document = nullptr;
  auto light = FindLight(*session->host, args, document);
  if (!light) return FailIn(args.scene, light.error());
  auto base = session->utils->CVLightGetBaseIntensity(*light);
  if (!base) return FailIn(args.scene, base.error());
  std::cout << Number(*base) << '\n';
  return kExitOk;
}

int RunConvert(Context& context, const SceneArgs& args) {
  auto session = Open(context);
  if (!session) return Fail(session.error());
  host::Document* document = nullptr;
  auto found = FindLight(*session->host, args, document);
  if (!found) return FailIn(args.scene, found.error());
  host::SceneObject& light = **found;
  const auto& p = light.Parameters();
  const std::int32_t unitsBefore = p.GetInt32(kUnitsParameter, -1);
  const double intensityBefore = p.GetFloat(kIntensityParameter, 1.0);
  if (auto converted = session->utils->CVLightConvertToUnit(&light, args.units); !converted)
    return FailIn(args.scene, converted.error());
  // The conversion leaves image units (0) in the units parameter; when it rewrote the intensity of
  // a light it converts (types 0 to 3), the new units are stored so that the scene stays consistent.
  const std::int32_t type = p.GetInt32(kLightTypeParameter, -1);
  const bool rewritten = type >= 0 && type <= 3 && unitsBefore != args.units;
  if (rewritten) {
    if (auto stored = light.SetParameter(kUnitsParameter, args.units); !stored)
      return FailIn(args.scene, stored.error());
  }
  if (auto saved = SaveSceneWithTextures(*document, args.output); !saved) return Fail(saved.error());
  std::cout << "units " << unitsBefore << " -> " << p.GetInt32(kUnitsParameter, -1) << ", intensity "
            << Number(intensityBefore) << " -> " << Number(p.GetFloat(kIntensityParameter, 1.0))
            << (rewritten ? "" : " (unchanged)") << '\n';
  return kExitOk;
}

// --- build ------------------------------------------------------------------------------------------

struct BuildArgs {
  std::string description;
  std::string space = std::string(kCorvaneNodeSpace);
  std::string into;
  std::string output;
};

int RunBuild(Context& context, const BuildArgs& args) {
  auto session = Open(context);
  if (!session) return Fail(session.error());
  host::ReferenceHost& h = *session->host;
  auto dictionary = host::scene_file::ReadDictionaryFile(args.description, SceneReadOptions(h));
  if (!dictionary) return Fail(dictionary.error());
  vex::tessel::VEXObjectDescription description{std::move(*dictionary)};
  if (auto conformed = session->utils->ConformDescription(description); !conformed)
    return FailIn(args.description, conformed.error());
  host::Document* document = nullptr;
  if (!args.into.empty()) {
    auto loaded = LoadScene(h, args.into);
    if (!loaded) return Fail(loaded.error());
    document = *loaded;
  } else {
    document = &h.documents().NewDocument(fs::path(args.output).stem().string());
  }
  auto importer = vex::CreateAs<vex::IGlobalImport>(kGlobalImportClass);
  if (!importer) return Fail(importer.error());
  auto objects = (*importer)->ImportObjects(*document, args.space, {description}, nullptr);
  if (!objects) return FailIn(args.description, objects.error());
  if (auto saved = SaveSceneWithTextures(*document, args.output); !saved) return Fail(saved.error());
  for (const vex::ISceneObject* o : *objects)
    std::cout << "built \"" << o->GetName() << "\" (object type " << o->GetType() << ") into " << args.output << '\n';
  return kExitOk;
}

}  // namespace

void AddLightCommands(CLI::App& app, Context& context) {
  auto* light = app.add_subcommand("light", "Light units, colour temperature and light descriptions");
  light->require_subcommand(1);

  auto ct = std::make_shared<ColorTempArgs>();
  auto* colortemp = light->add_subcommand("colortemp", "Linear sRGB of a colour temperature (R G B)");
  colortemp->add_option("temperature", ct->temperature, "Colour temperature in kelvin")->required();
  colortemp->add_option("--white", ct->white, "White point temperature in kelvin (default 6500)");
  colortemp->add_flag("--normalize", ct->normalize, "Divide by the largest component");
  colortemp->callback([&context, ct] { throw CLI::RuntimeError(RunColorTemp(context, *ct)); });

  auto bi = std::make_shared<SceneArgs>();
  auto* base = light->add_subcommand("base-intensity", "Print a Corvane light's intensity in image units");
  base->add_option("scene", bi->scene, "Scene file (.vex)")->required()->check(CLI::ExistingFile);
  base->add_option("--object", bi->object, "Name of the light")->required();
  base->callback([&context, bi] { throw CLI::RuntimeError(RunBaseIntensity(context, *bi)); });

  auto cv = std::make_shared<SceneArgs>();
  auto* convert = light->add_subcommand("convert", "Rewrite a Corvane light's intensity in other units");
  convert->add_option("scene", cv->scene, "Scene file (.vex)")->required()->check(CLI::ExistingFile);
  convert->add_option("--object", cv->object, "Name of the light")->required();
  convert
      ->add_option("--units", cv->units,
                   "Target units: 0 image, 1 luminous power, 2 luminance, 3 radiant power, 4 radiance")
      ->required();
  convert->add_option("-o,--output", cv->output, "Scene file to write")->required();
  convert->callback([&context, cv] { throw CLI::RuntimeError(RunConvert(context, *cv)); });

  auto bd = std::make_shared<BuildArgs>();
  auto* build = light->add_subcommand("build", "Build a host object from a neutral description and save the scene");
  build->add_option("description", bd->description, "Description JSON (keys are attribute ids)")
      ->required()
      ->check(CLI::ExistingFile);
  build->add_option("--space", bd->space, "Node space of the renderer (default: the Corvane node space)");
  build->add_option("--into", bd->into, "Add the object to this scene instead of a new one")->check(CLI::ExistingFile);
  build->add_option("-o,--output", bd->output, "Scene file to write")->required();
  build->callback([&context, bd] { throw CLI::RuntimeError(RunBuild(context, *bd)); });
}

}  // namespace cli
