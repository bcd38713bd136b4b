// Wavefront OBJ + MTL written by the project. The OBJ bundle's ports become the MTL statements
// of the classic set (Kd, Ks, Ke, Ns, Ni, d, Tf) and of the PBR extension (Pm, Pr, aniso, anisor,
// norm), textures as map_* statements. A textured port writes a factor of 1 beside its map: MTL
// multiplies the two, and the texture alone is the port's value. OBJ has no hierarchy: every
// node's mesh is written with its world transform applied, as one object ("o") per node.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>
#include <sstream>

#include "host/formats/format_io.h"
#include "host/formats/writers.h"
#include "vex/ports.h"

namespace host::formats::detail {
namespace {

namespace obj = vex::ports::obj;

struct Statement {
  std::string_view port;
  std::string_view key;     ///< the constant's statement
  std::string_view map;     ///< the texture's statement; empty when MTL has none
  bool color;               ///< three numbers instead of one
};

constexpr Statement kStatements[] = {
    {obj::diffuse_color, "Kd", "map_Kd", true},        {obj::specular_color, "Ks", "map_Ks", true},
    {obj::emissive_color, "Ke", "map_Ke", true},       {obj::metallic, "Pm", "map_Pm", false},
    {obj::roughness, "Pr", "map_Pr", false},           {obj::anisotropy, "aniso", "", false},
    {obj::anisotropy_rotation, "anisor", "", false},   {obj::transmission_color, "Tf", "", true},
    {obj::transmission_ior, "Ni", "", false},          {obj::opacity, "d", "map_d", false},
};

/// The entry property that holds a normal map's strength (MTL's "-bm").
constexpr std::string_view kStrength = "strength";

/// The highest Ns that MTL readers accept.
constexpr double kMaxShininess = 1000.0;

/// The Phong exponent that classic readers take for a roughness (n = 2 / r^4 - 2), limited to
/// the range MTL readers accept.
double PhongFromRoughness(double r) {
  if (!(r > 0.0)) return kMaxShininess;
  return std::clamp(2.0 / std::pow(r, 4.0) - 2.0, 0.0, kMaxShininess);
}

double MeanRed(const vex::TextureBuffer& texture) {
  double sum = 0;
  const std::size_t n = texture.GetCount();
  for (std::size_t i = 0; i < n; ++i) sum += texture._pixels->Pixel(i)[0];
  return n != 0 ? sum / static_cast<double>(n) : 0.0;
}

struct Transform3 {
  double m[3][3];  ///< [row][column]
  double t[3];
};

Transform3 Affine(const Matrix4& matrix) {
  Transform3 a{};
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) a.m[r][c] = matrix.m[static_cast<std::size_t>(c * 4 + r)];
    a.t[r] = matrix.m[static_cast<std::size_t>(12 + r)];
  }
  return a;
}

/// The matrix that carries normals: the inverse transpose of the linear part.
Transform3 NormalMatrix(const Transform3& a) {
  const auto& m = a.m;
  const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                     m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                     m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
  Transform3 n{};
  const double inv = det != 0.0 ? 1.0 / det : 0.0;
  // Cofactors: the inverse transpose is cofactor / det.
  n.m[0][0] = (m[1][1] * m[2][2] - m[1][2] * m[2][1]) * inv;
  n.m[0][1] = -(m[1][0] * m[2][2] - m[1][2] * m[2][0]) * inv;
  n.m[0][2] = (m[1][0] * m[2][1] - m[1][1] * m[2][0]) * inv;
  n.m[1][0] = -(m[0][1] * m[2][2] - m[0][2] * m[2][1]) * inv;
  n.m[1][1] = (m[0][0] * m[2][2] - m[0][2] * m[2][0]) * inv;
  n.m[1][2] = -(m[0][0] * m[2][1] - m[0][1] * m[2][0]) * inv;
  n.m[2][0] = (m[0][1] * m[1][2] - m[0][2] * m[1][1]) * inv;
  n.m[2][1] = -(m[0][0] * m[1][2] - m[0][2] * m[1][0]) * inv;
  n.m[2][2] = (m[0][0] * m[1][1] - m[0][1] * m[1][0]) * inv;
  return n;
}

std::string Triple(double a, double b, double c) {
  return FormatNumber(a) + " " + FormatNumber(b) + " " + FormatNumber(c);
}

struct Writer {
  const SceneData& scene;
  const std::string& directory;
  const std::string& stem;
  const vex::IPortBundles& bundles;
  const WriteOptions& options;
  std::vector<std::string> materialNames;
  WrittenFiles written;

