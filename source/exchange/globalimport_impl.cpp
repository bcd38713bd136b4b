// The `globalimport_impl` unit: GlobalImportImpl and GlobalUtilsImpl. The
// light operations of the utilities are the lights unit's; the import turns
// descriptions into objects through the object factory and inserts them.
#include "exchange/globalimport_impl.h"

#include <cmath>
#include <limits>

#include "frame/module.h"
#include "lights/lights_impl.h"
#include "vex/host.h"
#include "vex/interfaces.h"
#include "vex/lookup.h"

namespace interop::exchange {

namespace tessel = vex::tessel;
namespace key = vex::tessel::key;
using lights::ValueType;

// --- transforms ------------------------------------------------------------------------------------
namespace {

struct Affine {
  std::array<std::array<double, 3>, 3> m{};  // rows
  std::array<double, 3> t{};
};

Affine Compose(const Transform& tr) {
  const double cx = std::cos(tr.rotation.x), sx = std::sin(tr.rotation.x);
  const double cy = std::cos(tr.rotation.y), sy = std::sin(tr.rotation.y);
  const double cz = std::cos(tr.rotation.z), sz = std::sin(tr.rotation.z);
  // R = Rz * Ry * Rx: x is applied first.
  const std::array<std::array<double, 3>, 3> r = {{{cy * cz, sx * sy * cz - cx * sz, cx * sy * cz + sx * sz},
                                                   {cy * sz, sx * sy * sz + cx * cz, cx * sy * sz - sx * cz},
                                                   {-sy, sx * cy, cx * cy}}};
  const std::array<double, 3> s = {tr.scale.x, tr.scale.y, tr.scale.z};
  Affine a;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) a.m[i][j] = r[i][j] * s[j];
  a.t = {tr.position.x, tr.position.y, tr.position.z};
  return a;
}

Affine Multiply(const Affine& a, const Affine& b) {
  Affine out;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) out.m[i][j] = a.m[i][0] * b.m[0][j] + a.m[i][1] * b.m[1][j] + a.m[i][2] * b.m[2][j];
    out.t[i] = a.m[i][0] * b.t[0] + a.m[i][1] * b.t[1] + a.m[i][2] * b.t[2] + a.t[i];
  }
  return out;
}

/// The inverse of an affine map; none when it is singular.
std::optional<Affine> Invert(const Affine& a) {
  const auto& m = a.m;
  const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                     m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                     m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
  if (std::abs(det) < 1e-300) return std::nullopt;
  Affine out;
  out.m[0][0] = (m[1][1] * m[2][2] - m[1][2] * m[2][1]) / det;
  out.m[0][1] = (m[0][2] * m[2][1] - m[0][1] * m[2][2]) / det;
  out.m[0][2] = (m[0][1] * m[1][2] - m[0][2] * m[1][1]) / det;
  out.m[1][0] = (m[1][2] * m[2][0] - m[1][0] * m[2][2]) / det;
  out.m[1][1] = (m[0][0] * m[2][2] - m[0][2] * m[2][0]) / det;
  out.m[1][2] = (m[0][2] * m[1][0] - m[0][0] * m[1][2]) / det;
  out.m[2][0] = (m[1][0] * m[2][1] - m[1][1] * m[2][0]) / det;
  out.m[2][1] = (m[0][1] * m[2][0] - m[0][0] * m[2][1]) / det;
  out.m[2][2] = (m[0][0] * m[1][1] - m[0][1] * m[1][0]) / det;
  for (int i = 0; i < 3; ++i) out.t[i] = -(out.m[i][0] * a.t[0] + out.m[i][1] * a.t[1] + out.m[i][2] * a.t[2]);
  return out;
}

Transform Decompose(const Affine& a) {
  Transform tr;
  tr.position = {a.t[0], a.t[1], a.t[2]};
  std::array<double, 3> s{};
  for (int j = 0; j < 3; ++j) s[j] = std::sqrt(a.m[0][j] * a.m[0][j] + a.m[1][j] * a.m[1][j] + a.m[2][j] * a.m[2][j]);
  const auto& m = a.m;
  const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                     m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                     m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
  if (det < 0) s[0] = -s[0];  // a mirror goes into the x scale
  std::array<std::array<double, 3>, 3> r{};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) r[i][j] = s[j] != 0.0 ? m[i][j] / s[j] : (i == j ? 1.0 : 0.0);
  const double sinY = std::clamp(-r[2][0], -1.0, 1.0);
  const double y = std::asin(sinY);
  double x = 0, z = 0;
  if (std::abs(sinY) < 1.0 - 1e-12) {
    x = std::atan2(r[2][1], r[2][2]);
    z = std::atan2(r[1][0], r[0][0]);
  } else {
    z = std::atan2(-r[0][1], r[1][1]);  // gimbal lock: x and z turn about the same axis
  }
  tr.rotation = {x, y, z};
  tr.scale = {s[0], s[1], s[2]};
  return tr;
}

