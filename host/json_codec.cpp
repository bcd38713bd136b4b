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

std::optional<vex::Result<Json>> EncodeScalar(const vex::Data& data, const std::string& where) {
  const auto tagged = [](std::string_view tag, vex::Result<Json> value) -> vex::Result<Json> {
    if (!value) return value;
    return Tagged(tag, std::move(*value));
  };
  const auto& v = data.value;
  if (const auto* b = std::get_if<bool>(&v)) return vex::Result<Json>(Json(*b));
  if (const auto* s = std::get_if<std::string>(&v)) return vex::Result<Json>(Json(*s));
  if (const auto* n = std::get_if<std::int32_t>(&v)) return tagged("int32", Json(*n));
  if (const auto* n = std::get_if<std::int64_t>(&v)) return tagged("int64", Json(*n));
  if (const auto* f = std::get_if<double>(&v)) return tagged("float64", Number(*f, where));
  if (const auto* id = std::get_if<vex::Id>(&v)) return tagged("id", Json(id->Str()));
  if (const auto* p = std::get_if<vex::Vector2d>(&v)) return tagged("vector2", Numbers({p->x, p->y}, where));
  if (const auto* p = std::get_if<vex::Vector3d>(&v)) return tagged("vector", Numbers({p->x, p->y, p->z}, where));
  if (const auto* p = std::get_if<vex::Vector4d>(&v)) return tagged("vector4", Numbers({p->x, p->y, p->z, p->w}, where));
  if (const auto* c = std::get_if<vex::Color>(&v)) return tagged("color", Numbers({c->r, c->g, c->b}, where));
  if (const auto* c = std::get_if<vex::ColorA>(&v)) return tagged("colora", Numbers({c->r, c->g, c->b, c->a}, where));
  return std::nullopt;
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

}  // namespace host::json_codec
