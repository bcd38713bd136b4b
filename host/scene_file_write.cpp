// Writing the scene file: the document walked into a stream through a buffer (docs/scene-file.md,
// "Large scenes").
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <fstream>
#include <ostream>
#include <sstream>

#include "host/input_files.h"
#include "host/json_codec.h"
#include "host/json_text.h"
#include "host/material_file.h"
#include "host/materials.h"
#include "host/polygon_object.h"
#include "host/scene_file.h"
#include "host/staged_output.h"
#include "vex/polygon.h"

using Json = host::json_codec::Json;

namespace host::scene_file {
namespace {

// --- writing -----------------------------------------------------------------------------------

using json_codec::WriteError;

bool Finite(double v) { return std::isfinite(v); }

/// The text of a document as the document is walked, through a buffer into a stream: the layout
/// of the JSON library's indented output (two spaces a level) for the structure and the small
/// values, and the geometry arrays formatted straight into the buffer, one row (a point, a
/// polygon, a normal, a texture coordinate, an animation key) per line.
class Writer {
 public:
  explicit Writer(std::ostream& out) : out_(out) { buffer_.reserve(kFlushAt + 1024); }

  /// Writes what is buffered; false when the stream failed.
  bool Flush() {
    out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    buffer_.clear();
    return static_cast<bool>(out_);
  }

  void Open(char bracket) {
    buffer_ += bracket;
    open_.push_back(false);
  }
  void Close(char bracket) {
    const bool any = open_.back();
    open_.pop_back();
    if (any) {
      buffer_ += '\n';
      Indent();
    }
    buffer_ += bracket;
  }
  /// The next member of the open object.
  void Key(std::string_view key) {
    Next();
    if (IsPlain(key)) {
      buffer_ += '"';
      buffer_ += key;
      buffer_ += '"';
    } else {
      buffer_ += DumpJsonText(Json(std::string(key)));
    }
    buffer_ += ": ";
  }
  /// The next element of the open array.
  void Element() { Next(); }
  void Raw(std::string_view text) { buffer_ += text; }
  /// A value of a few lines through the JSON library, indented to where it stands.
  void Small(const Json& value) {
    const std::string text = DumpJsonText(value, 2);
    std::size_t from = 0;
    for (std::size_t nl = text.find('\n'); nl != std::string::npos; nl = text.find('\n', from)) {
      buffer_.append(text, from, nl + 1 - from);
      Indent();
      from = nl + 1;
    }
    buffer_.append(text, from);
    MaybeFlush();
  }

  vex::Result<void> Container(const vex::ParamContainer& container, const std::string& where) {
    Open('{');
    for (const auto& [id, value] : container.Entries()) {
      const std::string key = std::to_string(id);
      Key(key);
      VEX_TRY(Value(value, where + "." + key));
    }
    Close('}');
    return {};
  }

