#include "host/formats/conversion.h"

#include <array>
#include <filesystem>
#include <limits>
#include <random>
#include <unistd.h>

#include "host/formats/formats.h"
#include "host/material_exchange.h"
#include "host/scene.h"
#include "vex/lookup.h"
#include "vex/ports.h"

namespace fs = std::filesystem;

namespace host::formats {
namespace {

namespace ports = vex::ports;

/// The bundles whose sets the material importer reads (into a Corvane node material).
constexpr std::array<std::string_view, 6> kImporterReads = {
    ports::obj::kId,           ports::generic::kId,           ports::standardsurface::kId,
    ports::fbxsurfacephong::kId, ports::fbxsurfacelambert::kId, ports::usdpreviewsurface::kId};

/// Bundles a set may pass through on its way into the Corvane bundle when no mapping and no
/// importer leads there directly.
constexpr std::array<std::string_view, 1> kHubs = {ports::gltf::kId};

/// A number of the source set that a conversion leaves out but the target's file can carry: the
/// port's constant (or, with `sourceProperty`, a property of the port's entry), copied onto the
/// target set after the conversion (onto the port's constant, or as a property of the port's
/// entry), when it exceeds `above`.
struct CarriedConstant {
  std::string_view sourceBundle, sourcePort, sourceProperty, targetBundle, targetPort, property;
  double above;
};
constexpr double kAny = -std::numeric_limits<double>::infinity();
constexpr CarriedConstant kCarried[] = {
    // The glTF mapping clamps the emission weight into the factor; the writer puts what lies
    // above 1 into the emissive strength extension (or says that it clamped it).
    {ports::corvane::kId, ports::corvane::emission_weight, "", ports::gltf::kId, ports::gltf::emissiveStrength, "",
     1.0},
    // The OBJ mapping copies the normal map; its strength is MTL's bump multiplier.
    {ports::corvane::kId, ports::corvane::overall_normal_weight, "", ports::obj::kId, ports::obj::normal_map,
     "strength", kAny},
    // And back: the importer reads the OBJ normal map without its strength.
    {ports::obj::kId, ports::obj::normal_map, "strength", ports::corvane::kId, ports::corvane::overall_normal_weight,
     "", kAny},
};

/// A weight of the source set that a mapping leaves out of the target port: when it is not 1,
/// the file shows the port unweighted, and a warning says so.
struct LeftOutWeight {
  std::string_view sourceBundle, weight, targetBundle, targetPort;
};
constexpr LeftOutWeight kLeftOut[] = {
    {ports::corvane::kId, ports::corvane::diffuse_weight, ports::usdpreviewsurface::kId,
     ports::usdpreviewsurface::diffuseColor},
    {ports::corvane::kId, ports::corvane::emission_weight, ports::usdpreviewsurface::kId,
     ports::usdpreviewsurface::emissiveColor},
};

/// A factor the set leaves out beside the colour it scales: the model's own default for it (in
/// the generic model, as in FBX, a factor is 1 unless given), filled in before any conversion so
/// that a conversion which reads only the ports present does not take the colour as unlit.
struct ImpliedFactor {
  std::string_view bundle, color, factor;
  double value;
};
constexpr ImpliedFactor kImplied[] = {
    {ports::generic::kId, ports::generic::diffuseColor, ports::generic::diffuseFactor, 1.0},
    {ports::generic::kId, ports::generic::emissiveColor, ports::generic::emissiveFactor, 1.0},
};

vex::ParameterSetRef WithImpliedFactors(const vex::ParameterSetRef& set) {
  std::shared_ptr<vex::ParameterSet> completed;
  for (const auto& f : kImplied) {
    if (set->GetBundle() != f.bundle || !set->Has(f.color) || set->Has(f.factor)) continue;
    if (!completed) completed = std::make_shared<vex::ParameterSet>(*set);
    completed->SetConstant(f.factor, f.value);
  }
  return completed ? vex::ParameterSetRef(std::move(completed)) : set;
}

const double* ConstantNumber(const vex::Parameter* entry) {
  if (entry == nullptr || entry->texture || entry->Constant() == nullptr) return nullptr;
  return entry->Constant()->Get<double>();
}

bool IsBlack(const vex::Parameter* entry) {
  if (entry == nullptr || entry->texture || entry->Constant() == nullptr) return false;
  if (const auto* c = entry->Constant()->Get<vex::Color>()) return c->r == 0 && c->g == 0 && c->b == 0;
  return false;
}

void AfterMapping(const vex::ParameterSet& source, vex::ParameterSet& target, std::vector<std::string>& warnings) {
  for (const auto& c : kCarried) {
    if (source.GetBundle() != c.sourceBundle || target.GetBundle() != c.targetBundle) continue;
    const vex::Parameter* sourceEntry = source.Find(c.sourcePort);
    const double* value = nullptr;
    if (c.sourceProperty.empty()) {
      value = ConstantNumber(sourceEntry);
    } else if (sourceEntry != nullptr && sourceEntry->texture) {
      const vex::Data* property = sourceEntry->properties.Find(c.sourceProperty);
      value = property != nullptr ? property->Get<double>() : nullptr;
    }
    if (value == nullptr || !(*value > c.above)) continue;
    if (c.property.empty()) {
      target.SetConstant(c.targetPort, *value);
    } else if (auto* entry = target.Find(c.targetPort)) {
      entry->properties.Set(std::string(c.property), *value);
    }
  }
  for (const auto& w : kLeftOut) {
    if (source.GetBundle() != w.sourceBundle || target.GetBundle() != w.targetBundle) continue;
    const vex::Parameter* weight = source.Find(w.weight);
    if (weight == nullptr || IsBlack(target.Find(w.targetPort))) continue;
    const double* value = ConstantNumber(weight);
    if (value != nullptr && (*value == 1.0 || *value <= 0.0)) continue;
    warnings.push_back(std::string(w.targetPort) + " is written without " + std::string(w.weight) + " (" +
                       (value != nullptr ? FormatNumber(*value) : std::string("a texture")) +
                       "): the mapping leaves the weight out");
  }
}

/// A strength that scales a colour port and that the mappings out of its bundle do not read:
/// folded into the colour's constant before such a mapping runs.
struct FoldedStrength {
  std::string_view bundle, strength, color;
};
constexpr FoldedStrength kFolded[] = {
    {ports::gltf::kId, ports::gltf::emissiveStrength, ports::gltf::emissiveFactor},
};

vex::ParameterSetRef WithFoldedStrengths(const vex::ParameterSetRef& set) {
  std::shared_ptr<vex::ParameterSet> folded;
  for (const auto& f : kFolded) {
    const double* strength = set->GetBundle() == f.bundle ? ConstantNumber(set->Find(f.strength)) : nullptr;
    if (strength == nullptr) continue;
    if (!folded) folded = std::make_shared<vex::ParameterSet>(*set);
    if (auto* color = folded->Find(f.color); color != nullptr && color->Constant() != nullptr)
      if (const auto* c = color->Constant()->Get<vex::Color>())
        folded->SetConstant(f.color, vex::Color{c->r * *strength, c->g * *strength, c->b * *strength});
    folded->Erase(f.strength);
  }
  return folded ? vex::ParameterSetRef(std::move(folded)) : set;
}

vex::Result<Converted> MapOnce(const vex::ParameterSetRef& original, std::string_view target) {
  const vex::ParameterSetRef set = WithFoldedStrengths(original);
  VEX_ASSIGN(auto mapping, FindMappingEitherWay(*set, target));
  VEX_ASSIGN(auto output, mapping->MapMaterialData(set));
  Converted out;
  out.mapped = true;
  out.defaults = std::move(output.defaults.entries);
  AfterMapping(*set, *output.target, out.warnings);
  out.set = std::move(output.target);
  return out;
}

/// The importer's road: a Corvane node material in a scratch document, exported again as a
/// Corvane set with its textures.
vex::Result<vex::ParameterSetRef> ThroughImporter(Documents& documents, const vex::ParameterSetRef& set) {
  // The importer's textures are files of the scratch scene until the exporter bakes them again.
  std::error_code ec;
  const fs::path directory = fs::temp_directory_path(ec) / ("vexinterop-import-" + std::to_string(::getpid()) + "-" +
                                                           std::to_string(std::random_device{}()));
  fs::create_directories(directory, ec);
  if (ec) return VEX_FAIL(vex::ErrorKind::FileIO, directory.string() + ": cannot create: " + ec.message());
  Document& scratch = documents.NewDocument("import");
  scratch.SetPath(directory.string());
  struct Cleanup {
    Documents& documents;
    Document& scratch;
    fs::path directory;
    ~Cleanup() {
      documents.Close(&scratch);
      std::error_code ignored;
      fs::remove_all(directory, ignored);
    }
  } cleanup{documents, scratch, directory};
  VEX_ASSIGN(auto material, ImportMaterial(scratch, *set, vex::nodespace::kCorvane));
  VEX_TRY(WritePendingTextures(scratch, directory.string()));
  auto* imported = dynamic_cast<Material*>(material.get());
  std::shared_ptr<Material> shared;
  for (const auto& m : scratch.Materials().All())
    if (m.get() == imported) shared = m;
  if (!shared) return VEX_FAIL(vex::ErrorKind::IllegalState, "the imported material is not in its document");
  MaterialExportRequest request;
  request.accepted.Insert(vex::Id(ports::corvane::kId), 0);
  // The exporter bakes the importer's textures again: at the size the set's textures have (the
  // largest, aspect kept), so that a texture comes back texel for texel.
  std::int64_t largest = 0;
  for (const auto& [port, entry] : set->Entries())
    if (entry.texture && !entry.texture->IsEmpty())
      largest = std::max({largest, entry.texture->_dimensions.width, entry.texture->_dimensions.height});
  if (largest > 0) {
    request.textureSize = largest;
    request.resize = vex::TextureResize::Fit;
  }
  request.spaceId = std::string(vex::nodespace::kCorvane);
  VEX_ASSIGN(auto exported, ExportMaterial(shared, request));
  return std::make_shared<const vex::ParameterSet>(std::move(exported));
}

vex::Result<Converted> ToCorvane(const vex::ParameterSetRef& set, const ConversionContext& context) {
  const bool importerReads = std::find(kImporterReads.begin(), kImporterReads.end(), set->GetBundle().View()) !=
                             kImporterReads.end();
  auto mapped = MapOnce(set, ports::corvane::kId);
  if (mapped || mapped.error().kind != vex::ErrorKind::NotFound) return mapped;
  if (importerReads && context.documents != nullptr) {
    VEX_ASSIGN(auto corvane, ThroughImporter(*context.documents, set));
    auto carried = std::make_shared<vex::ParameterSet>(*corvane);
    Converted out;
    AfterMapping(*set, *carried, out.warnings);
    out.set = std::move(carried);
    out.mapped = true;
    return out;
  }
  // Through a bundle that both mappings reach (the viewport material has a glTF mapping, and the
  // glTF bundle the Corvane mapping's import direction).
  for (const auto hub : kHubs) {
    if (set->GetBundle() == hub) continue;
    auto first = MapOnce(set, hub);
    if (!first) continue;
    auto second = MapOnce(first->set, ports::corvane::kId);
    if (!second) continue;
    second->defaults.insert(second->defaults.begin(), first->defaults.begin(), first->defaults.end());
    second->warnings.insert(second->warnings.begin(), first->warnings.begin(), first->warnings.end());
    return second;
  }
  return mapped;
}

}  // namespace

vex::Result<std::shared_ptr<vex::IMaterialMapping>> FindMappingEitherWay(const vex::ParameterSet& set,
                                                                        std::string_view target) {
  auto mapping = vex::FindMapping(set.GetBundle().View(), target);
  if (mapping) return mapping;
  auto reverse = vex::FindMapping(target, set.GetBundle().View());
  if (reverse && (*reverse)->PassOne(set)) return reverse;
  return mapping;
}

vex::Result<Converted> ConvertSet(const vex::ParameterSetRef& input, std::string_view target,
                                  const ConversionContext& context) {
  if (input->GetBundle() == target) return Converted{input, false, {}, {}};
  const vex::ParameterSetRef set = WithImpliedFactors(input);
  auto direct = MapOnce(set, target);
  if (direct || direct.error().kind != vex::ErrorKind::NotFound) return direct;
  if (set->GetBundle() == ports::corvane::kId) return direct;
  // Through the Corvane bundle, which every format's bundle has a mapping to or from.
  auto corvane = ToCorvane(set, context);
  if (!corvane) {
    if (corvane.error().kind == vex::ErrorKind::NotFound) return direct;
    return corvane;
  }
  if (target == ports::corvane::kId) return corvane;
  auto onward = MapOnce(corvane->set, target);
  if (!onward) return onward.error().kind == vex::ErrorKind::NotFound ? direct : onward;
  onward->defaults.insert(onward->defaults.begin(), corvane->defaults.begin(), corvane->defaults.end());
  onward->warnings.insert(onward->warnings.begin(), corvane->warnings.begin(), corvane->warnings.end());
  return onward;
}

vex::Result<Converted> ToWriterBundle(const vex::ParameterSetRef& set, const FormatRow& row,
                                      const ConversionContext& context) {
  if (WriterTakes(row, set->GetBundle())) return Converted{set, false, {}, {}};
  std::optional<vex::Error> first;
  for (const auto bundle : row.bundles) {
    auto converted = ConvertSet(set, bundle, context);
    if (converted || converted.error().kind != vex::ErrorKind::NotFound) return converted;
    if (!first) first = std::move(converted).error();
  }
  return std::unexpected(std::move(*first));
}

namespace {

/// The channel a "channelSelect" property names, -1 for none (or one this host does not know).
int SelectedChannel(const vex::Parameter& entry) {
  const auto* data = entry.properties.Find("channelSelect");
  const auto* name = data != nullptr ? data->Get<std::string>() : nullptr;
  if (name == nullptr) return -1;
  static constexpr std::pair<std::string_view, int> kChannels[] = {
      {"r", 0}, {"R", 0}, {"red", 0},   {"g", 1}, {"G", 1}, {"green", 1},
      {"b", 2}, {"B", 2}, {"blue", 2}, {"a", 3}, {"A", 3}, {"alpha", 3}};
  for (const auto& [spelling, index] : kChannels)
    if (*name == spelling) return index;
  return -1;
}

/// True when the channel holds 1 in every pixel: a packed texture fills a channel that the
/// material leaves constant that way (glTF's metal in blue beside a textured roughness).
bool ChannelIsOne(const vex::TextureBuffer& texture, int channel) {
  for (std::size_t i = 0; i < texture.GetCount(); ++i)
    if (texture._pixels->Pixel(i)[channel] != 1.0f) return false;
  return true;
}

/// The entry's constant replaced by `value`, in the type the constant has.
vex::PackedConstantParameter ConstantLike(const vex::Parameter& entry, double value) {
  const auto* c = entry.Constant();
  if (c != nullptr && c->Get<vex::Color>() != nullptr) return vex::PackedConstantParameter(vex::Color{value, value, value});
  if (c != nullptr && c->Get<vex::ColorA>() != nullptr)
    return vex::PackedConstantParameter(vex::ColorA{value, value, value, c->Get<vex::ColorA>()->a});
  return vex::PackedConstantParameter(value);
}

}  // namespace

void ResolveTextureProperties(vex::ParameterSet& set) {
  for (auto& [port, entry] : set.Entries()) {
    if (!entry.texture || entry.texture->IsEmpty()) continue;
    const int channel = SelectedChannel(entry);
    double scale = 1.0;
    if (const auto* v = entry.properties.Find("valueScale")) {
      if (const auto* d = v->Get<double>()) scale = *d;
    }
    entry.properties.Erase("channelSelect");
    entry.properties.Erase("valueScale");
    // A selected channel that is 1 everywhere, or a scale of 0, leaves nothing of the texture:
    // the port is the constant scale, as the file's own factor said before it was packed.
    if (channel >= 0 && (scale == 0.0 || ChannelIsOne(*entry.texture, channel))) {
      vex::Parameter constant(ConstantLike(entry, scale));
      constant.properties = std::move(entry.properties);
      entry = std::move(constant);
      continue;
    }
    if (channel < 0 && scale == 1.0) continue;
    // Copy on write: the buffer may be shared with the set it came from.
    vex::TextureBuffer resolved =
        vex::TextureBuffer::Make(entry.texture->_dimensions.width, entry.texture->_dimensions.height);
    if (resolved.IsEmpty()) continue;
    resolved.colorSpace = entry.texture->colorSpace;
    const auto scaled = static_cast<float>(scale);
    for (std::size_t i = 0; i < entry.texture->GetCount(); ++i) {
      const float* in = entry.texture->_pixels->Pixel(i);
      float* out = resolved._pixels->Pixel(i);
      if (channel >= 0) {
        // One value: in every channel, alpha included, so that a mean over the four channels
        // (the glTF mapping's opacity merge) gives it back.
        out[0] = out[1] = out[2] = out[3] = in[channel] * scaled;
      } else {
        for (int c = 0; c < 3; ++c) out[c] = in[c] * scaled;
        out[3] = in[3];
      }
    }
    entry.texture = std::move(resolved);
  }
}

}  // namespace host::formats
