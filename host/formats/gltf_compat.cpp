// The material-preview entry points (WriteMaterial, ReadMaterials) served by the glTF scene
// writer and reader: one material on the preview sphere out, every material of a file in.
#include <memory>

#include "host/formats/gltf_bridge.h"
#include "host/formats/readers.h"
#include "host/formats/writers.h"
#include "vex/ports.h"

namespace host::formats::detail {
namespace {

/// The one bundle a PortReader knows, as the registry the scene writer asks.
class OneBundle final : public vex::IPortBundles {
 public:
  explicit OneBundle(const vex::PortBundle* bundle) : bundle_(bundle) {}
  vex::Result<const vex::PortBundle*> Find(std::string_view id) const override {
    if (bundle_ != nullptr && bundle_->id == id) return bundle_;
    return VEX_FAIL(vex::ErrorKind::NotFound, "Unknown port bundle: " + std::string(id));
  }
  std::vector<std::string> Ids() const override {
    if (bundle_ == nullptr) return {};
    return {bundle_->id.Str()};
  }

 private:
  const vex::PortBundle* bundle_;
};

}  // namespace

vex::Result<WrittenMaterial> WriteGltf(const PortReader& material, const std::string& name,
                                       const std::string& directory, const WriteOptions& options) {
  const PreviewMesh sphere = MakeUvSphere();
  SceneData scene;
  scene.name = name;
  MeshData mesh;
  mesh.name = name;
  mesh.positions = sphere.positions;
  mesh.normals = sphere.normals;
  mesh.uvs = sphere.uvs;
  mesh.tangents = sphere.tangents;
  mesh.indices = sphere.indices;
  mesh.parts.push_back({0, static_cast<std::uint32_t>(sphere.TriangleCount()), 0});
  scene.meshes.push_back(std::move(mesh));
  scene.materials.push_back({name, std::make_shared<const vex::ParameterSet>(material.Set())});
  NodeData node;
  node.name = name;
  node.mesh = 0;
  scene.nodes.push_back(node);
  const OneBundle bundles(material.Bundle());
  VEX_ASSIGN(auto files, WriteGltfScene(scene, directory, name, bundles, options.emissiveStrength, false));
  WrittenMaterial written;
  written.files = std::move(files.files);
  const std::string prefix = "material '" + name + "': ";
  for (auto& warning : files.warnings)
    written.warnings.push_back(warning.rfind(prefix, 0) == 0 ? warning.substr(prefix.size()) : warning);
  written.textures = std::move(files.textures);
  return written;
}

vex::Result<std::vector<ImportedMaterial>> ReadGltfMaterials(const std::string& path,
                                                             const vex::IPortBundles& bundles) {
  VEX_ASSIGN(auto scene, ReadGltfScene(path, bundles));
  std::vector<ImportedMaterial> out;
  for (auto& material : scene.materials) {
    ImportedMaterial imported;
    imported.name = material.name;
    imported.set = *material.set;
    // The import mappings read the emission from the factor alone: the strength goes into it.
    if (const auto* strength = imported.set.Find(vex::ports::gltf::emissiveStrength)) {
      const double s = *strength->Constant()->Get<double>();
      vex::Color factor{0, 0, 0};
      if (const auto* f = imported.set.Find(vex::ports::gltf::emissiveFactor))
        if (const auto* c = f->Constant()->Get<vex::Color>()) factor = *c;
      imported.set.SetConstant(vex::ports::gltf::emissiveFactor, vex::Color{factor.r * s, factor.g * s, factor.b * s});
      imported.set.Erase(vex::ports::gltf::emissiveStrength);
    }
    const std::string prefix = "material '" + material.name + "': ";
    for (const auto& warning : scene.warnings)
      if (warning.rfind(prefix, 0) == 0) imported.warnings.push_back(warning.substr(prefix.size()));
    out.push_back(std::move(imported));
  }
  return out;
}

}  // namespace host::formats::detail
