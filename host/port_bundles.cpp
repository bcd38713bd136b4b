#include "host/port_bundles.h"

#include <nlohmann/json.hpp>

extern const char kInteropPortBundlesJson[];

namespace host {
namespace {

using Json = nlohmann::ordered_json;

vex::Result<vex::PackedConstantParameter> DefaultValue(vex::ConstantType type, const Json& v) {
  auto nums = [&](std::size_t n) -> std::vector<double> {
    std::vector<double> out;
    if (v.is_array() && v.size() == n)
      for (const auto& e : v) out.push_back(e.is_number() ? e.get<double>() : 0.0);
    return out;
  };
  using T = vex::ConstantType;
  switch (type) {
    case T::Bool:
      if (v.is_boolean()) return vex::PackedConstantParameter(v.get<bool>());
      break;
    case T::Int:
      if (v.is_number_integer()) return vex::PackedConstantParameter(v.get<std::int32_t>());
      break;
    case T::UInt:
      if (v.is_number_unsigned()) return vex::PackedConstantParameter(v.get<std::uint32_t>());
      break;
    case T::Float:
      if (v.is_number()) return vex::PackedConstantParameter(v.get<double>());
      break;
    case T::Vector2d:
      if (auto n = nums(2); !n.empty()) return vex::PackedConstantParameter(vex::Vector2d{n[0], n[1]});
      break;
    case T::Vector:
      if (auto n = nums(3); !n.empty()) return vex::PackedConstantParameter(vex::Vector3d{n[0], n[1], n[2]});
      break;
    case T::Vector4d:
      if (auto n = nums(4); !n.empty()) return vex::PackedConstantParameter(vex::Vector4d{n[0], n[1], n[2], n[3]});
      break;
    case T::Color:
      if (auto n = nums(3); !n.empty()) return vex::PackedConstantParameter(vex::Color{n[0], n[1], n[2]});
      break;
    case T::ColorA:
      if (auto n = nums(4); !n.empty()) return vex::PackedConstantParameter(vex::ColorA{n[0], n[1], n[2], n[3]});
      break;
    case T::String:
      if (v.is_string()) return vex::PackedConstantParameter(v.get<std::string>());
      break;
    case T::Url:
      if (v.is_string()) return vex::PackedConstantParameter(vex::Url{v.get<std::string>()});
      break;
    case T::Id:
      if (v.is_string()) return vex::PackedConstantParameter(vex::Id(v.get<std::string>()));
      break;
    case T::CString:
      if (v.is_string()) return vex::PackedConstantParameter(vex::CString{v.get<std::string>()});
      break;
    case T::InternedId:
      break;  // interned defaults would need the id table before it exists
  }
  return VEX_FAIL(vex::ErrorKind::WrongDataType,
                  "default does not fit type " + std::string(vex::ConstantTypeName(type)));
}

}  // namespace

vex::Result<PortBundles> PortBundles::Parse(std::string_view text, const std::string& source) {
  const Json root = Json::parse(text, nullptr, false);
  if (root.is_discarded() || !root.is_object())
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, source + ": not a JSON object of port bundles");
  PortBundles out;
  for (const auto& [id, body] : root.items()) {
    vex::PortBundle bundle;
    bundle.id = vex::Id(id);
    bundle.defaults = vex::ParameterSet(vex::Id(id));
    bundle.name = body.value("name", id);
    if (!body.contains("ports") || !body["ports"].is_array())
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, source + ": " + id + ": missing \"ports\"");
    for (const auto& p : body["ports"]) {
      vex::PortDeclaration declared;
      declared.name = p.value("name", "");
      const auto type = vex::ConstantTypeFromName(p.value("type", ""));
      if (declared.name.empty() || !type)
        return VEX_FAIL(vex::ErrorKind::IllegalArgument, source + ": " + id + ": port without name or known type");
      declared.type = *type;
      declared.texturable = p.value("texturable", false);
      declared.color = p.value("color", false);
      declared.help = p.value("help", "");
      if (p.contains("default")) {
        auto value = DefaultValue(declared.type, p["default"]);
        if (!value)
          return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                          source + ": " + id + "." + declared.name + ": " + value.error().message);
        bundle.defaults.Set(declared.name, vex::Parameter(*value));
      }
      bundle.ports.push_back(std::move(declared));
    }
    out.bundles_.push_back(std::move(bundle));
  }
  return out;
}

vex::Result<PortBundles> PortBundles::Builtin() { return Parse(kInteropPortBundlesJson, "port_bundles.json"); }

vex::Result<const vex::PortBundle*> PortBundles::Find(std::string_view bundleId) const {
  for (const auto& b : bundles_)
    if (b.id == bundleId) return &b;
  return VEX_FAIL(vex::ErrorKind::NotFound, "Unknown port bundle: " + std::string(bundleId));
}

std::vector<std::string> PortBundles::Ids() const {
  std::vector<std::string> ids;
  for (const auto& b : bundles_) ids.push_back(b.id.Str());
  return ids;
}

}  // namespace host