  std::string TextureFile(std::size_t material, std::string_view port) const {
    const std::string prefix = scene.materials.size() == 1 ? stem : stem + "_" + materialNames[material];
    return prefix + "_" + std::string(port) + (options.floatTextures ? ".exr" : ".png");
  }

  vex::Result<void> Material(std::ostringstream& mtl, std::size_t index) {
    const MaterialData& data = scene.materials[index];
    if (!data.set || data.set->GetBundle() != obj::kId)
      return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                      (std::filesystem::path(directory) / (stem + ".mtl")).string() + ": material '" + data.name +
                          "' is not a set of the OBJ bundle");
    const PortReader material(*data.set, bundles);
    const std::string& name = materialNames[index];
    const auto lost = [&](const std::string& what) { written.warnings.push_back("material '" + data.name + "': " + what); };
    mtl << "\nnewmtl " << name << "\nillum 2\nKa 0 0 0\n";
    for (const Statement& s : kStatements) {
      const std::string port(s.port);
      const vex::TextureBuffer* texture = material.Texture(port);
      // Metalness goes out only when the set has it: a default of 0 would make readers that
      // know Pm treat a dielectric set as explicitly non-metallic and nothing else.
      if (s.port == obj::metallic && data.set->Find(port) == nullptr) continue;
      // Zero anisotropy is MTL's default; leaving it out keeps files readable by Assimp 5.2, which
      // misreads the "aniso" statement.
      if ((s.key == "aniso" || s.key == "anisor") && texture == nullptr && material.Number(port, 0.0) == 0.0) continue;
      // A white transmission filter lets light through untinted, MTL's neutral "Tf"; leaving it
      // out keeps readers that take "Tf" as an amount of transmission from showing glass.
      if (s.port == obj::transmission_color && texture == nullptr &&
          material.Rgb(port, {0, 0, 0}) == vex::Color{1, 1, 1})
        continue;
      if (texture != nullptr && s.map.empty()) {
        lost(port + ": MTL has no texture statement for it; its constant was written");
        texture = nullptr;
      }
      if (s.color) {
        const vex::Color c = texture != nullptr ? vex::Color{1, 1, 1} : material.Rgb(port, {0, 0, 0});
        mtl << s.key << " " << Triple(c.r, c.g, c.b) << "\n";
      } else {
        mtl << s.key << " " << FormatNumber(texture != nullptr ? 1.0 : material.Number(port, 0.0)) << "\n";
      }
      if (s.port == obj::roughness) {
        // Classic readers know only the Phong exponent.
        const double r = texture != nullptr ? MeanRed(*texture) : material.Number(port, 0.5);
        mtl << "Ns " << FormatNumber(PhongFromRoughness(r)) << "\n";
      }
      if (texture == nullptr) continue;
      const std::string file = TextureFile(index, port);
      VEX_TRY(WriteTexture(directory, file, *texture, material.IsColorPort(port)));
      written.files.push_back(file);
      written.textures.push_back({data.name, port, file});
      mtl << s.map << " " << file << "\n";
    }
    const std::string normalPort(obj::normal_map);
    if (const vex::TextureBuffer* normal = material.Texture(normalPort)) {
      const std::string file = TextureFile(index, normalPort);
      VEX_TRY(WriteTexture(directory, file, *normal, false));
      written.files.push_back(file);
      written.textures.push_back({data.name, normalPort, file});
      double strength = 1.0;
      if (const auto* entry = data.set->Find(normalPort))
        if (const auto* s = entry->properties.Find(std::string(kStrength)))
          if (const auto* d = s->Get<double>()) strength = *d;
      // "map_Bump -bm" is what most readers take for a normal map; "norm" is the PBR extension's.
      mtl << "map_Bump -bm " << FormatNumber(strength) << " " << file << "\n";
      mtl << "norm " << file << "\n";
    } else if (const vex::Color n = material.Rgb(normalPort, {0.5, 0.5, 1.0});
               std::abs(n.r - 0.5) > 1e-6 || std::abs(n.g - 0.5) > 1e-6 || std::abs(n.b - 1.0) > 1e-6) {
      lost("normal_map: a constant normal cannot be written to MTL; left out");
    }
    return {};
  }
};

}  // namespace

