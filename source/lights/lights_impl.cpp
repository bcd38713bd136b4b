// The `lights_impl` unit: the neutral light description (vocabulary,
// enumerations, typed accessors), the object classes "base" and "light", the
// object factory, and the Corvane light intensity and colour-temperature
// operations that the global utilities expose.
#include "lights/lights_impl.h"

#include <algorithm>
#include <cmath>

#include "frame/module.h"
#include "lights/colour_matching.h"
#include "vex/host.h"
#include "vex/interfaces.h"
#include "vex/lookup.h"

namespace interop::lights {

namespace tessel = vex::tessel;
namespace key = vex::tessel::key;

// --- enumerations --------------------------------------------------------------------------------
namespace {

// The integers are the renderer's own numbering: the order is binding (decay "quadratic" before
// "none", refraction "never" before "auto").
constexpr std::array<std::string_view, 8> kLightTypes = {"infinite", "point",           "spot",   "area",
                                                         "dome",     "photometric_ies", "portal", "sun"};
constexpr std::array<std::string_view, 5> kLightUnits = {"image", "luminous_power", "luminance", "radiant_power",
                                                         "radiance"};
constexpr std::array<std::string_view, 3> kDecayTypes = {"quadratic", "none", "linear"};
constexpr std::array<std::string_view, 2> kBackplateAspects = {"texture", "render"};
constexpr std::array<std::string_view, 2> kIesColorModes = {"color", "temperature"};
constexpr std::array<std::string_view, 3> kRefractionModes = {"never", "auto", "always"};
constexpr std::array<std::string_view, 2> kSunModels = {"prg_clear_sky", "legacy"};
constexpr std::array<std::string_view, 4> kDomeEnvTypes = {"spherical", "hemispherical", "mirror_ball", "angular"};
constexpr std::array<std::string_view, 5> kAreaGeometries = {"rectangle", "disc", "sphere", "cylinder", "mesh"};
constexpr std::array<std::string_view, 3> kColorModes = {"color", "temperature", "color_and_temperature"};

const std::array<EnumerationInfo, 11> kEnumerations = {{
    {"None", {}, std::nullopt},
    {"LightType", kLightTypes, 1},
    {"LightUnits", kLightUnits, std::nullopt},
    {"LightDecayType", kDecayTypes, std::nullopt},
    {"LightBackplateAspect", kBackplateAspects, std::nullopt},
    {"LightIesColorMode", kIesColorModes, std::nullopt},
    {"LightRefractionMode", kRefractionModes, 0},
    {"LightSunModel", kSunModels, 1},
    {"LightDomeEnvType", kDomeEnvTypes, 0},
    {"LightAreaGeometry", kAreaGeometries, 0},
    {"LightColorMode", kColorModes, 0},
}};

vex::Error AttributeTypeError(const LightAttributeInfo& info, int line) {
  return vex::MakeError(
      vex::ErrorKind::WrongDataType,
      "Light attribute " + std::string(info.key) + " is not a " + std::string(ValueTypeName(info.type)), VEX_UNIT,
      line);
}

template <class T>
vex::Result<std::optional<vex::Data>> Plain(const vex::Data& d, const LightAttributeInfo& info) {
  const T* v = d.Get<T>();
  if (v == nullptr) return std::unexpected(AttributeTypeError(info, __LINE__));
  return std::optional<vex::Data>(vex::Data(*v));
}

}  // namespace

const EnumerationInfo& Info(Enumeration enumeration) { return kEnumerations[static_cast<std::size_t>(enumeration)]; }

std::optional<std::int32_t> ParseEnumeration(Enumeration enumeration, std::string_view text) {
  const EnumerationInfo& e = Info(enumeration);
  for (std::size_t i = 0; i < e.values.size(); ++i)
    if (e.values[i] == text) return static_cast<std::int32_t>(i);
  return e.unknown;
}

std::optional<LightAttr> FindLightAttribute(std::string_view fullKey) {
  if (!fullKey.starts_with(key::kLightPrefix)) return std::nullopt;
  for (const auto& a : kLightAttributes)
    if (a.key == fullKey) return a.attr;
  return std::nullopt;
}

vex::Result<std::optional<std::int32_t>> GetEnumeration(const tessel::VEXObjectDescription& description,
                                                        LightAttr attr) {
  const LightAttributeInfo& info = Info(attr);
  VEX_CHECK_ARGUMENT(info.enumeration != Enumeration::None);
  const vex::Data* d = description.data.Find(info.key);
  if (d == nullptr) return std::optional<std::int32_t>();
  const auto* id = d->Get<vex::Id>();
  if (id == nullptr) return std::unexpected(AttributeTypeError(info, __LINE__));
  return ParseEnumeration(info.enumeration, id->View());
}

vex::Result<std::optional<vex::Data>> ReadAsParameter(const tessel::VEXObjectDescription& description, LightAttr attr) {
  const LightAttributeInfo& info = Info(attr);
  const vex::Data* d = description.data.Find(info.key);
  if (d == nullptr) return std::optional<vex::Data>();
  switch (info.type) {
    case ValueType::Float64:
      return Plain<double>(*d, info);
    case ValueType::Int32:
      return Plain<std::int32_t>(*d, info);
    case ValueType::Bool:
      return Plain<bool>(*d, info);
    case ValueType::Color:
      return Plain<vex::Color>(*d, info);
    case ValueType::String:
      return Plain<std::string>(*d, info);
    case ValueType::Texture: {
      const auto* texture = d->Get<vex::ImageReference>();
      if (texture == nullptr) return std::unexpected(AttributeTypeError(info, __LINE__));
      return std::optional<vex::Data>(vex::Data::MakeCustom(*texture));
    }
    case ValueType::Id: {
      VEX_ASSIGN(const auto value, GetEnumeration(description, attr));
      if (!value) return std::optional<vex::Data>();
      return std::optional<vex::Data>(vex::Data(*value));
    }
  }
  return std::optional<vex::Data>();
}

// --- object classes ------------------------------------------------------------------------------
namespace {

vex::Result<void> MakeObject(tessel::ObjectSlot& slot, std::int32_t type) {
  if (slot.object) return {};
  VEX_ASSIGN(slot.object, vex::Host().documents->CreateObject(type));
  VEX_CHECK_STATE(slot.object != nullptr);
  return {};
}

/// A basic attribute of a given type; none when absent.
template <class T>
vex::Result<std::optional<T>> Basic(const vex::DataDictionary& dictionary, std::string_view attribute) {
  const vex::Data* d = dictionary.Find(attribute);
  if (d == nullptr) return std::optional<T>();
  const T* v = d->Get<T>();
  if (v == nullptr)
    return VEX_FAIL(vex::ErrorKind::WrongDataType, "Attribute " + std::string(attribute) + " has the wrong type");
  return std::optional<T>(*v);
}

std::int32_t TransformParameter(std::string_view attribute) {
  if (attribute == key::kPosition) return vex::kObjectRelativePosition;
  if (attribute == key::kRotation) return vex::kObjectRelativeRotation;
  if (attribute == key::kScale) return vex::kObjectRelativeScale;
  return 0;
}

/// The keys of each take's tracks onto the per-component tracks of 903, 904 and 905.
vex::Result<void> ApplyAnimation(vex::ISceneObject& object, const vex::Data& animation) {
  const auto* takes = animation.Get<vex::DataArray>();
  if (takes == nullptr)
    return VEX_FAIL(vex::ErrorKind::WrongDataType, "Attribute " + std::string(key::kAnimation) + " is not an array");
  for (const vex::Data& takeData : *takes) {
    const auto* take = takeData.Get<vex::DataDictionary>();
    if (take == nullptr) return VEX_FAIL(vex::ErrorKind::WrongDataType, "An animation take is not a dictionary");
    VEX_ASSIGN(const auto enabled, Basic<bool>(*take, key::kTakeAnimation));
    if (enabled && !*enabled) continue;
    VEX_ASSIGN(const auto override, Basic<bool>(*take, key::kTakeOverride));
    VEX_ASSIGN(const auto tracks, Basic<vex::DataDictionary>(*take, key::kTakeTracks));
    if (!tracks) continue;
    for (std::size_t i = 0; i < tracks->Size(); ++i) {
      const std::string& attribute = tracks->KeyAt(i);
      const std::int32_t parameter = TransformParameter(attribute);
      if (parameter == 0) {
        VEX_DIAGNOSTIC("Animation of " + attribute + " is not supported; its keys are skipped");
        continue;
      }
      const auto* track = tracks->ValueAt(i).Get<vex::DataDictionary>();
      if (track == nullptr)
        return VEX_FAIL(vex::ErrorKind::WrongDataType, "The animation track of " + attribute + " is not a dictionary");
      if (override && *override)
        for (std::int32_t c = 0; c < 3; ++c) object.RemoveTrack({parameter, c});
      const std::array<std::string_view, 3> lists = {key::kTrackX, key::kTrackY, key::kTrackZ};
      for (std::int32_t c = 0; c < 3; ++c) {
        const vex::Data* list = track->Find(lists[static_cast<std::size_t>(c)]);
        if (list == nullptr) continue;
        const auto* keys = list->Get<vex::DataArray>();
        if (keys == nullptr)
          return VEX_FAIL(vex::ErrorKind::WrongDataType, "Track " + std::string(lists[static_cast<std::size_t>(c)]) +
                                                             " of " + attribute + " is not an array");
        for (const vex::Data& k : *keys) {
          const auto* frame = k.Get<tessel::TesselKeyFrame>();
          if (frame == nullptr)
            return VEX_FAIL(vex::ErrorKind::WrongDataType, "A key of " + attribute + " is not a TesselKeyFrame");
          VEX_TRY(object.SetKey({parameter, c}, {frame->time.seconds, frame->value}));
        }
      }
    }
  }
  return {};
}

/// "net.kelvo.tessel.vexobjectclasses.base": name, relative transform and animation of any object.
class BaseObjectClass final : public vex::ComponentBase<tessel::IVexObjectClass> {
 public:
  std::string_view ClassId() const override { return kBaseClassId; }

