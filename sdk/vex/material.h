// The neutral material model shared by the host's exchange framework and its
// modules: port bundles, parameter sets of typed constants, image and
// Substance references, baked texture buffers and the registry records of
// exporters, importers and mappings.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "vex/data.h"
#include "vex/error.h"
#include "vex/id.h"
#include "vex/ports.h"

namespace vex {

// ---------------------------------------------------------------------------------------------
// Port bundle ids
namespace bundle {
// The ids as the bundle vocabulary spells them (vex/ports.h is generated from it).
inline constexpr std::string_view kGeneric = ports::generic::kId;
inline constexpr std::string_view kCorvane = ports::corvane::kId;
inline constexpr std::string_view kGltf = ports::gltf::kId;
inline constexpr std::string_view kObj = ports::obj::kId;
inline constexpr std::string_view kStandardSurface = ports::standardsurface::kId;
inline constexpr std::string_view kUsdPreviewSurface = ports::usdpreviewsurface::kId;
inline constexpr std::string_view kFbxPhong = ports::fbxsurfacephong::kId;
inline constexpr std::string_view kFbxLambert = ports::fbxsurfacelambert::kId;
inline constexpr std::string_view kViewport = ports::viewportmaterial::kId;
}  // namespace bundle

// ---------------------------------------------------------------------------------------------
// Typed constants

/// The value types a constant parameter can have, in their canonical order.
enum class ConstantType : std::uint8_t {
  Bool,
  Int,
  UInt,
  Float,
  Vector2d,
  Vector,
  Vector4d,
  Color,
  ColorA,
  Url,
  String,
  Id,
  InternedId,
  CString,
};

inline constexpr std::array<std::string_view, 14> kConstantTypeNames = {
    "Bool", "Int",    "UInt",   "Float", "Vector2d", "Vector",     "Vector4d",
    "Color", "ColorA", "Url",   "String", "Id",      "InternedId", "CString"};

constexpr std::string_view ConstantTypeName(ConstantType t) { return kConstantTypeNames[static_cast<std::size_t>(t)]; }
inline std::optional<ConstantType> ConstantTypeFromName(std::string_view name) {
  for (std::size_t i = 0; i < kConstantTypeNames.size(); ++i)
    if (kConstantTypeNames[i] == name) return static_cast<ConstantType>(i);
  return std::nullopt;
}

/// Distinct string-like constant types (same storage, different meaning).
struct Url {
  std::string text;
  bool operator==(const Url&) const = default;
};
struct CString {
  std::string text;
  bool operator==(const CString&) const = default;
};

/// The storage of a constant: alternative i is the type ConstantType(i).
using ConstantValue = std::variant<bool, std::int32_t, std::uint32_t, double, Vector2d, Vector3d, Vector4d, Color,
                                   ColorA, Url, std::string, Id, InternedId, CString>;

template <class T, class V>
struct VariantIndex;
template <class T, class... Ts>
struct VariantIndex<T, std::variant<Ts...>> {
  static constexpr std::size_t value = [] {
    std::size_t i = 0;
    (void)((std::is_same_v<T, Ts> ? false : (++i, true)) && ...);
    return i;
  }();
};

/// The ConstantType of a C++ value type.
template <class T>
inline constexpr ConstantType kConstantTypeOf = static_cast<ConstantType>(VariantIndex<T, ConstantValue>::value);

/// A constant of one statically known type.
template <class T>
struct TypedConstantParameter {
  T value{};
  static constexpr ConstantType kType = kConstantTypeOf<T>;
};

/// A constant stored with its type, so constants of mixed types live in one container.
class PackedConstantParameter {
 public:
  static constexpr std::string_view kDataTypeId = "net.kelvo.material.datatype.packedconstantparameter";
  PackedConstantParameter() = default;
  template <class T>
    requires std::is_constructible_v<ConstantValue, std::in_place_type_t<T>, T>
  explicit PackedConstantParameter(T v) : value_(std::in_place_type<T>, std::move(v)) {}
  template <class T>
  explicit PackedConstantParameter(TypedConstantParameter<T> p) : value_(std::in_place_type<T>, std::move(p.value)) {}