vex::Result<WrittenFiles> WriteObj(const SceneData& scene, const std::string& directory, const std::string& stem,
                                   const vex::IPortBundles& bundles, const WriteOptions& options) {
  Writer w{scene, directory, stem, bundles, options, {}, {}};
  w.written.files.push_back(stem + ".obj");
  w.written.files.push_back(stem + ".mtl");
  std::set<std::string> used;
  for (const auto& m : scene.materials) {
    std::string base = SafeName(m.name), name = base;
    for (int k = 2; !used.insert(name).second; ++k) name = base + "_" + std::to_string(k);
    w.materialNames.push_back(name);
  }
  std::ostringstream mtl;
  mtl << "# vexinterop\n";
  for (std::size_t i = 0; i < scene.materials.size(); ++i) VEX_TRY(w.Material(mtl, i));
  VEX_TRY(WriteText(directory, stem + ".mtl", mtl.str()));

  // World transforms: parents come before their children.
  std::vector<Matrix4> world(scene.nodes.size());
  for (std::size_t i = 0; i < scene.nodes.size(); ++i) {
    const int parent = scene.nodes[i].parent;
    world[i] = parent >= 0 && static_cast<std::size_t>(parent) < i ? world[static_cast<std::size_t>(parent)] * scene.nodes[i].local
                                                                  : scene.nodes[i].local;
  }
  std::ostringstream out;
  out << "# vexinterop\nmtllib " << stem << ".mtl\n";
  std::size_t base = 1, baseUv = 1, baseNormal = 1;
  std::set<std::string> objects;
  for (std::size_t n = 0; n < scene.nodes.size(); ++n) {
    const NodeData& node = scene.nodes[n];
    if (node.mesh < 0 || static_cast<std::size_t>(node.mesh) >= scene.meshes.size()) continue;
    const MeshData& mesh = scene.meshes[static_cast<std::size_t>(node.mesh)];
    const Transform3 a = Affine(world[n]);
    const Transform3 nm = NormalMatrix(a);
    std::string object = SafeName(node.name.empty() ? mesh.name : node.name);
    for (int k = 2; !objects.insert(object).second; ++k) object = SafeName(node.name) + "_" + std::to_string(k);
    out << "o " << object << "\ng " << object << "\n";
    const std::size_t count = mesh.VertexCount();
    for (std::size_t i = 0; i < count; ++i) {
      double v[3];
      for (int r = 0; r < 3; ++r)
        v[r] = a.m[r][0] * mesh.positions[3 * i] + a.m[r][1] * mesh.positions[3 * i + 1] +
               a.m[r][2] * mesh.positions[3 * i + 2] + a.t[r];
      out << "v " << Triple(v[0], v[1], v[2]) << "\n";
    }
    const bool uvs = mesh.uvs.size() == 2 * count;
    const bool normals = mesh.normals.size() == 3 * count;
    if (uvs)
      for (std::size_t i = 0; i < count; ++i)
        out << "vt " << FormatNumber(mesh.uvs[2 * i]) << " " << FormatNumber(mesh.uvs[2 * i + 1]) << "\n";
    if (normals)
      for (std::size_t i = 0; i < count; ++i) {
        double v[3];
        for (int r = 0; r < 3; ++r)
          v[r] = nm.m[r][0] * mesh.normals[3 * i] + nm.m[r][1] * mesh.normals[3 * i + 1] +
                 nm.m[r][2] * mesh.normals[3 * i + 2];
        const double len = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
        if (len > 0)
          for (double& c : v) c /= len;
        out << "vn " << Triple(v[0], v[1], v[2]) << "\n";
      }
    std::vector<MeshData::Part> parts = mesh.parts;
    if (parts.empty()) parts.push_back({0, static_cast<std::uint32_t>(mesh.TriangleCount()), -1});
    for (const auto& part : parts) {
      if (part.material >= 0 && static_cast<std::size_t>(part.material) < w.materialNames.size())
        out << "usemtl " << w.materialNames[static_cast<std::size_t>(part.material)] << "\n";
      out << "s 1\n";
      const std::size_t end = std::min<std::size_t>(part.firstTriangle + part.triangleCount, mesh.TriangleCount());
      for (std::size_t t = part.firstTriangle; t < end; ++t) {
        out << "f";
        for (std::size_t k = 0; k < 3; ++k) {
          const std::size_t i = mesh.indices[3 * t + k];
          out << " " << base + i;
          if (uvs || normals) out << "/" << (uvs ? std::to_string(baseUv + i) : std::string());
          if (normals) out << "/" << baseNormal + i;
        }
        out << "\n";
      }
    }
    base += count;
    if (uvs) baseUv += count;
    if (normals) baseNormal += count;
  }
  if (!scene.lights.empty() || !scene.cameras.empty())
    w.written.warnings.push_back("OBJ has no lights or cameras: " + std::to_string(scene.lights.size()) + " light(s) and " +
                                 std::to_string(scene.cameras.size()) + " camera(s) left out");
  VEX_TRY(WriteText(directory, stem + ".obj", out.str()));
  return std::move(w.written);
}

}  // namespace host::formats::detail