Transform ObjectTransform(const vex::ISceneObject& object) {
  const vex::ParamContainer& p = object.Parameters();
  auto vec = [&](std::int32_t id, vex::Vector3d fallback) {
    const vex::Data* d = p.Find(id);
    const auto* v = d != nullptr ? d->Get<vex::Vector3d>() : nullptr;
    return v != nullptr ? *v : fallback;
  };
  return {vec(vex::kObjectRelativePosition, {0, 0, 0}), vec(vex::kObjectRelativeRotation, {0, 0, 0}),
          vec(vex::kObjectRelativeScale, {1, 1, 1})};
}

}  // namespace

Transform RelativeToParent(const vex::ISceneObject* parent, const Transform& global) {
  if (parent == nullptr) return global;
  Affine chain = Compose(ObjectTransform(*parent));
  for (const vex::ISceneObject* p = parent->GetParent(); p != nullptr; p = p->GetParent())
    chain = Multiply(Compose(ObjectTransform(*p)), chain);
  const auto inverse = Invert(chain);
  if (!inverse) return global;
  return Decompose(Multiply(*inverse, Compose(global)));
}

// --- conforming loosely typed descriptions -------------------------------------------------------
namespace {

std::optional<double> Number(const vex::Data& d) {
  if (const auto* v = d.Get<double>()) return *v;
  if (const auto* v = d.Get<std::int32_t>()) return static_cast<double>(*v);
  if (const auto* v = d.Get<std::int64_t>()) return static_cast<double>(*v);
  return std::nullopt;
}

std::optional<std::array<double, 3>> Triple(const vex::Data& d) {
  if (const auto* v = d.Get<vex::Vector3d>()) return std::array<double, 3>{v->x, v->y, v->z};
  if (const auto* c = d.Get<vex::Color>()) return std::array<double, 3>{c->r, c->g, c->b};
  const auto* a = d.Get<vex::DataArray>();
  if (a == nullptr || a->size() != 3) return std::nullopt;
  std::array<double, 3> out{};
  for (std::size_t i = 0; i < 3; ++i) {
    const auto n = Number((*a)[i]);
    if (!n) return std::nullopt;
    out[i] = *n;
  }
  return out;
}

vex::Error ConformError(std::string_view where, std::string_view type, int line) {
  return vex::MakeError(vex::ErrorKind::WrongDataType, std::string(where) + ": cannot be read as " + std::string(type),
                        VEX_UNIT, line);
}

/// A light attribute's value in its vocabulary type.
vex::Result<vex::Data> ConformLight(const vex::Data& d, ValueType type, std::string_view where) {
  switch (type) {
    case ValueType::Float64:
      if (const auto n = Number(d)) return vex::Data(*n);
      break;
    case ValueType::Int32: {
      if (d.Is<std::int32_t>()) return d;
      const auto n = Number(d);
      if (n && std::trunc(*n) == *n && *n >= std::numeric_limits<std::int32_t>::min() &&
          *n <= std::numeric_limits<std::int32_t>::max())
        return vex::Data(static_cast<std::int32_t>(*n));
      break;
    }
    case ValueType::Bool:
      if (d.Is<bool>()) return d;
      break;
    case ValueType::Id:
      if (d.Is<vex::Id>()) return d;
      if (const auto* s = d.Get<std::string>()) return vex::Data(vex::Id(*s));
      break;
    case ValueType::Color:
      if (const auto t = Triple(d)) return vex::Data(vex::Color{(*t)[0], (*t)[1], (*t)[2]});
      break;
    case ValueType::Texture:
      if (d.Is<vex::ImageReference>()) return d;
      if (const auto* s = d.Get<std::string>()) {
        vex::ImageReference image;
        image.url.text = *s;
        return vex::Data::MakeCustom(std::move(image));
      }
      break;
    case ValueType::String:
      if (d.Is<std::string>()) return d;
      if (const auto* id = d.Get<vex::Id>()) return vex::Data(id->Str());
      break;
  }
  return std::unexpected(ConformError(where, lights::ValueTypeName(type), __LINE__));
}

vex::Result<vex::Data> ConformKeyFrame(const vex::Data& d, std::string_view where) {
  if (d.Is<tessel::TesselKeyFrame>()) return d;
  std::optional<double> time, value;
  if (const auto* record = d.Get<vex::DataDictionary>()) {
    if (const vex::Data* t = record->Find("time")) time = Number(*t);
    if (const vex::Data* v = record->Find("value")) value = Number(*v);
  } else if (const auto* pair = d.Get<vex::DataArray>(); pair != nullptr && pair->size() == 2) {
    time = Number((*pair)[0]);
    value = Number((*pair)[1]);
  }
  if (!time || !value) return std::unexpected(ConformError(where, "a key {\"time\": s, \"value\": v}", __LINE__));
  return vex::Data::MakeCustom(tessel::TesselKeyFrame{tessel::TesselTime{*time}, *value});
}

vex::Result<vex::Data> ConformAnimation(const vex::Data& d, const std::string& where) {
  const auto* takes = d.Get<vex::DataArray>();
  if (takes == nullptr) return std::unexpected(ConformError(where, "an array of takes", __LINE__));
  vex::DataArray outTakes;
  for (std::size_t i = 0; i < takes->size(); ++i) {
    const std::string at = where + "[" + std::to_string(i) + "]";
    const auto* take = (*takes)[i].Get<vex::DataDictionary>();
    if (take == nullptr) return std::unexpected(ConformError(at, "a take record", __LINE__));
    vex::DataDictionary outTake = *take;
    if (vex::Data* tracks = outTake.Find(key::kTakeTracks)) {
      const auto* trackDict = tracks->Get<vex::DataDictionary>();
      if (trackDict == nullptr)
        return std::unexpected(ConformError(at + ".tracks", "a dictionary of tracks", __LINE__));
      vex::DataDictionary outTracks;
      for (std::size_t t = 0; t < trackDict->Size(); ++t) {
        const std::string tat = at + "." + trackDict->KeyAt(t);
        const auto* track = trackDict->ValueAt(t).Get<vex::DataDictionary>();
        if (track == nullptr) return std::unexpected(ConformError(tat, "a track record", __LINE__));
        vex::DataDictionary outTrack = *track;
        for (const std::string_view list : {key::kTrackX, key::kTrackY, key::kTrackZ}) {
          vex::Data* keys = outTrack.Find(list);
          if (keys == nullptr) continue;
          const auto* array = keys->Get<vex::DataArray>();
          if (array == nullptr)
            return std::unexpected(ConformError(tat + "." + std::string(list), "an array of keys", __LINE__));
          vex::DataArray outKeys;
          for (std::size_t k = 0; k < array->size(); ++k) {
            VEX_ASSIGN(vex::Data frame,
                       ConformKeyFrame((*array)[k], tat + "." + std::string(list) + "[" + std::to_string(k) + "]"));
            outKeys.push_back(std::move(frame));
          }
          *keys = vex::Data(std::move(outKeys));
        }
        outTracks.Set(trackDict->KeyAt(t), vex::Data(std::move(outTrack)));
      }
      *tracks = vex::Data(std::move(outTracks));
    }
    outTakes.push_back(vex::Data(std::move(outTake)));
  }
  return vex::Data(std::move(outTakes));
}

/// The conformed value of one description entry (unchanged for keys outside the vocabulary).
vex::Result<vex::Data> ConformEntry(const std::string& name, const vex::Data& d) {
  if (const auto attr = lights::FindLightAttribute(name)) return ConformLight(d, lights::Info(*attr).type, name);
  if (name == key::kObjectType) return ConformLight(d, ValueType::Id, name);
  if (name == key::kName) return ConformLight(d, ValueType::String, name);
  if (name == key::kMatrixIsGlobal) return ConformLight(d, ValueType::Bool, name);
  if (name == key::kPosition || name == key::kRotation || name == key::kScale) {
    if (const auto t = Triple(d)) return vex::Data(vex::Vector3d{(*t)[0], (*t)[1], (*t)[2]});
    return std::unexpected(ConformError(name, "a vector of three numbers", __LINE__));
  }
  if (name == key::kAnimation) return ConformAnimation(d, name);
  return d;
}

}  // namespace

