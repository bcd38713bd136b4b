// The command line's material preview and material import through the FBX unit, until the format
// catalogue calls WriteFbx and ReadFbx directly.
#include "host/formats/fbx_surface.h"
#include "host/formats/readers.h"
#include "host/formats/writers.h"

namespace host::formats::detail {

vex::Result<WrittenMaterial> WriteFbx(const PortReader& material, const std::string& name, const std::string& directory,
                                      const vex::IPortBundles& bundles, bool ascii) {
  SceneData scene;
  scene.name = name;
  const PreviewMesh sphere = MakeUvSphere();
  MeshData mesh;
  mesh.name = name;
  mesh.positions = sphere.positions;
  mesh.normals = sphere.normals;
  mesh.uvs = sphere.uvs;
  mesh.indices = sphere.indices;
  mesh.parts.push_back({0, static_cast<std::uint32_t>(sphere.TriangleCount()), 0});
  scene.meshes.push_back(std::move(mesh));
  scene.materials.push_back({name, std::make_shared<const vex::ParameterSet>(material.Set())});
  NodeData node;
  node.name = name;
  node.mesh = 0;
  scene.nodes.push_back(node);
  VEX_ASSIGN(auto output, WriteFbxFile(scene, directory, name, bundles, ascii, false));
  return WrittenMaterial{std::move(output.files), std::move(output.warnings), std::move(output.textures)};
}

}  // namespace host::formats::detail
