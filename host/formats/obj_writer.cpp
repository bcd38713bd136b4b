// Wavefront OBJ + MTL written by the project. The OBJ bundle's ports become
// the MTL statements of the classic set (Kd, Ks, Ke, Ni, d, Tf) and of the
// PBR extension (Pm, Pr, aniso, anisor, norm), textures as map_* statements.
// A textured port writes a factor of 1 beside its map: MTL multiplies the two,
// and the texture alone is the port's value.
#include <cmath>
#include <sstream>

#include "host/formats/writers.h"

namespace host::formats::detail {
namespace {

struct Statement {
  std::string_view port;
  std::string_view key;     ///< the constant's statement
  std::string_view map;     ///< the texture's statement; empty when MTL has none
  bool color;               ///< three numbers instead of one
};

constexpr Statement kStatements[] = {
    {"diffuse_color", "Kd", "map_Kd", true},       {"specular_color", "Ks", "map_Ks", true},
    {"emissive_color", "Ke", "map_Ke", true},      {"metallic", "Pm", "map_Pm", false},
    {"roughness", "Pr", "map_Pr", false},          {"anisotropy", "aniso", "", false},
    {"anisotropy_rotation", "anisor", "", false},  {"transmission_color", "Tf", "", true},
    {"transmission_ior", "Ni", "", false},         {"opacity", "d", "map_d", false},
};

}  // namespace

vex::Result<WrittenMaterial> WriteObj(const PortReader& material, const std::string& name,
                                      const std::string& directory) {
  WrittenMaterial written;
  written.files.push_back(name + ".obj");
  written.files.push_back(name + ".mtl");

  std::ostringstream mtl;
  mtl << "# vexinterop\nnewmtl " << name << "\nillum 2\nKa 0 0 0\n";
  for (const Statement& s : kStatements) {
    const std::string port(s.port);
    const vex::TextureBuffer* texture = material.Texture(port);
    // Zero anisotropy is MTL's default; leaving it out keeps files readable by Assimp 5.2, which
    // misreads the "aniso" statement.
    if ((s.key == "aniso" || s.key == "anisor") && texture == nullptr && material.Number(port, 0.0) == 0.0) continue;
    if (texture != nullptr && s.map.empty()) {
      written.warnings.push_back(port + ": MTL has no texture statement for it; its constant was written");
      texture = nullptr;
    }
    if (s.color) {
      const vex::Color c = texture != nullptr ? vex::Color{1, 1, 1} : material.Rgb(port, {0, 0, 0});
      mtl << s.key << " " << FormatNumber(c.r) << " " << FormatNumber(c.g) << " " << FormatNumber(c.b) << "\n";
    } else {
      mtl << s.key << " " << FormatNumber(texture != nullptr ? 1.0 : material.Number(port, 0.0)) << "\n";
    }
    if (texture == nullptr) continue;
    const std::string file = name + "_" + port + ".png";
    VEX_TRY(WriteTexture(directory, file, *texture, material.IsColorPort(port)));
    written.files.push_back(file);
    written.textures.emplace_back(port, file);
    mtl << s.map << " " << file << "\n";
  }
  if (const vex::TextureBuffer* normal = material.Texture("normal_map")) {
    const std::string file = name + "_normal_map.png";
    VEX_TRY(WriteTexture(directory, file, *normal, false));
    written.files.push_back(file);
    written.textures.emplace_back("normal_map", file);
    mtl << "norm " << file << "\n";
  } else if (const vex::Color n = material.Rgb("normal_map", {0.5, 0.5, 1.0});
             std::abs(n.r - 0.5) > 1e-6 || std::abs(n.g - 0.5) > 1e-6 || std::abs(n.b - 1.0) > 1e-6) {
    written.warnings.push_back("normal_map: a constant normal cannot be written to MTL; left out");
  }
  VEX_TRY(WriteText(directory, name + ".mtl", mtl.str()));

  const PreviewMesh mesh = MakeUvSphere();
  std::ostringstream obj;
  obj << "# vexinterop preview sphere\nmtllib " << name << ".mtl\no " << name << "\n";
  for (std::size_t i = 0; i < mesh.VertexCount(); ++i)
    obj << "v " << FormatNumber(mesh.positions[3 * i]) << " " << FormatNumber(mesh.positions[3 * i + 1]) << " "
        << FormatNumber(mesh.positions[3 * i + 2]) << "\n";
  for (std::size_t i = 0; i < mesh.VertexCount(); ++i)
    obj << "vt " << FormatNumber(mesh.uvs[2 * i]) << " " << FormatNumber(mesh.uvs[2 * i + 1]) << "\n";
  for (std::size_t i = 0; i < mesh.VertexCount(); ++i)
    obj << "vn " << FormatNumber(mesh.normals[3 * i]) << " " << FormatNumber(mesh.normals[3 * i + 1]) << " "
        << FormatNumber(mesh.normals[3 * i + 2]) << "\n";
  obj << "usemtl " << name << "\ns 1\n";
  for (std::size_t t = 0; t < mesh.TriangleCount(); ++t) {
    obj << "f";
    for (std::size_t k = 0; k < 3; ++k) {
      const auto v = mesh.indices[3 * t + k] + 1;
      obj << " " << v << "/" << v << "/" << v;
    }
    obj << "\n";
  }
  VEX_TRY(WriteText(directory, name + ".obj", obj.str()));
  return written;
}

}  // namespace host::formats::detail
