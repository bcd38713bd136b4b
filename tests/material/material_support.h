// Shared fixtures of the material export, baker and import tests: materials
// in a scratch document, export descriptions and tiny image files.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "host/images.h"
#include "host/materials.h"
#include "test_host.h"
#include "vex/interfaces.h"
#include "vex/lookup.h"

namespace testing_support {

/// A document in a scratch directory of its own, closed and removed at the end of the test.
struct ScratchDocument {
  std::filesystem::path dir;
  host::Document* document = nullptr;

  explicit ScratchDocument(const std::string& name) {
    dir = std::filesystem::temp_directory_path() / ("interop_material_" + name + "_" + std::to_string(getpid()));
    std::filesystem::create_directories(dir);
    document = &Host().documents().NewDocument(name);
    document->SetPath(dir.string());
  }
  ~ScratchDocument() {
    Host().documents().Close(document);
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
  }
  /// Inserts a material and returns it as the exporter sees it.
  std::shared_ptr<host::Material> Add(std::shared_ptr<host::Material> material) {
    (void)document->Materials().Insert(material);
    return material;
  }
  /// Writes a w x h RGBA image whose pixel (x, y) is fill(x, y), 8-bit sRGB-encoded or 32-bit float.
  template <class Fill>
  std::string Image(const std::string& file, std::int64_t w, std::int64_t h, Fill fill, bool floatPixels = false) {
    auto buffer = vex::TextureBuffer::Make(w, h);
    for (std::int64_t y = 0; y < h; ++y)
      for (std::int64_t x = 0; x < w; ++x) {
        const std::array<float, 4> c = fill(x, y);
        std::copy(c.begin(), c.end(), buffer._pixels->Pixel(static_cast<std::size_t>(y * w + x)));
      }
    host::ImageWriteOptions options;
    options.floatPixels = floatPixels;
    const auto path = (dir / file).string();
    (void)host::WriteImage(path, buffer, options);
    return path;
  }
};

inline vex::MaterialTypesMap Accept(std::initializer_list<std::pair<std::string_view, std::int32_t>> entries) {
  vex::MaterialTypesMap map;
  for (const auto& [bundle, value] : entries) map.Insert(vex::Id(bundle), value);
  return map;
}

inline vex::DataDictionary Description(const vex::MaterialTypesMap& accepted, std::string_view space = {},
                                       std::int64_t size = 16,
                                       vex::TextureResize resize = vex::TextureResize::Stretch) {
  vex::DataDictionary d;
  if (!space.empty()) d.Set("spaceId", vex::Id(space));
  d.Set("materialTypes", vex::Data::MakeCustom(accepted));
  d.Set("textureDimensions", size);
  d.Set("textureResize", static_cast<std::int32_t>(resize));
  return d;
}

inline std::shared_ptr<vex::IMaterialExport> NewExporter() {
  auto exporter = vex::CreateAs<vex::IMaterialExport>("net.kelvo.material.class.materialexport.mmaterial");
  return exporter ? *exporter : nullptr;
}

inline std::shared_ptr<host::Material> ChannelMaterial(const std::string& name, vex::Color color) {
  auto m = host::MakeMaterial(vex::kStandardMaterialType, name);
  m->MutableParameters().Set(vex::kMaterialColorValue, color);
  return m;
}

inline std::shared_ptr<host::Shader> Bitmap(const std::string& file) {
  auto shader = std::make_shared<host::Shader>(vex::kBitmapShaderType);
  shader->MutableParameters().Set(vex::kBitmapShaderFile, file);
  return shader;
}

/// A node material with one graph: an end node of `endAsset` with `ports`.
inline std::shared_ptr<host::Material> NodeMaterial(const std::string& name, std::string_view space,
                                                    std::string_view endAsset, vex::DataDictionary ports = {}) {
  auto m = host::MakeMaterial(vex::kStandardMaterialType, name);
  m->SetNodeBased(true);
  vex::NodeGraph graph;
  graph.endNode = "material";
  graph.nodes.push_back({"material", vex::Id(endAsset), std::move(ports)});
  m->SetGraph(std::string(space), std::move(graph));
  return m;
}

/// Adds a node feeding `port` of the end node (or of node `to`).
inline void Feed(host::Material& m, std::string_view space, vex::GraphNode node, std::string port,
                 std::string to = "material") {
  vex::NodeGraph graph = *m.GetGraph(space);
  graph.links.push_back({node.id, std::move(to), std::move(port)});
  graph.nodes.push_back(std::move(node));
  m.SetGraph(std::string(space), std::move(graph));
}

inline vex::DataDictionary Ports(std::initializer_list<std::pair<std::string, vex::Data>> entries) {
  vex::DataDictionary d;
  for (const auto& [k, v] : entries) d.Set(k, v);
  return d;
}

/// Every console line so far, one per line.
inline std::string ConsoleText() {
  std::string text;
  for (const auto& line : Host().console().Lines()) text += line + "\n";
  return text;
}

}  // namespace testing_support
