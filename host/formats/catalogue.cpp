#include "host/formats/catalogue.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <vector>

#include "host/formats/formats.h"
#include "host/input_files.h"
#include "host/staged_output.h"
#include "vex/ports.h"

namespace host::formats {

// The format units: one writer and, where the host reads the format, one reader each.
namespace detail {
vex::Result<WrittenFiles> WriteGltf(const SceneData&, const std::string&, const std::string&, const vex::IPortBundles&,
                                    const WriteOptions&);
vex::Result<SceneData> ReadGltf(const std::string&, const vex::IPortBundles&, const ReadOptions&);
vex::Result<WrittenFiles> WriteFbx(const SceneData&, const std::string&, const std::string&, const vex::IPortBundles&,
                                   const WriteOptions&);
vex::Result<SceneData> ReadFbx(const std::string&, const vex::IPortBundles&, const ReadOptions&);
vex::Result<WrittenFiles> WriteUsd(const SceneData&, const std::string&, const std::string&, const vex::IPortBundles&,
                                   const WriteOptions&);
vex::Result<WrittenFiles> WriteObj(const SceneData&, const std::string&, const std::string&, const vex::IPortBundles&,
                                   const WriteOptions&);
vex::Result<SceneData> ReadObj(const std::string&, const vex::IPortBundles&, const ReadOptions&);
}  // namespace detail

namespace {

constexpr std::array<std::string_view, 1> kGltfSuffixes = {".gltf"};
constexpr std::array<std::string_view, 1> kGlbSuffixes = {".glb"};
constexpr std::array<std::string_view, 2> kUsdSuffixes = {".usda", ".usd"};
constexpr std::array<std::string_view, 1> kObjSuffixes = {".obj"};
constexpr std::array<std::string_view, 1> kFbxSuffixes = {".fbx"};

constexpr std::array<std::string_view, 1> kGltfBundles = {vex::ports::gltf::kId};
constexpr std::array<std::string_view, 1> kUsdBundles = {vex::ports::usdpreviewsurface::kId};
constexpr std::array<std::string_view, 1> kObjBundles = {vex::ports::obj::kId};
// FBX takes its Phong bundle, then the OBJ bundle: the OBJ model's colours, opacity and normal
// map are what a Phong surface carries too, and the Corvane bundle has a mapping only to OBJ.
constexpr std::array<std::string_view, 2> kFbxBundles = {vex::ports::fbxsurfacephong::kId, vex::ports::obj::kId};

const std::array<FormatRow, 5> kCatalogue = {{
    {"gltf", kGltfSuffixes, kGltfBundles, &detail::ReadGltf, &detail::WriteGltf,
     kOptionGlb | kOptionEmissiveStrength, false, "glTF 2.0 (.gltf + .bin + PNG textures)"},
    {"glb", kGlbSuffixes, kGltfBundles, &detail::ReadGltf, &detail::WriteGltf, kOptionEmissiveStrength, true,
     "glTF 2.0 binary (one .glb)"},
    {"usd", kUsdSuffixes, kUsdBundles, nullptr, &detail::WriteUsd, kOptionFloatTextures, false,
     "USD text (.usda + textures)"},
    {"obj", kObjSuffixes, kObjBundles, &detail::ReadObj, &detail::WriteObj, kOptionFloatTextures, false,
     "Wavefront OBJ + MTL"},
    {"fbx", kFbxSuffixes, kFbxBundles, &detail::ReadFbx, &detail::WriteFbx, kOptionFbxAscii | kOptionEmbedTextures,
     false, "FBX 7.4 (binary; ASCII on request)"},
}};

std::string Lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

}  // namespace

std::span<const FormatRow> Catalogue() { return kCatalogue; }

const FormatRow* FindFormat(std::string_view name) {
  for (const auto& row : kCatalogue)
    if (row.name == name) return &row;
  return nullptr;
}

const FormatRow* FindReader(std::string_view path) {
  const std::string suffix = Lower(std::filesystem::path(path).extension().string());
  for (const auto& row : kCatalogue)
    if (row.read != nullptr && std::find(row.suffixes.begin(), row.suffixes.end(), suffix) != row.suffixes.end())
      return &row;
  return nullptr;
}

bool WriterTakes(const FormatRow& row, const vex::Id& bundle) {
  return std::any_of(row.bundles.begin(), row.bundles.end(), [&](std::string_view b) { return bundle == b; });
}

std::string FormatNames(std::string_view separator) {
  std::string out;
  for (const auto& row : kCatalogue) {
    if (!out.empty()) out += separator;
    out += row.name;
  }
  return out;
}

std::string ReadableSuffixes(std::string_view separator) {
  std::vector<std::string_view> seen;
  std::string out;
  for (const auto& row : kCatalogue) {
    if (row.read == nullptr) continue;
    for (const auto suffix : row.suffixes) {
      if (std::find(seen.begin(), seen.end(), suffix) != seen.end()) continue;
      seen.push_back(suffix);
      if (!out.empty()) out += separator;
      out += suffix;
    }
  }
  return out;
}

std::string_view OptionFlag(FormatOption option) {
  switch (option) {
    case kOptionGlb: return "--glb";
    case kOptionEmissiveStrength: return "--emissive-strength";
    case kOptionFbxAscii: return "--fbx-ascii";
    case kOptionEmbedTextures: return "--embed-textures";
    case kOptionFloatTextures: return "--float-textures";
  }
  return "";
}

}  // namespace host::formats

