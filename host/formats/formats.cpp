#include "host/formats/formats.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <numbers>

#include "host/formats/writers.h"
#include "host/images.h"

namespace fs = std::filesystem;

namespace host::formats {
std::pair<std::int64_t, std::int64_t> FittedSize(std::int64_t width, std::int64_t height, int maxSize,
                                                 bool powerOfTwo) {
  double w = static_cast<double>(width), h = static_cast<double>(height);
  if (maxSize > 0 && std::max(w, h) > maxSize) {
    const double scale = maxSize / std::max(w, h);
    w = std::max(1.0, std::round(w * scale));
    h = std::max(1.0, std::round(h * scale));
  }
  auto side = [&](double v) {
    auto n = static_cast<std::int64_t>(v);
    if (!powerOfTwo) return n;
    std::int64_t p = 1;
    while (p * 2 <= n) p *= 2;
    if (n - p > p * 2 - n) p *= 2;  // nearest, ties down
    while (maxSize > 0 && p > maxSize && p > 1) p /= 2;
    return p;
  };
  return {side(w), side(h)};
}

vex::Result<std::vector<std::string>> FitTextures(vex::ParameterSet& set, int maxSize, bool powerOfTwo) {
  std::vector<std::string> notes;
  if (maxSize <= 0 && !powerOfTwo) return notes;
  for (auto& [port, entry] : set.Entries()) {
    if (!entry.texture || entry.texture->IsEmpty()) continue;
    const auto& d = entry.texture->_dimensions;
    const auto [w, h] = FittedSize(d.width, d.height, maxSize, powerOfTwo);
    if (w == d.width && h == d.height) continue;
    VEX_ASSIGN(auto resized, ResizeImage(*entry.texture, w, h));
    notes.push_back(port + ": " + std::to_string(d.width) + "x" + std::to_string(d.height) + " -> " +
                    std::to_string(w) + "x" + std::to_string(h));
    entry.texture = std::move(resized);
  }
  return notes;
}

// --- PortReader ---------------------------------------------------------------------------------

PortReader::PortReader(const vex::ParameterSet& set, const vex::IPortBundles& bundles) : set_(set) {
  if (auto found = bundles.Find(set.GetBundle().View())) bundle_ = *found;
}

const vex::Parameter* PortReader::Entry(std::string_view port) const {
  if (const auto* own = set_.Find(port)) return own;
  return bundle_ != nullptr ? bundle_->defaults.Find(port) : nullptr;
}

const vex::PackedConstantParameter* PortReader::Constant(std::string_view port) const {
  const auto* entry = Entry(port);
  return entry != nullptr ? entry->Constant() : nullptr;
}

double PortReader::Number(std::string_view port, double fallback) const {
  const auto* c = Constant(port);
  if (c == nullptr) return fallback;
  if (const auto* d = c->Get<double>()) return *d;
  if (const auto* i = c->Get<std::int32_t>()) return *i;
  if (const auto* u = c->Get<std::uint32_t>()) return *u;
  if (const auto* b = c->Get<bool>()) return *b ? 1.0 : 0.0;
  return fallback;
}

vex::ColorA PortReader::Rgba(std::string_view port, vex::ColorA fallback) const {
  const auto* c = Constant(port);
  if (c == nullptr) return fallback;
  if (const auto* v = c->Get<vex::ColorA>()) return *v;
  if (const auto* v = c->Get<vex::Color>()) return {v->r, v->g, v->b, fallback.a};
  if (const auto* v = c->Get<vex::Vector3d>()) return {v->x, v->y, v->z, fallback.a};
  if (const auto* d = c->Get<double>()) return {*d, *d, *d, fallback.a};
  return fallback;
}

vex::Color PortReader::Rgb(std::string_view port, vex::Color fallback) const {
  const vex::ColorA c = Rgba(port, {fallback.r, fallback.g, fallback.b, 1.0});
  return {c.r, c.g, c.b};
}

double PortReader::Alpha(std::string_view port, double fallback) const {
  const auto* c = Constant(port);
  const auto* v = c != nullptr ? c->Get<vex::ColorA>() : nullptr;
  return v != nullptr ? v->a : fallback;
}

std::string PortReader::Text(std::string_view port, std::string fallback) const {
  const auto* c = Constant(port);
  if (c == nullptr) return fallback;
  if (const auto* s = c->Get<std::string>()) return *s;
  if (const auto* id = c->Get<vex::InternedId>()) return id->Str();
  if (const auto* id = c->Get<vex::Id>()) return id->Str();
  return fallback;
}

const vex::Parameter* PortReader::Textured(std::string_view port) const {
  const auto* entry = set_.Find(port);
  if (entry == nullptr || !entry->texture || entry->texture->IsEmpty()) return nullptr;
  return entry;
}

const vex::TextureBuffer* PortReader::Texture(std::string_view port) const {
  const auto* entry = Textured(port);
  return entry != nullptr ? &*entry->texture : nullptr;
}

bool PortReader::IsColorPort(std::string_view port) const {
  const auto* described = bundle_ != nullptr ? bundle_->FindPort(port) : nullptr;
  return described != nullptr && described->color;
}

// --- files ----------------------------------------------------------------------------------------

vex::Result<void> WriteTexture(const std::string& directory, const std::string& file, const vex::TextureBuffer& texture,
                               bool srgb) {
  ImageWriteOptions options;
  options.srgb = srgb;
  options.floatPixels = fs::path(file).extension() == ".exr";
  return WriteImage((fs::path(directory) / file).string(), texture, options);
}

namespace detail {
vex::Result<void> WriteText(const std::string& directory, const std::string& file, const std::string& text) {
  const fs::path path = fs::path(directory) / file;
  std::ofstream out(path, std::ios::binary);
  out << text;
  out.close();
  if (!out) return VEX_FAIL(vex::ErrorKind::FileIO, path.string() + ": cannot write");
  return {};
}
}  // namespace detail

std::string SafeName(std::string_view name) {
  std::string out;
  for (const char c : name) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                       c == '_';
    out.push_back(plain ? c : '_');
  }
  return out.empty() ? std::string("material") : out;
}