// --- the components --------------------------------------------------------------------------------
namespace {

class GlobalUtilsImpl final : public vex::ComponentBase<vex::IGlobalUtils> {
 public:
  std::string_view ClassId() const override { return kGlobalUtilsClassId; }

  vex::Result<std::vector<vex::SceneObjectRef>> ConvertObjects(
      std::string_view nodeSpaceId, const std::vector<tessel::VEXObjectDescription>& descriptions,
      std::int32_t flags) override {
    VEX_ASSIGN(auto factory, vex::CreateAs<tessel::IVexObjectFactory>(lights::kFactoryClassId));
    std::vector<vex::SceneObjectRef> out;
    out.reserve(descriptions.size());
    for (const auto& description : descriptions) {
      VEX_ASSIGN(auto object, factory->Create(nodeSpaceId, description, flags));
      out.push_back(std::move(object));
    }
    return out;
  }

  vex::Result<void> ConformDescription(tessel::VEXObjectDescription& description) const override {
    for (std::size_t i = 0; i < description.data.Size(); ++i) {
      const std::string name = description.data.KeyAt(i);
      VEX_ASSIGN(vex::Data value, ConformEntry(name, description.data.ValueAt(i)));
      description.data.Set(name, std::move(value));
    }
    return {};
  }

  vex::Result<double> CVLightGetBaseIntensity(vex::ISceneObject* op) override {
    return lights::CVLightGetBaseIntensity(op);
  }