  ConstantType Type() const { return static_cast<ConstantType>(value_.index()); }
  template <class T>
  const T* Get() const { return std::get_if<T>(&value_); }
  const ConstantValue& Value() const { return value_; }
  bool operator==(const PackedConstantParameter&) const = default;

 private:
  ConstantValue value_{false};
};

// ---------------------------------------------------------------------------------------------
// References and textures

/// A parameter value that refers to an image file (or to a texture the exporter bakes on request).
struct ImageReference {
  static constexpr std::string_view kDataTypeId = "net.kelvo.material.datatype.imagereference";
  Url url;                  ///< image file; empty when the texture is only bakeable
  std::string colorSpace;   ///< "sRGB", "raw" or empty (the reader decides)
  std::string bakePort;     ///< the port whose input a bake renders; empty for a plain file
  bool operator==(const ImageReference&) const = default;
};

/// A parameter value that refers to a Substance material asset.
struct SubstanceReference {
  static constexpr std::string_view kDataTypeId = "net.kelvo.material.datatype.substancereference";
  Url assetFile;
  std::string assetName;
  bool operator==(const SubstanceReference&) const = default;
};

/// Width and height of an image.
struct Dimensions {
  std::int64_t width = 0;
  std::int64_t height = 0;
  /// Equal within `tolerance` in both width and height.
  bool IsEqual(const Dimensions& other, std::int64_t tolerance) const {
    const auto dw = width > other.width ? width - other.width : other.width - width;
    const auto dh = height > other.height ? height - other.height : other.height - height;
    return dw <= tolerance && dh <= tolerance;
  }
  std::int64_t Pixels() const { return width * height; }
  bool operator==(const Dimensions&) const = default;
};

/// A reference-counted array of RGBA float pixels: pixel i at floats 4i..4i+3.
class PixelArray {
 public:
  /// Uninitialised pixels (the caller fills every one); nullptr when memory is exhausted.
  static std::shared_ptr<PixelArray> Allocate(std::size_t pixelCount) {
    auto array = std::shared_ptr<PixelArray>(new (std::nothrow) PixelArray());
    if (!array) return nullptr;
    array->floats_.reset(new (std::nothrow) float[pixelCount * 4]);
    if (pixelCount != 0 && !array->floats_) return nullptr;
    array->count_ = pixelCount;
    return array;
  }
  std::size_t GetCount() const { return count_; }
  float* Data() { return floats_.get(); }
  const float* Data() const { return floats_.get(); }
  float* Pixel(std::size_t i) { return floats_.get() + 4 * i; }
  const float* Pixel(std::size_t i) const { return floats_.get() + 4 * i; }

 private:
  PixelArray() = default;
  std::unique_ptr<float[]> floats_;
  std::size_t count_ = 0;
};

/// Pixels of a texture produced on request. Copies share the pixel array.
struct TextureBuffer {
  static constexpr std::string_view kDataTypeId = "net.kelvo.material.datatype.texturebuffer";
  std::shared_ptr<PixelArray> _pixels;
  Dimensions _dimensions;
  std::string colorSpace;  ///< "sRGB" when the texels were colour data before linearisation, else empty