  vex::Result<void> Create(tessel::ObjectSlot& slot, const tessel::VEXObjectDescription& description,
                           std::int32_t flags) override {
    VEX_TRY(MakeObject(slot, vex::kGroupObjectType));
    vex::ISceneObject& object = *slot.object;
    VEX_ASSIGN(const auto name, Basic<std::string>(description.data, key::kName));
    if (name) object.SetName(*name);
    for (const std::string_view attribute : {key::kPosition, key::kRotation, key::kScale}) {
      VEX_ASSIGN(const auto value, Basic<vex::Vector3d>(description.data, attribute));
      if (value) VEX_TRY(object.SetParameter(TransformParameter(attribute), *value));
    }
    if ((flags & tessel::kCreateWithoutAnimation) == 0)
      if (const vex::Data* animation = description.data.Find(key::kAnimation))
        VEX_TRY(ApplyAnimation(object, *animation));
    return {};
  }

  vex::Result<void> Finish(tessel::ObjectSlot& slot) override {
    VEX_CHECK_STATE(slot.object != nullptr);
    return {};
  }
};

/// "net.kelvo.tessel.vexobjectclasses.light": a light on top of the base class. Made alone it
/// builds the host's generic light; renderer classes bring their own light object and write the
/// light attributes before they call it.
class LightObjectClass final : public vex::ComponentBase<tessel::IVexObjectClass> {
 public:
  std::string_view ClassId() const override { return kLightClassId; }