  vex::Result<void> Value(const vex::Data& data, const std::string& where) {
    if (auto scalar = json_codec::EncodeScalar(data, where)) {
      if (!*scalar) return std::unexpected(std::move(*scalar).error());
      Small(**scalar);
      return {};
    }
    const auto& v = data.value;
    if (const auto* a = std::get_if<vex::DataArray>(&v)) {
      Open('{');
      Key("array");
      Open('[');
      for (std::size_t i = 0; i < a->size(); ++i) {
        Element();
        VEX_TRY(Value((*a)[i], where + "[" + std::to_string(i) + "]"));
      }
      Close(']');
      Close('}');
      return {};
    }
    if (const auto* d = std::get_if<vex::DataDictionary>(&v)) {
      Open('{');
      Key("dictionary");
      Open('{');
      for (std::size_t i = 0; i < d->Size(); ++i) {
        Key(d->KeyAt(i));
        VEX_TRY(Value(d->ValueAt(i), where + "." + d->KeyAt(i)));
      }
      Close('}');
      Close('}');
      return {};
    }
    if (const auto* u = data.Get<vex::UnitScale>()) {
      VEX_ASSIGN(Json metres, json_codec::Number(u->metresPerUnit, where));
      Small(json_codec::Tagged("unitscale", Json{{"unit", u->unit}, {"metresPerUnit", std::move(metres)}}));
      return {};
    }
    if (const auto* image = data.Get<vex::ImageReference>()) {
      Json out{{"url", image->url.text}};
      if (!image->colorSpace.empty()) out["colorSpace"] = image->colorSpace;
      if (!image->bakePort.empty()) out["bakePort"] = image->bakePort;
      Small(json_codec::Tagged("image", std::move(out)));
      return {};
    }
    if (const auto* mesh = data.Get<vex::PolygonMesh>()) return Mesh(*mesh, where);
    if (const auto* attributes = data.Get<PolygonAttributes>()) return Attributes(*attributes, where);
    if (!data.CustomTypeId().empty())
      return std::unexpected(WriteError(where, "custom data " + std::string(data.CustomTypeId()) + " cannot be saved"));
    if (data.IsEmpty()) return std::unexpected(WriteError(where, "an empty value cannot be saved"));
    return std::unexpected(WriteError(where, "an interned id cannot be saved"));
  }

  /// {"polygonmesh": {"points": [[x, y, z], ..], "polygons": [[i, j, k, ..], ..]}}
  vex::Result<void> Mesh(const vex::PolygonMesh& mesh, const std::string& where) {
    Open('{');
    Key("polygonmesh");
    Open('{');
    Key("points");
    VEX_TRY(Rows(mesh.points, where + ".points"));
    Key("polygons");
    Open('[');
    std::size_t corner = 0;
    for (const std::int32_t size : mesh.polygonSizes) {
      Element();
      buffer_ += '[';
      for (std::int32_t k = 0; k < size && corner < mesh.polygonPoints.size(); ++k) {
        if (k > 0) buffer_ += ", ";
        Whole(mesh.polygonPoints[corner++]);
      }
      buffer_ += ']';
      MaybeFlush();
    }
    Close(']');
    Close('}');
    Close('}');
    return {};
  }

  /// {"polygonattributes": {"normals": [..], "uvs": [..], "materials": [..], "materialNames": [..]}},
  /// each list only when the object has it; material indices 32 to a line.
  vex::Result<void> Attributes(const PolygonAttributes& attributes, const std::string& where) {
    Open('{');
    Key("polygonattributes");
    Open('{');
    if (!attributes.normals.empty()) {
      Key("normals");
      VEX_TRY(Rows(attributes.normals, where + ".normals"));
    }
    if (!attributes.uvs.empty()) {
      Key("uvs");
      VEX_TRY(Rows(attributes.uvs, where + ".uvs"));
    }
    if (!attributes.materials.empty()) {
      Key("materials");
      Open('[');
      for (std::size_t i = 0; i < attributes.materials.size(); ++i) {
        if (i % 32 == 0)
          Element();
        else
          buffer_ += ", ";
        Whole(attributes.materials[i]);
        MaybeFlush();
      }
      Close(']');
    }
    if (!attributes.materialNames.empty()) {
      Key("materialNames");
      Small(Json(attributes.materialNames));
    }
    Close('}');
    Close('}');
    return {};
  }

  /// [[time, value], ..]: the keys of a track.
  vex::Result<void> Keys(const std::vector<vex::AnimationKey>& keys, const std::string& where) {
    Open('[');
    for (const auto& k : keys) {
      if (!Finite(k.time) || !Finite(k.value)) return std::unexpected(NotFinite(where));
      Element();
      Row({k.time, k.value});
    }
    Close(']');
    return {};
  }

 private:
  static constexpr std::size_t kFlushAt = std::size_t{1} << 16;

  static vex::Error NotFinite(const std::string& where) {
    return WriteError(where, "a number that is not finite cannot be saved");
  }

