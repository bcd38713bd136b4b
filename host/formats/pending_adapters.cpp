// Bridges from the catalogue's writer and reader signatures to the glTF and FBX units as they
// stand (one material on the preview sphere; materials only on the way in). Replaced whole by
// those units' own scene writers and readers.
#include <filesystem>

#include "host/formats/format_io.h"
#include "host/formats/readers.h"
#include "host/formats/writers.h"

namespace fs = std::filesystem;

namespace host::formats::detail {
namespace {

vex::Result<const MaterialData*> OnlyMaterial(const SceneData& scene, const std::string& directory,
                                              const std::string& stem) {
  if (scene.materials.empty() || !scene.materials.front().set)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                    (fs::path(directory) / stem).string() + ": the scene has no material to write");
  return &scene.materials.front();
}

WrittenFiles Files(WrittenMaterial&& written, const std::string& material) {
  WrittenFiles out{std::move(written.files), std::move(written.warnings), {}};
  for (auto& [port, file] : written.textures) out.textures.push_back({material, port, file});
  return out;
}

SceneData MaterialsOnly(std::vector<ImportedMaterial>&& materials) {
  SceneData scene;
  for (auto& m : materials) {
    for (auto& w : m.warnings) scene.warnings.push_back("material '" + m.name + "': " + w);
    scene.materials.push_back({m.name, std::make_shared<const vex::ParameterSet>(std::move(m.set))});
  }
  return scene;
}

}  // namespace

vex::Result<WrittenFiles> WriteGltf(const SceneData& scene, const std::string& directory, const std::string& stem,
                                    const vex::IPortBundles& bundles, const WriteOptions& options) {
  VEX_ASSIGN(const MaterialData* material, OnlyMaterial(scene, directory, stem));
  if (options.glb)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                    (fs::path(directory) / (stem + ".glb")).string() + ": binary glTF is not written yet");
  // Without the extension the emission stays as the mapping clamped it; the strength the
  // conversion carried is then named as lost.
  vex::ParameterSetRef set = material->set;
  std::string clamped;
  if (!options.emissiveStrength)
    if (const auto* strength = set->Find("emissiveStrength"); strength != nullptr && strength->Constant() != nullptr)
      if (const auto* value = strength->Constant()->Get<double>(); value != nullptr && *value > 1.0) {
        auto copy = std::make_shared<vex::ParameterSet>(*set);
        copy->Erase("emissiveStrength");
        set = std::move(copy);
        clamped = "emission weight " + FormatNumber(*value) + " was clamped to 1 (--emissive-strength keeps it)";
      }
  VEX_ASSIGN(auto written, WriteGltf(PortReader(*set, bundles), stem, directory, options));
  if (!clamped.empty()) written.warnings.insert(written.warnings.begin(), clamped);
  return Files(std::move(written), material->name);
}

vex::Result<WrittenFiles> WriteFbx(const SceneData& scene, const std::string& directory, const std::string& stem,
                                   const vex::IPortBundles& bundles, const WriteOptions& options) {
  VEX_ASSIGN(const MaterialData* material, OnlyMaterial(scene, directory, stem));
  VEX_ASSIGN(auto written, WriteFbx(PortReader(*material->set, bundles), stem, directory, !options.fbxAscii));
  return Files(std::move(written), material->name);
}

vex::Result<SceneData> ReadGltf(const std::string& path, const vex::IPortBundles& bundles, const ReadOptions&) {
  VEX_ASSIGN(auto materials, ReadGltfMaterials(path, bundles));
  return MaterialsOnly(std::move(materials));
}

vex::Result<SceneData> ReadFbx(const std::string& path, const vex::IPortBundles& bundles, const ReadOptions&) {
  VEX_ASSIGN(auto materials, ReadAssimpMaterials(path, false, bundles));
  return MaterialsOnly(std::move(materials));
}

}  // namespace host::formats::detail
