// The host's tagged JSON values: {"<tag>": value} for the value types the scene file, the material
// file and the light descriptions share (bool and string bare; int32, int64, float64, id, vector2,
// vector, vector4, color, colora tagged), written and read in one place. The parameter-set JSON
// names a constant's type beside its value ({"type": "Color", "value": [r, g, b]}): its values are
// the same untagged JSON, read and written here too. The files' own structures (arrays,
// dictionaries, custom data, their keys) stay with each file; this unit gives them the numbers,
// the tags and the messages ("<file>: <where>: <problem>").
//
// This header includes the JSON library; only the host's own units include it.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "vex/data.h"
#include "vex/error.h"
#include "vex/host.h"
#include "vex/material.h"

namespace host::json_codec {

using Json = nlohmann::ordered_json;

// --- writing -------------------------------------------------------------------------------------

/// A value that cannot be written: WrongDataType, "<where>: <problem>".
vex::Error WriteError(const std::string& where, const std::string& problem);
/// A finite number; a number that is not finite cannot be saved.
vex::Result<Json> Number(double value, const std::string& where);
vex::Result<Json> Numbers(std::initializer_list<double> values, const std::string& where);
/// {"<tag>": value}.
Json Tagged(std::string_view tag, Json value);
/// The tag of a value of the shared types ("bool" and "string" for the bare ones); empty for
/// another type.
std::string_view TagOf(const vex::Data& data);
/// The JSON of a value of the shared types without its tag (a number, a string, true or false, an
/// array of numbers); nullopt for another type. A number that is not finite is written as the
/// JSON library writes it (null); the files that must not hold one check with EncodeScalar.
std::optional<Json> Untagged(const vex::Data& data);
/// A material constant's value as the parameter sets write it: untagged, an unsigned number as a
/// number, a URL, C string or interned id as its text.
Json EncodeConstant(const vex::PackedConstantParameter& constant);
/// The JSON of a value of the shared types (bool and string bare, the others tagged); nullopt for
/// another type (arrays, dictionaries, custom data), which the caller writes itself.
std::optional<vex::Result<Json>> EncodeScalar(const vex::Data& data, const std::string& where);

// --- reading -------------------------------------------------------------------------------------

/// The one place text becomes JSON. IllegalArgument "<source>: not a JSON document" when it is not.
vex::Result<Json> Parse(std::string_view text, const std::string& source);

/// Reads values of one file; every failure is IllegalArgument "<source>: <where>: <problem>".
struct Decoder {
  const std::string& source;

  vex::Error Fail(const std::string& where, const std::string& problem) const;
  vex::Result<void> Keys(const Json& v, std::initializer_list<std::string_view> allowed, const std::string& where) const;
  vex::Result<double> Float(const Json& v, const std::string& where) const;
  vex::Result<std::vector<double>> Floats(const Json& v, std::size_t n, const std::string& where) const;
  vex::Result<std::int64_t> Integer(const Json& v, std::int64_t lo, std::int64_t hi, const std::string& where) const;
  vex::Result<std::string> String(const Json& v, const std::string& where) const;
  /// The value of `v` under one of the shared tags; nullopt for another tag.
  std::optional<vex::Result<vex::Data>> Scalar(std::string_view tag, const Json& v, const std::string& where) const;
  /// A material constant of `type` from its untagged value; `ids` interns an InternedId (an
  /// error without it).
  vex::Result<vex::PackedConstantParameter> Constant(vex::ConstantType type, const Json& v, const std::string& where,
                                                     vex::IIdTable* ids) const;
};

}  // namespace host::json_codec