  /// Keys that need no escaping: printable ASCII without quotes or backslashes.
  static bool IsPlain(std::string_view key) {
    for (const char c : key)
      if (c < 0x20 || c > 0x7E || c == '"' || c == '\\') return false;
    return true;
  }

  void Next() {
    if (open_.back()) buffer_ += ',';
    open_.back() = true;
    buffer_ += '\n';
    Indent();
  }
  void Indent() {
    static const std::string kSpaces(256, ' ');
    for (std::size_t n = 2 * open_.size(); n > 0;) {
      const std::size_t k = std::min(n, kSpaces.size());
      buffer_.append(kSpaces, 0, k);
      n -= k;
    }
  }
  void MaybeFlush() {
    if (buffer_.size() >= kFlushAt) Flush();
  }

  /// The shortest text that reads back as the same double, with ".0" when it would read as a
  /// whole number (as the JSON library writes doubles: -0.0 keeps its sign). At most 26 bytes.
  static char* Number(char* at, double v) {
    char* end = std::to_chars(at, at + 26, v).ptr;
    if (std::find_if(at, end, [](char c) { return c == '.' || c == 'e'; }) == end) {
      *end++ = '.';
      *end++ = '0';
    }
    return end;
  }
  void Whole(std::int32_t v) {
    char text[16];
    buffer_.append(text, std::to_chars(text, text + sizeof text, v).ptr);
  }
  /// [a, b, ..] of up to four numbers, formatted in place and appended at once.
  void Row(std::initializer_list<double> values) {
    char text[4 * 28 + 2];
    char* at = text;
    *at++ = '[';
    for (const double v : values) {
      if (at != text + 1) *at++ = ',', *at++ = ' ';
      at = Number(at, v);
    }
    *at++ = ']';
    buffer_.append(text, at);
    MaybeFlush();
  }

  vex::Result<void> Rows(const std::vector<vex::Vector3d>& rows, const std::string& where) {
    Open('[');
    for (const auto& p : rows) {
      if (!Finite(p.x) || !Finite(p.y) || !Finite(p.z)) return std::unexpected(NotFinite(where));
      Element();
      Row({p.x, p.y, p.z});
    }
    Close(']');
    return {};
  }
  vex::Result<void> Rows(const std::vector<vex::Vector2d>& rows, const std::string& where) {
    Open('[');
    for (const auto& p : rows) {
      if (!Finite(p.x) || !Finite(p.y)) return std::unexpected(NotFinite(where));
      Element();
      Row({p.x, p.y});
    }
    Close(']');
    return {};
  }