namespace host::formats {

// --- file requests -------------------------------------------------------------------------------

SceneData PreviewScene(const std::string& name, vex::ParameterSetRef set) {
  SceneData scene;
  scene.name = name;
  const PreviewMesh sphere = MakeUvSphere();
  MeshData mesh;
  mesh.name = "PreviewSphere";
  mesh.positions = sphere.positions;
  mesh.normals = sphere.normals;
  mesh.uvs = sphere.uvs;
  mesh.tangents = sphere.tangents;
  mesh.indices = sphere.indices;
  mesh.parts.push_back({0, static_cast<std::uint32_t>(sphere.TriangleCount()), 0});
  scene.meshes.push_back(std::move(mesh));
  NodeData node;
  node.name = name;
  node.mesh = 0;
  scene.nodes.push_back(std::move(node));
  scene.materials.push_back({name, std::move(set)});
  return scene;
}

vex::Result<WrittenFiles> WriteFormatFile(const FormatRow& row, const SceneData& scene, const std::string& targetDirectory,
                                          const std::string& stem, const vex::IPortBundles& bundles,
                                          WriteOptions options, StagedOutput& staged) {
  for (const auto& m : scene.materials)
    if (m.set && !WriterTakes(row, m.set->GetBundle()))
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, targetDirectory + ": the " + std::string(row.name) +
                                                           " writer does not take sets of the bundle " +
                                                           m.set->GetBundle().Str() + " (material '" + m.name + "')");
  if (row.glb) options.glb = true;
  VEX_ASSIGN(const std::size_t id, staged.Stage(targetDirectory, StagedOutput::Kind::Directory));
  auto written = row.write(scene, staged.Scratch(id), stem, bundles, options);
  if (!written) {
    staged.Discard(id);
    return written;
  }
  VEX_TRY(staged.Commit(id));
  return written;
}

vex::Result<SceneData> ReadFormatFile(const std::string& path, const vex::IPortBundles& bundles,
                                      const ReadOptions& options) {
  const FormatRow* row = FindReader(path);
  if (row == nullptr)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                    path + ": unknown file type (expected " + ReadableSuffixes(", ") + ")");
  VEX_TRY(CheckInputFile(path));
  return row->read(path, bundles, options);
}

}  // namespace host::formats