  vex::Result<void> Create(tessel::ObjectSlot& slot, const tessel::VEXObjectDescription& description,
                           std::int32_t flags) override {
    VEX_TRY(MakeObject(slot, vex::kLightObjectType));
    VEX_ASSIGN(auto next, NextClass(kBaseClassId));
    return next->Create(slot, description, flags);
  }

  vex::Result<void> Finish(tessel::ObjectSlot& slot) override {
    VEX_ASSIGN(auto next, NextClass(kBaseClassId));
    return next->Finish(slot);
  }
};

/// "net.kelvo.tessel.factory.vexobjectfromfactory".
class ObjectFactory final : public vex::ComponentBase<tessel::IVexObjectFactory> {
 public:
  std::string_view ClassId() const override { return kFactoryClassId; }

  vex::Result<vex::SceneObjectRef> Create(std::string_view nodeSpaceId, const tessel::VEXObjectDescription& description,
                                          std::int32_t flags) override {
    auto objectType = vex::GetDataAs<vex::Id>(description.data, key::kObjectType);
    if (!objectType) {
      VEX_DIAGNOSTIC(kObjectTypeDiagnostic);
      return std::unexpected(std::move(objectType).error());
    }
    auto classId = ObjectClassRegistry::Find(nodeSpaceId, objectType->View());
    // Corvane's classes serve every renderer that registers none of its own.
    if (!classId) classId = ObjectClassRegistry::Find(tessel::kCorvaneNodeSpace, objectType->View());
    if (!classId)
      return VEX_FAIL(vex::ErrorKind::NotFound, "No object class for object type \"" + objectType->Str() +
                                                    "\" in node space \"" + std::string(nodeSpaceId) +
                                                    "\" nor in the Corvane node space");
    VEX_ASSIGN(auto objectClass, NextClass(*classId));
    tessel::ObjectSlot slot;
    VEX_TRY(objectClass->Create(slot, description, flags));
    VEX_TRY(objectClass->Finish(slot));
    VEX_CHECK_STATE(slot.object != nullptr);
    return slot.object;
  }
};

}  // namespace

std::optional<std::string> ObjectClassRegistry::Find(std::string_view nodeSpaceId, std::string_view objectType) {
  for (const auto& entry : vex::Host().components->GetRegistryEntries(tessel::kObjectClassRegistry)) {
    const auto* k = entry.record.Get<tessel::ObjectClassKey>();
    if (k != nullptr && k->nodeSpace == nodeSpaceId && k->objectType == objectType) return entry.id;
  }
  return std::nullopt;
}

std::vector<std::string> ObjectClassRegistry::ObjectTypes() {
  std::vector<std::string> types;
  for (const auto& entry : vex::Host().components->GetRegistryEntries(tessel::kObjectClassRegistry)) {
    const auto* k = entry.record.Get<tessel::ObjectClassKey>();
    if (k == nullptr || !k->objectType.IsPopulated()) continue;
    if (std::find(types.begin(), types.end(), k->objectType.Str()) == types.end()) types.push_back(k->objectType.Str());
  }
  return types;
}

vex::Result<std::shared_ptr<tessel::IVexObjectClass>> NextClass(std::string_view classId) {
  return vex::CreateAs<tessel::IVexObjectClass>(classId);
}

vex::Result<vex::ComponentRef> CreateBaseClass() { return vex::MakeComponent<BaseObjectClass>(); }
vex::Result<vex::ComponentRef> CreateLightClass() { return vex::MakeComponent<LightObjectClass>(); }
vex::Result<vex::ComponentRef> CreateObjectFactory() { return vex::MakeComponent<ObjectFactory>(); }

// --- light units ----------------------------------------------------------------------------------
namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kTwoPi = 6.283185307179586;
constexpr double kFourPi = 12.566370614359172;
constexpr double kFloor = 0.0001;

constexpr std::string_view kNotACorvaneLight = "Illegal argument: Passed object is not an CV light!";
constexpr std::string_view kNotInserted = "Illegal state: CV light is not inserted into the document!";
constexpr std::string_view kUnknownTargetUnits = "Illegal state: Unknown target light units!";

double AtLeastFloor(double v) { return v < kFloor ? kFloor : v; }

}  // namespace