  std::ostream& out_;
  std::string buffer_;
  std::vector<bool> open_;  ///< per open bracket: whether it has an element yet
};

vex::Result<void> WriteObject(Writer& w, const SceneObject& object, const std::string& where) {
  w.Open('{');
  w.Key("type");
  w.Small(object.GetType());
  w.Key("name");
  w.Small(object.GetName());
  w.Key("parameters");
  VEX_TRY(w.Container(object.Parameters(), where + ".parameters"));
  const auto tracks = object.GetTracks();
  if (!tracks.empty()) {
    w.Key("tracks");
    w.Open('[');
    for (const auto& t : tracks) {
      w.Element();
      w.Open('{');
      w.Key("parameter");
      w.Small(t.id.parameter);
      w.Key("component");
      w.Small(t.id.component);
      w.Key("keys");
      VEX_TRY(w.Keys(t.keys, where + ".tracks"));
      w.Close('}');
    }
    w.Close(']');
  }
  if (!object.Children().empty()) {
    w.Key("children");
    w.Open('[');
    for (std::size_t i = 0; i < object.Children().size(); ++i) {
      w.Element();
      VEX_TRY(WriteObject(w, *object.Children()[i], where + ".children[" + std::to_string(i) + "]"));
    }
    w.Close(']');
  }
  w.Close('}');
  return {};
}

vex::Result<void> WriteDocument(Writer& w, const Document& document) {
  w.Open('{');
  w.Key("format");
  w.Small("vexon-scene");
  w.Key("version");
  w.Small(kVersion);
  w.Key("name");
  w.Small(document.GetName());
  w.Key("settings");
  VEX_TRY(w.Container(document.Settings(), "settings"));
  w.Key("data");
  VEX_TRY(w.Container(document.GetDataContainer(), "data"));
  w.Key("renderData");
  w.Open('[');
  for (std::size_t i = 0; i < document.RenderSettings().size(); ++i) {
    const auto& r = document.RenderSettings()[i];
    const std::string at = "renderData[" + std::to_string(i) + "]";
    w.Element();
    w.Open('{');
    w.Key("name");
    w.Small(r.name);
    w.Key("active");
    w.Small(static_cast<int>(i) == document.ActiveRenderIndex());
    w.Key("settings");
    VEX_TRY(w.Container(r.settings, at + ".settings"));
    w.Key("postEffects");
    w.Open('[');
    for (std::size_t e = 0; e < r.postEffects.size(); ++e) {
      w.Element();
      w.Open('{');
      w.Key("type");
      w.Small(r.postEffects[e].type);
      w.Key("parameters");
      VEX_TRY(w.Container(r.postEffects[e].parameters, at + ".postEffects[" + std::to_string(e) + "].parameters"));
      w.Close('}');
    }
    w.Close(']');
    w.Close('}');
  }
  w.Close(']');
  w.Key("objects");
  w.Open('[');
  for (std::size_t i = 0; i < document.Objects().size(); ++i) {
    w.Element();
    VEX_TRY(WriteObject(w, *document.Objects()[i], "objects[" + std::to_string(i) + "]"));
  }
  w.Close(']');
  if (const auto* materials = document.MaterialsIfAny(); materials != nullptr && !materials->IsEmpty()) {
    VEX_ASSIGN(auto sections, material_file::Write(document));
    VEX_ASSIGN(Json assets, json_codec::Parse(sections.assets, document.GetName()));
    VEX_ASSIGN(Json list, json_codec::Parse(sections.materials, document.GetName()));
    w.Key("substanceAssets");
    w.Small(assets);
    w.Key("materials");
    w.Small(list);
  }
  w.Close('}');
  w.Raw("\n");
  return {};
}

}  // namespace

vex::Result<void> Write(const Document& document, std::ostream& out) {
  Writer writer(out);
  VEX_TRY(WriteDocument(writer, document));
  if (!writer.Flush()) return VEX_FAIL(vex::ErrorKind::FileIO, "cannot write");
  return {};
}

vex::Result<std::string> Dump(const Document& document) {
  std::ostringstream out;
  VEX_TRY(Write(document, out));
  return std::move(out).str();
}

vex::Result<void> WriteFile(const Document& document, const std::string& path, const std::string& target) {
  errno = 0;
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) return VEX_FAIL(vex::ErrorKind::FileIO, target + ": cannot write: " + OsErrorText(errno));
  if (auto written = Write(document, out); !written) {
    vex::Error error = std::move(written).error();
    error.message = target + ": " + (error.kind == vex::ErrorKind::FileIO ? error.message + ": " + OsErrorText(errno)
                                                                        : error.message);
    return std::unexpected(std::move(error));
  }
  out.close();
  if (!out) return VEX_FAIL(vex::ErrorKind::FileIO, target + ": cannot write: " + OsErrorText(errno));
  return {};
}

vex::Result<void> Save(const Document& document, const std::string& path) {
  StagedOutput staged(/*createParents=*/false);
  VEX_ASSIGN(const std::size_t id, staged.Stage(path, StagedOutput::Kind::File));
  VEX_TRY(WriteFile(document, staged.Scratch(id), path));
  return staged.Commit(id);
}

}  // namespace host::scene_file