  /// A buffer of width x height pixels filled with `fill`; an empty buffer when memory runs out.
  static TextureBuffer Make(std::int64_t width, std::int64_t height, std::array<float, 4> fill = {0, 0, 0, 0}) {
    TextureBuffer t;
    t._dimensions = {width, height};
    t._pixels = PixelArray::Allocate(static_cast<std::size_t>(width * height));
    if (t._pixels)
      for (std::size_t i = 0; i < t._pixels->GetCount(); ++i)
        for (int c = 0; c < 4; ++c) t._pixels->Pixel(i)[c] = fill[static_cast<std::size_t>(c)];
    return t;
  }
  bool IsEmpty() const { return !_pixels || _pixels->GetCount() == 0; }
  std::size_t GetCount() const { return _pixels ? _pixels->GetCount() : 0; }
};

/// A texture request: which port's texture to bake. Empty means "nothing".
struct TextureRequest {
  std::string port;
  bool IsEmpty() const { return port.empty(); }
};

/// The result of GetTextures: a presence flag and the texture container.
struct TextureResult {
  bool present = false;
  std::vector<std::pair<std::string, TextureBuffer>> textures;  ///< port -> buffer
};

// ---------------------------------------------------------------------------------------------
// Parameters and sets

/// One port's entry: a constant or a reference, an optional baked texture, and properties
/// ("colorSpace", "channelSelect", "makeImplicit", "valueScale", "mute", ...).
struct Parameter {
  using Value = std::variant<PackedConstantParameter, ImageReference, SubstanceReference>;
  Value value;
  std::optional<TextureBuffer> texture;
  DataDictionary properties;

  Parameter() = default;
  explicit Parameter(PackedConstantParameter c) : value(std::move(c)) {}
  template <class T>
    requires std::is_constructible_v<ConstantValue, std::in_place_type_t<T>, T>
  static Parameter Constant(T v) { return Parameter(PackedConstantParameter(std::move(v))); }
  static Parameter Textured(PackedConstantParameter c, TextureBuffer t) {
    Parameter p(std::move(c));
    p.texture = std::move(t);
    return p;
  }
  const PackedConstantParameter* Constant() const { return std::get_if<PackedConstantParameter>(&value); }
  bool IsTextured() const { return texture.has_value(); }
};

/// The ordered parameters of one material in one port bundle. The bundle tag, once set,
/// never changes (a mapping makes a new set for its target bundle).
class ParameterSet {
 public:
  static constexpr std::string_view kInterfaceId = "net.kelvo.material.interface.parameterstorage";
  ParameterSet() = default;
  explicit ParameterSet(Id bundle) : bundle_(std::move(bundle)) {}

  const Id& GetBundle() const { return bundle_; }
  /// Tags an untagged set; fails on a set that already belongs to another bundle.
  Result<void> Tag(Id bundle) {
    if (bundle_.IsPopulated() && bundle_ != bundle)
      return VEX_FAIL(ErrorKind::IllegalState, "Illegal state: parameter set already belongs to " + bundle_.Str());
    bundle_ = std::move(bundle);
    return {};
  }

  bool Has(std::string_view port) const { return Index(port) >= 0; }
  const Parameter* Find(std::string_view port) const {
    const auto i = Index(port);
    return i < 0 ? nullptr : &entries_[static_cast<std::size_t>(i)].second;
  }
  Parameter* Find(std::string_view port) {
    const auto i = Index(port);
    return i < 0 ? nullptr : &entries_[static_cast<std::size_t>(i)].second;
  }
  /// Inserts or replaces the entry; keeps the position of a replaced one.
  void Set(std::string_view port, Parameter p) {
    if (auto* e = Find(port)) {
      *e = std::move(p);
      return;
    }
    entries_.emplace_back(std::string(port), std::move(p));
  }
  template <class T>
    requires std::is_constructible_v<ConstantValue, std::in_place_type_t<T>, T>
  void SetConstant(std::string_view port, T v) { Set(port, Parameter::Constant(std::move(v))); }
  bool Erase(std::string_view port) {
    const auto i = Index(port);
    if (i < 0) return false;
    entries_.erase(entries_.begin() + i);
    return true;
  }
  std::size_t Size() const { return entries_.size(); }
  bool IsEmpty() const { return entries_.empty(); }
  const std::vector<std::pair<std::string, Parameter>>& Entries() const { return entries_; }
  std::vector<std::pair<std::string, Parameter>>& Entries() { return entries_; }