void ComputeLightUnitContext(vex::IDocument* document, LightUnitContext& context) {
  if (document == nullptr) return;
  auto& c = context.c;
  c[0] = 100.0;
  c[1] = 10000.0;
  c[2] = 1.0;
  const vex::RenderData* render = document->GetActiveRenderData();
  const vex::PostEffect* effect = render != nullptr ? render->FindPostEffect(corvane::kRendererEffect) : nullptr;
  if (effect != nullptr) {
    const vex::ParamContainer& settings = effect->parameters;
    c[0] = settings.GetFloat(corvane::kSceneScaleA, 100.0);
    c[1] = settings.GetFloat(corvane::kSceneScaleB, 10000.0);
    c[2] = 1.0;
    if (!settings.GetBool(corvane::kIgnoreRendererUnit, false)) {
      const vex::Data* rendererUnit = settings.Find(corvane::kRendererUnit);
      const vex::Data* documentUnit = document->Settings().Find(vex::kDocumentLengthUnit);
      const auto* to = rendererUnit != nullptr ? rendererUnit->Get<vex::UnitScale>() : nullptr;
      const auto* from = documentUnit != nullptr ? documentUnit->Get<vex::UnitScale>() : nullptr;
      if (to != nullptr && from != nullptr)
        if (auto scale = vex::Host().units->GetTranslationScale(*from, *to)) c[2] = *scale;
    }
  }
  for (std::size_t i = 0; i < 3; ++i) c[i] = AtLeastFloor(c[i]);
  c[3] = c[1] / 10000.0;
  c[4] = 100.0 / c[0];
  c[5] = c[4] * c[2];
  for (std::size_t i = 3; i < 6; ++i) c[i] = AtLeastFloor(c[i]);
}

