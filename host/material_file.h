// The materials of a document in the native scene file: the sections
// "substanceAssets" and "materials". The scene file hands each section over as
// JSON text, so that this unit keeps the material model's format in one place.
//
//   "substanceAssets": [{"name": "Leather", "file": "materials/leather.substance"}],
//   "materials": [
//     {"name": "Brick", "type": 5703,
//      "parameters": {"2100": {"color": [0.6, 0.2, 0.1]}},
//      "links": {"8000": {"shader": 5833, "parameters": {"1010": "materials/brick.png"}}}},
//     {"name": "Leather", "type": 5703,
//      "links": {"8000": {"shader": 1032171, "assets": {"1000": "Leather"}}}},
//     {"name": "Metal", "type": 5703, "nodeBased": true,
//      "graphs": {"com.corvane3d.corvane4vex.class.nodespace": {
//        "endNode": "material",
//        "nodes": [{"id": "material", "asset": "com.corvane3d.corvane4vex.node.standardmaterial",
//                   "ports": {"diffuse_color": {"color": [0.8, 0.8, 0.8]}}},
//                  {"id": "albedo", "asset": "net.kelvo.nodes.node.image",
//                   "ports": {"file": "materials/albedo.png", "colorSpace": "sRGB"}}],
//        "links": [{"from": "albedo", "to": "material", "port": "diffuse_color"}]}}}]
//
// Values are the scene file's typed values ({"float64": 1}, {"color": [..]}, ...).
#pragma once

#include <string>
#include <string_view>

#include "host/scene.h"
#include "vex/error.h"

namespace host::material_file {

/// Reads both sections (each a JSON array as text; "[]" when the file has none) into the
/// document's material store. Messages name `source` and the place in the file.
vex::Result<void> Read(std::string_view assetsJson, std::string_view materialsJson, const std::string& source,
                       Document& document);

struct Sections {
  std::string assets;     ///< JSON array
  std::string materials;  ///< JSON array
};

/// The document's materials as the two sections. Fails for a value the file cannot hold.
vex::Result<Sections> Write(const Document& document);

}  // namespace host::material_file