 private:
  std::ptrdiff_t Index(std::string_view port) const {
    for (std::size_t i = 0; i < entries_.size(); ++i)
      if (entries_[i].first == port) return static_cast<std::ptrdiff_t>(i);
    return -1;
  }
  Id bundle_;
  std::vector<std::pair<std::string, Parameter>> entries_;
};

using ParameterSetRef = std::shared_ptr<const ParameterSet>;

// ---------------------------------------------------------------------------------------------
// Maps and registry records

/// Bundles a caller accepts, each with a 32-bit value (0 = preferred). Keeps insertion order,
/// which is "the map's own order".
class MaterialTypesMap {
 public:
  static constexpr std::string_view kDataTypeId = "net.kelvo.material.datatype.materialtypesmap";
  bool IsPopulated() const { return !entries_.empty(); }
  void Insert(Id bundle, std::int32_t value) {
    for (auto& e : entries_)
      if (e.first == bundle) {
        e.second = value;
        return;
      }
    entries_.emplace_back(std::move(bundle), value);
  }
  std::optional<std::int32_t> Find(const Id& bundle) const {
    for (const auto& e : entries_)
      if (e.first == bundle) return e.second;
    return std::nullopt;
  }
  const std::vector<std::pair<Id, std::int32_t>>& Entries() const { return entries_; }

 private:
  std::vector<std::pair<Id, std::int32_t>> entries_;
};

/// Registry record of a material exporter: the host material type it handles and its class.
struct MaterialExportDescription {
  static constexpr std::string_view kDataTypeId = "net.kelvo.material.datatype.materialexportdescription";
  std::int32_t materialType = 0;
  Id exporterClass;
};

/// Registry record of a material importer: the node space it builds materials in and its class.
struct MaterialImportDescription {
  static constexpr std::string_view kDataTypeId = "net.kelvo.material.datatype.materialimportdescription";
  Id nodeSpace;
  Id importerClass;
};

/// Registry record of a mapping: source and target bundle.
struct MaterialMappingDescription {
  static constexpr std::string_view kDataTypeId = "net.kelvo.material.datatype.materialmappingdescription";
  Id sourceBundle;
  Id targetBundle;
};

// ---------------------------------------------------------------------------------------------
// Port bundles (the host's vocabulary registry)

/// One port of a bundle's vocabulary.
struct PortDeclaration {
  std::string name;
  ConstantType type = ConstantType::Float;
  bool texturable = false;  ///< the port can carry a texture
  bool color = false;       ///< texels are colour (sRGB-encoded in 8-bit files), not data
  std::string help;
};

/// A port bundle: its vocabulary with types and its default parameter set.
struct PortBundle {
  Id id;
  std::string name;
  std::vector<PortDeclaration> ports;
  ParameterSet defaults;

  const PortDeclaration* FindPort(std::string_view port) const {
    for (const auto& p : ports)
      if (p.name == port) return &p;
    return nullptr;
  }
};

// ---------------------------------------------------------------------------------------------
// Mapping results

/// A source port that was absent and replaced by its default, and the target port that got it.
struct DefaultUse {
  std::string sourcePort;
  PackedConstantParameter value;
  std::string targetPort;
};

/// The defaults table a mapping run returns: its entries and the table's sizing.
struct DefaultsTable {
  std::size_t capacity = 0;
  std::size_t growThreshold = 0;
  std::vector<DefaultUse> entries;
  const DefaultUse* Find(std::string_view sourcePort) const {
    for (const auto& e : entries)
      if (e.sourcePort == sourcePort) return &e;
    return nullptr;
  }
};

/// What a mapping run returns: the target set and, for mappings that record them, the defaults.
struct MappingOutput {
  std::shared_ptr<ParameterSet> target;
  DefaultsTable defaults;
};

}  // namespace vex