double ComputeAreaLightSurface(const vex::ISceneObject& light) {
  if (light.GetType() != corvane::kLightObjectType) return 1.0;
  const vex::ParamContainer& p = light.Parameters();
  if (p.GetInt32(corvane::kLightType, 1) != 3) return 1.0;
  const double sx = p.GetFloat(corvane::kAreaSizeX, 200.0);
  const double sy = p.GetFloat(corvane::kAreaSizeY, 200.0);
  const double sz = p.GetFloat(corvane::kAreaSizeZ, 200.0);
  switch (p.GetInt32(corvane::kAreaShape, 5)) {
    case 0:
      return sx * sy;
    case 1:
      return kPi * (sx / 2) * (sy / 2);
    case 2: {
      // The ellipsoid surface approximation with p = 1.6, taken over the squares of a^p, b^p and c^p
      // (for a = b = c it is the exact sphere area).
      const double ap = std::pow(sx / 2, 1.6);
      const double bp = std::pow(sy / 2, 1.6);
      const double cp = std::pow(sz / 2, 1.6);
      const double m = (ap * ap + bp * bp + cp * cp) / 3.0;
      if (m <= 0.0) return 1.0;
      return kFourPi * std::pow(m, 0.625);
    }
    case 3: {
      const double q = ((sx / 2) * (sx / 2) + (sy / 2) * (sy / 2)) * 0.5;
      if (q <= 0.0) return 1.0;
      return kTwoPi * std::sqrt(q) * sz;
    }
    default:
      return 1.0;
  }
}

vex::Result<double> CVLightGetBaseIntensity(vex::ISceneObject* op) {
  VEX_CHECK_ARGUMENT(op);
  if (op->GetType() != corvane::kLightObjectType)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, std::string(kNotACorvaneLight));
  vex::IDocument* document = op->GetDocument();
  if (document == nullptr) return VEX_FAIL(vex::ErrorKind::IllegalState, std::string(kNotInserted));
  const vex::ParamContainer& p = op->Parameters();
  const double I = p.GetFloat(corvane::kIntensity, 1.0);
  const std::int32_t t = p.GetInt32(corvane::kLightType, -1);
  const std::int32_t u = p.GetInt32(corvane::kUnits, -1);
  const double E = p.GetFloat(corvane::kEfficacy, 17.0);
  if (t == 4 || t == 6) return I;
  LightUnitContext context;
  ComputeLightUnitContext(document, context);
  if (t < 0 || t > 7) return I;
  const auto& c = context.c;
  const double watts = (u == 3 || u == 4) ? E : 1.0;  // watts to lumens where the cell says so
  const bool power = u == 1 || u == 3;
  const bool luminance = u == 2 || u == 4;
  switch (t) {
    case 0:
      if (power) return I / kPi / c[3] / (c[4] * c[4]) * watts;
      if (luminance) return I / 10000.0 / c[3] * watts;
      return I;
    case 1:
    case 2:
      if (u == 0) return I / (c[2] * c[2]);
      if (power) return I / kPi / c[3] / (c[5] * c[5]) * watts;
      if (luminance) return I / 10000.0 / c[3] / (c[2] * c[2]) * watts;
      return I;
    case 3: {
      const double A = std::max(kFloor, ComputeAreaLightSurface(*op));
      if (u == 0) return p.GetBool(corvane::kAreaNormalize, false) ? I / A : I;
      if (power) return I / kPi / c[3] / (c[5] * c[5]) / A * watts;
      if (luminance) return I / 10000.0 / c[3] * watts;  // no area and no c2 term here
      return I;
    }
    case 5:
      return I / c[3] / (c[4] * c[4]);  // c4, not c5
    case 7:
      return p.GetBool(corvane::kSunNonPhysical, false) ? I / 2.5 : I / c[3];
    default:
      return I;
  }
}

