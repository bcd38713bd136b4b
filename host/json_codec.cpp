#include "host/json_codec.h"
#include "host/input_files.h"
#include "host/json_text.h"

#include <cmath>
#include <limits>

namespace host::json_codec {

vex::Error WriteError(const std::string& where, const std::string& problem) {
  return vex::MakeError(vex::ErrorKind::WrongDataType, where + ": " + problem, VEX_UNIT, __LINE__);
}

vex::Result<Json> Number(double value, const std::string& where) {
  if (!std::isfinite(value))
    return std::unexpected(WriteError(where, "a number that is not finite cannot be saved"));
  return Json(value);
}

vex::Result<Json> Numbers(std::initializer_list<double> values, const std::string& where) {
  Json out = Json::array();
  for (const double v : values) {
    VEX_ASSIGN(Json n, Number(v, where));
    out.push_back(std::move(n));
  }
  return out;
}

Json Tagged(std::string_view tag, Json value) {
  Json out = Json::object();
  out[std::string(tag)] = std::move(value);
  return out;
}

std::string_view TagOf(const vex::Data& data) {
  return std::visit(
      []<class T>(const T&) -> std::string_view {
        if constexpr (std::is_same_v<T, bool>) return "bool";
        else if constexpr (std::is_same_v<T, std::string>) return "string";
        else if constexpr (std::is_same_v<T, std::int32_t>) return "int32";
        else if constexpr (std::is_same_v<T, std::int64_t>) return "int64";
        else if constexpr (std::is_same_v<T, double>) return "float64";
        else if constexpr (std::is_same_v<T, vex::Id>) return "id";
        else if constexpr (std::is_same_v<T, vex::Vector2d>) return "vector2";
        else if constexpr (std::is_same_v<T, vex::Vector3d>) return "vector";
        else if constexpr (std::is_same_v<T, vex::Vector4d>) return "vector4";
        else if constexpr (std::is_same_v<T, vex::Color>) return "color";
        else if constexpr (std::is_same_v<T, vex::ColorA>) return "colora";
        else return {};
      },
      data.value);
}

std::optional<Json> Untagged(const vex::Data& data) {
  const auto& v = data.value;
  if (const auto* b = std::get_if<bool>(&v)) return Json(*b);
  if (const auto* s = std::get_if<std::string>(&v)) return Json(*s);
  if (const auto* n = std::get_if<std::int32_t>(&v)) return Json(*n);
  if (const auto* n = std::get_if<std::int64_t>(&v)) return Json(*n);
  if (const auto* f = std::get_if<double>(&v)) return Json(*f);
  if (const auto* id = std::get_if<vex::Id>(&v)) return Json(id->Str());
  if (const auto* p = std::get_if<vex::Vector2d>(&v)) return Json::array({p->x, p->y});
  if (const auto* p = std::get_if<vex::Vector3d>(&v)) return Json::array({p->x, p->y, p->z});
  if (const auto* p = std::get_if<vex::Vector4d>(&v)) return Json::array({p->x, p->y, p->z, p->w});
  if (const auto* c = std::get_if<vex::Color>(&v)) return Json::array({c->r, c->g, c->b});
  if (const auto* c = std::get_if<vex::ColorA>(&v)) return Json::array({c->r, c->g, c->b, c->a});
  return std::nullopt;
}

std::optional<vex::Result<Json>> EncodeScalar(const vex::Data& data, const std::string& where) {
  const std::string_view tag = TagOf(data);
  auto value = Untagged(data);
  if (tag.empty() || !value) return std::nullopt;
  const auto finite = [](const Json& n) { return !n.is_number_float() || std::isfinite(n.get<double>()); };
  bool allFinite = finite(*value);
  if (value->is_array())
    for (const auto& n : *value) allFinite = allFinite && finite(n);
  if (!allFinite) return vex::Result<Json>(std::unexpected(WriteError(where, "a number that is not finite cannot be saved")));
  if (tag == "bool" || tag == "string") return vex::Result<Json>(std::move(*value));
  return vex::Result<Json>(Tagged(tag, std::move(*value)));
}

Json EncodeConstant(const vex::PackedConstantParameter& constant) {
  return std::visit(
      []<class T>(const T& v) -> Json {
        if constexpr (std::is_same_v<T, std::uint32_t>) return Json(v);
        else if constexpr (std::is_same_v<T, vex::Url> || std::is_same_v<T, vex::CString>) return Json(v.text);
        else if constexpr (std::is_same_v<T, vex::InternedId>) return Json(v.Str());
        else return *Untagged(vex::Data(v));
      },
      constant.Value());
}

vex::Result<Json> Parse(std::string_view text, const std::string& source) {
  return ParseJsonText(text, source);
}

vex::Error Decoder::Fail(const std::string& where, const std::string& problem) const {
  return vex::MakeError(vex::ErrorKind::IllegalArgument, source + ": " + Shortened(where) + ": " + problem, VEX_UNIT, __LINE__);
}

vex::Result<void> Decoder::Keys(const Json& v, std::initializer_list<std::string_view> allowed,
                                const std::string& where) const {
  if (!v.is_object()) return std::unexpected(Fail(where, "expected an object"));
  for (const auto& [k, e] : v.items()) {
    (void)e;
    bool known = false;
    for (const auto a : allowed) known = known || k == a;
    if (!known) return std::unexpected(Fail(where.empty() ? k : where + "." + k, "unknown key"));
  }
  return {};
}

vex::Result<double> Decoder::Float(const Json& v, const std::string& where) const {
  if (!v.is_number()) return std::unexpected(Fail(where, "expected a number"));
  return v.get<double>();
}

vex::Result<std::vector<double>> Decoder::Floats(const Json& v, std::size_t n, const std::string& where) const {
  if (!v.is_array() || v.size() != n)
    return std::unexpected(Fail(where, "expected an array of " + std::to_string(n) + " numbers"));
  std::vector<double> out;
  for (const auto& e : v) {
    VEX_ASSIGN(double f, Float(e, where));
    out.push_back(f);
  }
  return out;
}

vex::Result<std::int64_t> Decoder::Integer(const Json& v, std::int64_t lo, std::int64_t hi,
                                           const std::string& where) const {
  if (!v.is_number_integer()) return std::unexpected(Fail(where, "expected a whole number"));
  if (v.is_number_unsigned() && v.get<std::uint64_t>() > static_cast<std::uint64_t>(hi))
    return std::unexpected(Fail(where, "number out of range"));
  const auto n = v.get<std::int64_t>();
  if (n < lo || n > hi) return std::unexpected(Fail(where, "number out of range"));
  return n;
}

vex::Result<std::string> Decoder::String(const Json& v, const std::string& where) const {
  if (!v.is_string()) return std::unexpected(Fail(where, "expected a string"));
  return v.get<std::string>();
}

std::optional<vex::Result<vex::Data>> Decoder::Scalar(std::string_view tag, const Json& v,
                                                      const std::string& where) const {
  using R = vex::Result<vex::Data>;
  const auto floats = [&](std::size_t n) { return Floats(v, n, where); };
  if (tag == "bool") {
    if (!v.is_boolean()) return R(std::unexpected(Fail(where, "expected true or false")));
    return R(vex::Data(v.get<bool>()));
  }
  if (tag == "int32") {
    auto n = Integer(v, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max(), where);
    if (!n) return R(std::unexpected(n.error()));
    return R(vex::Data(static_cast<std::int32_t>(*n)));
  }
  if (tag == "int64") {
    auto n = Integer(v, std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max(), where);
    if (!n) return R(std::unexpected(n.error()));
    return R(vex::Data(*n));
  }
  if (tag == "float64") {
    auto f = Float(v, where);
    if (!f) return R(std::unexpected(f.error()));
    return R(vex::Data(*f));
  }
  if (tag == "string" || tag == "id") {
    auto s = String(v, where);
    if (!s) return R(std::unexpected(s.error()));
    if (tag == "id") return R(vex::Data(vex::Id(std::move(*s))));
    return R(vex::Data(std::move(*s)));
  }
  const struct {
    std::string_view tag;
    std::size_t n;
  } kTuples[] = {{"vector2", 2}, {"vector", 3}, {"vector4", 4}, {"color", 3}, {"colora", 4}};
  for (const auto& t : kTuples) {
    if (tag != t.tag) continue;
    auto f = floats(t.n);
    if (!f) return R(std::unexpected(f.error()));
    const auto& x = *f;
    if (tag == "vector2") return R(vex::Data(vex::Vector2d{x[0], x[1]}));
    if (tag == "vector") return R(vex::Data(vex::Vector3d{x[0], x[1], x[2]}));
    if (tag == "vector4") return R(vex::Data(vex::Vector4d{x[0], x[1], x[2], x[3]}));
    if (tag == "color") return R(vex::Data(vex::Color{x[0], x[1], x[2]}));
    return R(vex::Data(vex::ColorA{x[0], x[1], x[2], x[3]}));
  }
  return std::nullopt;
}

vex::Result<vex::PackedConstantParameter> Decoder::Constant(vex::ConstantType type, const Json& v,
                                                            const std::string& where, vex::IIdTable* ids) const {
  using T = vex::ConstantType;
  const auto scalar = [&](std::string_view tag) -> vex::Result<vex::Data> { return *Scalar(tag, v, where); };
  switch (type) {
    case T::Bool: {
      VEX_ASSIGN(vex::Data d, scalar("bool"));
      return vex::PackedConstantParameter(*d.Get<bool>());
    }
    case T::Int: {
      VEX_ASSIGN(vex::Data d, scalar("int32"));
      return vex::PackedConstantParameter(*d.Get<std::int32_t>());
    }
    case T::UInt: {
      VEX_ASSIGN(const std::int64_t n, Integer(v, 0, std::numeric_limits<std::uint32_t>::max(), where));
      return vex::PackedConstantParameter(static_cast<std::uint32_t>(n));
    }
    case T::Float: {
      VEX_ASSIGN(vex::Data d, scalar("float64"));
      return vex::PackedConstantParameter(*d.Get<double>());
    }
    case T::Vector2d: {
      VEX_ASSIGN(vex::Data d, scalar("vector2"));
      return vex::PackedConstantParameter(*d.Get<vex::Vector2d>());
    }
    case T::Vector: {
      VEX_ASSIGN(vex::Data d, scalar("vector"));
      return vex::PackedConstantParameter(*d.Get<vex::Vector3d>());
    }
    case T::Vector4d: {
      VEX_ASSIGN(vex::Data d, scalar("vector4"));
      return vex::PackedConstantParameter(*d.Get<vex::Vector4d>());
    }
    case T::Color: {
      VEX_ASSIGN(vex::Data d, scalar("color"));
      return vex::PackedConstantParameter(*d.Get<vex::Color>());
    }
    case T::ColorA: {
      VEX_ASSIGN(vex::Data d, scalar("colora"));
      return vex::PackedConstantParameter(*d.Get<vex::ColorA>());
    }
    case T::Url:
    case T::String:
    case T::Id:
    case T::InternedId:
    case T::CString:
      break;
  }
  VEX_ASSIGN(std::string s, String(v, where));
  switch (type) {
    case T::Url: return vex::PackedConstantParameter(vex::Url{std::move(s)});
    case T::Id: return vex::PackedConstantParameter(vex::Id(std::move(s)));
    case T::CString: return vex::PackedConstantParameter(vex::CString{std::move(s)});
    case T::InternedId:
      if (ids == nullptr) return std::unexpected(Fail(where, "interned ids need the host's id table"));
      return vex::PackedConstantParameter(ids->Intern(s));
    default: return vex::PackedConstantParameter(std::move(s));
  }
}

}  // namespace host::json_codec