std::string FormatNumber(double value) {
  if (!std::isfinite(value)) value = 0.0;
  if (value == 0.0) value = 0.0;  // no "-0"
  std::array<char, 32> buffer{};
  const auto [end, ec] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  if (ec != std::errc()) return "0";
  return std::string(buffer.data(), end);
}

// --- preview mesh ---------------------------------------------------------------------------------

PreviewMesh MakeUvSphere(int segments, int rings) {
  segments = std::max(segments, 3);
  rings = std::max(rings, 2);
  PreviewMesh mesh;
  const auto columns = static_cast<std::uint32_t>(segments + 1);
  for (int r = 0; r <= rings; ++r) {
    const double v = static_cast<double>(r) / rings;  // 0 at the north pole
    const double theta = v * std::numbers::pi;
    for (int s = 0; s <= segments; ++s) {
      const double u = static_cast<double>(s) / segments;
      const double phi = u * 2.0 * std::numbers::pi;
      const double x = std::sin(theta) * std::sin(phi);
      const double y = std::cos(theta);
      const double z = std::sin(theta) * std::cos(phi);
      for (const double c : {x, y, z}) {
        mesh.positions.push_back(static_cast<float>(c));
        mesh.normals.push_back(static_cast<float>(c));
      }
      // d(position)/du, and +1: the bitangent cross(normal, tangent) points along +v.
      for (const double c : {std::cos(phi), 0.0, -std::sin(phi), 1.0}) mesh.tangents.push_back(static_cast<float>(c));
      mesh.uvs.push_back(static_cast<float>(u));
      mesh.uvs.push_back(static_cast<float>(1.0 - v));
    }
  }
  for (int r = 0; r < rings; ++r) {
    for (int s = 0; s < segments; ++s) {
      const std::uint32_t a = static_cast<std::uint32_t>(r) * columns + static_cast<std::uint32_t>(s);
      const std::uint32_t b = a + columns;  // the ring below
      // Degenerate triangles at the poles are left out.
      if (r != 0) mesh.indices.insert(mesh.indices.end(), {a, b, a + 1});
      if (r != rings - 1) mesh.indices.insert(mesh.indices.end(), {a + 1, b, b + 1});
    }
  }
  return mesh;
}

}  // namespace host::formats