vex::Result<void> CVLightConvertToUnit(vex::ISceneObject* op, std::int32_t targetUnits) {
  VEX_CHECK_ARGUMENT(op);
  if (op->GetType() != corvane::kLightObjectType)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, std::string(kNotACorvaneLight));
  const vex::ParamContainer& p = op->Parameters();
  const std::int32_t t = p.GetInt32(corvane::kLightType, -1);
  if (t >= 4 && t <= 7) return {};
  if (targetUnits < 0 || targetUnits > 4)
    return VEX_FAIL(vex::ErrorKind::IllegalState, std::string(kUnknownTargetUnits));
  if (p.GetInt32(corvane::kUnits, -1) == targetUnits) return {};
  vex::IDocument* document = op->GetDocument();
  if (document == nullptr) return VEX_FAIL(vex::ErrorKind::IllegalState, std::string(kNotInserted));
  LightUnitContext context;
  ComputeLightUnitContext(document, context);
  VEX_ASSIGN(const double B, CVLightGetBaseIntensity(op));
  VEX_TRY(op->SetParameter(corvane::kUnits, std::int32_t{0}));
  const auto& c = context.c;
  const double E =
      (targetUnits == 3 || targetUnits == 4) ? std::max(kFloor, p.GetFloat(corvane::kEfficacy, 17.0)) : 1.0;
  const bool power = targetUnits == 1 || targetUnits == 3;
  double V = 0.0;
  switch (t) {
    case 0:
      V = targetUnits == 0 ? B : power ? B * kPi * c[3] * c[4] * c[4] / E : B * 10000.0 * c[3] / E;
      break;
    case 1:
    case 2:
      V = targetUnits == 0 ? B * c[2] * c[2]
          : power          ? B * kPi * c[3] * c[5] * c[5] / E
                           : B * 10000.0 * c[3] * c[2] * c[2] / E;
      break;
    case 3: {
      const double A = std::max(kFloor, ComputeAreaLightSurface(*op));
      if (targetUnits == 0) {
        V = B;
        VEX_TRY(op->SetParameter(corvane::kSunNonPhysical, false));
      } else {
        V = power ? A * B * kPi * c[3] * c[5] * c[5] / E : B * 10000.0 * c[3] / E;
      }
      break;
    }
    default:
      return {};  // other types: the units are reset, the intensity stays
  }
  return op->SetParameter(corvane::kIntensity, V);
}