  vex::Result<void> CVLightConvertToUnit(vex::ISceneObject* op, std::int32_t targetUnits) override {
    return lights::CVLightConvertToUnit(op, targetUnits);
  }

  vex::Color ComputeColorTemperatureRGB(double temperature, bool normalize, double whiteTemperature) override {
    return lights::ComputeColorTemperatureRGB(temperature, normalize, whiteTemperature);
  }
};

class GlobalImportImpl final : public vex::ComponentBase<vex::IGlobalImport> {
 public:
  std::string_view ClassId() const override { return kGlobalImportClassId; }

  std::vector<std::string> FillDropdown() const override { return lights::ObjectClassRegistry::ObjectTypes(); }

  vex::Result<std::vector<vex::ISceneObject*>> ImportObjects(
      vex::IDocument& document, std::string_view nodeSpaceId,
      const std::vector<tessel::VEXObjectDescription>& descriptions, vex::ISceneObject* parent) override {
    if (parent != nullptr && parent->GetDocument() != &document)
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, "Illegal argument: the parent is not an object of the document");
    VEX_ASSIGN(auto utils, vex::CreateAs<vex::IGlobalUtils>(kGlobalUtilsClassId));
    VEX_ASSIGN(auto objects, utils->ConvertObjects(nodeSpaceId, descriptions, tessel::kCreateDefault));
    for (std::size_t i = 0; i < objects.size(); ++i) {
      const vex::Data* global = descriptions[i].data.Find(key::kMatrixIsGlobal);
      const auto* isGlobal = global != nullptr ? global->Get<bool>() : nullptr;
      if (parent == nullptr || isGlobal == nullptr || !*isGlobal) continue;
      vex::ISceneObject& object = *objects[i];
      const Transform local = RelativeToParent(parent, ObjectTransform(object));
      VEX_TRY(object.SetParameter(vex::kObjectRelativePosition, local.position));
      VEX_TRY(object.SetParameter(vex::kObjectRelativeRotation, local.rotation));
      VEX_TRY(object.SetParameter(vex::kObjectRelativeScale, local.scale));
    }
    std::vector<vex::ISceneObject*> inserted;
    inserted.reserve(objects.size());
    for (auto& object : objects) {
      VEX_ASSIGN(vex::ISceneObject * placed, document.InsertObject(std::move(object), parent));
      inserted.push_back(placed);
    }
    return inserted;
  }
};

struct GlobalImportUnit {
  static constexpr std::string_view kUnit = "globalimport_impl";
  GlobalImportUnit() {
    vex::DeclareClass(g_kelvo, kUnit, kGlobalImportClassId, vex::IGlobalImport::kInterfaceId, &CreateGlobalImport);
    vex::DeclareClass(g_kelvo, kUnit, kGlobalUtilsClassId, vex::IGlobalUtils::kInterfaceId, &CreateGlobalUtils);
  }
  ~GlobalImportUnit() { g_kelvo.Withdraw(kUnit); }
};

GlobalImportUnit s_globalImportUnit INTEROP_UNIT_PRIORITY(kGlobalImportUnitPriority);

}  // namespace

vex::Result<vex::ComponentRef> CreateGlobalImport() { return vex::MakeComponent<GlobalImportImpl>(); }
vex::Result<vex::ComponentRef> CreateGlobalUtils() { return vex::MakeComponent<GlobalUtilsImpl>(); }

}  // namespace interop::exchange