// --- colour temperature ---------------------------------------------------------------------------
namespace {

using Vec3 = std::array<double, 3>;
using Mat3 = std::array<Vec3, 3>;

constexpr double kC1 = 3.7418315977540395e29;
constexpr double kC2 = 14387863.314;

constexpr Mat3 kBradford = {{{0.8951, 0.2664, -0.1614}, {-0.7502, 1.7135, 0.0367}, {0.0389, -0.0685, 1.0296}}};
constexpr Mat3 kBradfordInverse = {
    {{0.986993, -0.147054, 0.159963}, {0.432305, 0.51836, 0.049291}, {-0.008529, 0.040043, 0.968487}}};
constexpr Vec3 kD65Cone = {0.941428535, 1.040417467, 1.089532651};
constexpr Mat3 kXyzToLinearSrgb = {
    {{3.2404542, -1.5371385, -0.4985314}, {-0.969266, 1.8760108, 0.041556}, {0.0556434, -0.2040259, 1.0572252}}};

Vec3 Apply(const Mat3& m, const Vec3& v) {
  return {m[0][0] * v[0] + m[0][1] * v[1] + m[0][2] * v[2], m[1][0] * v[0] + m[1][1] * v[1] + m[1][2] * v[2],
          m[2][0] * v[0] + m[2][1] * v[1] + m[2][2] * v[2]};
}

/// XYZ of a black body at T kelvin over the colour matching table, divided by its largest value.
Vec3 BlackBodyXyz(double T) {
  Vec3 xyz = {0, 0, 0};
  for (std::size_t i = 0; i < kColourMatchingRows; ++i) {
    const double lambda = 380.0 + 5.0 * static_cast<double>(i);
    double denominator = std::exp(kC2 / (lambda * T)) - 1.0;
    if (denominator == 0.0) denominator = 1.0;
    const double l2 = lambda * lambda;
    const double M = kC1 / (l2 * l2 * lambda * denominator);
    xyz[0] += M * kColourMatching[i].x;
    xyz[1] += M * kColourMatching[i].y;
    xyz[2] += M * kColourMatching[i].z;
  }
  const double top = std::max({xyz[0], xyz[1], xyz[2]});
  if (top != 0.0)
    for (double& v : xyz) v /= top;
  return xyz;
}

}  // namespace

vex::Color ComputeColorTemperatureRGB(double temperature, bool normalize, double whiteTemperature) {
  const Vec3 xyz = BlackBodyXyz(temperature);
  const Vec3 white = BlackBodyXyz(whiteTemperature);
  Vec3 cone = Apply(kBradford, xyz);
  const Vec3 whiteCone = Apply(kBradford, white);
  for (std::size_t i = 0; i < 3; ++i) cone[i] *= kD65Cone[i] / whiteCone[i];
  const Vec3 rgb = Apply(kXyzToLinearSrgb, Apply(kBradfordInverse, cone));
  vex::Color out{rgb[0], rgb[1], rgb[2]};
  if (normalize) {
    const double top = std::max({out.r, out.g, out.b});
    if (top != 0.0) {
      out.r /= top;
      out.g /= top;
      out.b /= top;
    }
  }
  return out;
}

// --- static declarations of the `lights_impl` unit -----------------------------------------------
namespace {

struct LightsUnit {
  static constexpr std::string_view kUnit = "lights_impl";
  LightsUnit() {
    using vex::DeclarationKind;
    auto& fw = g_kelvo;
    const std::string unit(kUnit);
    auto declare = [&](DeclarationKind kind, std::string_view id, std::string_view related = {}) {
      fw.Declare({kind, std::string(id), unit, std::string(related)});
    };
    declare(DeclarationKind::DataType, tessel::VEXObjectDescription::kDataTypeId,
            tessel::VEXObjectDescription::kTypeName);
    declare(DeclarationKind::DataType, tessel::TesselTime::kDataTypeId, tessel::TesselTime::kTypeName);
    declare(DeclarationKind::DataType, tessel::TesselKeyFrame::kDataTypeId, tessel::TesselKeyFrame::kTypeName);
    declare(DeclarationKind::DataType, tessel::ObjectClassKey::kDataTypeId, "kelvo::tessel::ObjectClassKey");
    declare(DeclarationKind::Interface, tessel::IVexObjectClass::kInterfaceId);
    declare(DeclarationKind::Interface, tessel::IVexObjectFactory::kInterfaceId);
    declare(DeclarationKind::Registry, tessel::kObjectClassRegistry);
    const auto objectClass = tessel::IVexObjectClass::kInterfaceId;
    // The light class builds on the base class: the base is declared first.
    vex::DeclareClass(fw, kUnit, kBaseClassId, objectClass, &CreateBaseClass);
    vex::DeclareClass(fw, kUnit, kLightClassId, objectClass, &CreateLightClass, {}, {}, kBaseClassId);
    vex::DeclareClass(fw, kUnit, kFactoryClassId, tessel::IVexObjectFactory::kInterfaceId, &CreateObjectFactory);
  }
  ~LightsUnit() { g_kelvo.Withdraw(kUnit); }
};

LightsUnit s_lightsUnit INTEROP_UNIT_PRIORITY(kLightsUnitPriority);

}  // namespace
}  // namespace interop::lights
