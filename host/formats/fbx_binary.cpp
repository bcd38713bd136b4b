#include "host/formats/fbx_binary.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <type_traits>

#include <libdeflate.h>
#include <zlib.h>

static_assert(std::endian::native == std::endian::little, "the FBX encoder writes the host's byte order");

namespace host::formats::fbx {
namespace {

constexpr std::string_view kMagic{"Kaydara FBX Binary  \x00\x1a\x00", 23};
constexpr std::size_t kNullRecord = 13;  // three 32-bit offsets and a name length, all zero
// The footer's fixed patterns: the id that follows the records and the closing magic.
constexpr std::array<std::uint8_t, 16> kFooterId = {0xfa, 0xbc, 0xab, 0x09, 0xd0, 0xc8, 0xd4, 0x66,
                                                    0xb1, 0x76, 0xfb, 0x83, 0x1c, 0xf7, 0x26, 0x7e};
constexpr std::array<std::uint8_t, 16> kFooterMagic = {0xf8, 0x5a, 0x8c, 0x6a, 0xde, 0xf5, 0xd9, 0x7e,
                                                       0xec, 0xe9, 0x0c, 0xe3, 0x75, 0x8f, 0x29, 0x0b};

// Where the encoder's bytes go: a string (EncodeBinary) or a file through a buffer (WriteBinary).
// A record's end offset and property sizes are known only after its contents, so a sink can patch
// four bytes it has already taken.
struct StringSink {
  std::string& out;
  std::size_t Tell() const { return out.size(); }
  void Append(const char* data, std::size_t size) { out.append(data, size); }
  void Patch(std::size_t at, std::uint32_t value) { std::memcpy(out.data() + at, &value, 4); }
};

class FileSink {
 public:
  explicit FileSink(const std::string& path) : out_(path, std::ios::binary | std::ios::trunc) { buffer_.reserve(kBuffer); }
  bool Good() const { return static_cast<bool>(out_); }
  std::size_t Tell() const { return flushed_ + buffer_.size(); }
  void Append(const char* data, std::size_t size) {
    if (buffer_.size() + size > kBuffer) Flush();
    if (size < kBuffer) {
      buffer_.append(data, size);
      return;
    }
    out_.write(data, static_cast<std::streamsize>(size));  // large: straight to the file
    flushed_ += size;
  }
  void Patch(std::size_t at, std::uint32_t value) {
    if (at >= flushed_) {
      std::memcpy(buffer_.data() + (at - flushed_), &value, 4);
      return;
    }
    // Bytes already in the file: write over them and come back to the end.
    out_.seekp(static_cast<std::streamoff>(at));
    out_.write(reinterpret_cast<const char*>(&value), 4);
    out_.seekp(static_cast<std::streamoff>(flushed_));
  }
  bool Close() {
    Flush();
    out_.close();
    return static_cast<bool>(out_);
  }

 private:
  static constexpr std::size_t kBuffer = std::size_t(1) << 20;
  void Flush() {
    out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    flushed_ += buffer_.size();
    buffer_.clear();
  }
  std::ofstream out_;
  std::string buffer_;
  std::size_t flushed_ = 0;
};

template <typename T, typename Sink>
void Put(Sink& out, T value) {
  char bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));
  out.Append(bytes, sizeof(T));
}

template <typename Sink>
void PutZeros(Sink& out, std::size_t count) {
  static constexpr char kZeros[160] = {};
  for (; count > 0; count -= std::min(count, sizeof(kZeros))) out.Append(kZeros, std::min(count, sizeof(kZeros)));
}

template <typename Sink>
void PutPacked(Sink& out, const PackedArray& packed) {
  Put<std::uint32_t>(out, packed.count);
  Put<std::uint32_t>(out, packed.encoding);
  Put<std::uint32_t>(out, static_cast<std::uint32_t>(packed.bytes.size()));
  out.Append(packed.bytes.data(), packed.bytes.size());
}

template <typename T>
constexpr char ArrayCode() {
  if constexpr (std::is_same_v<T, std::int32_t>) return 'i';
  else if constexpr (std::is_same_v<T, std::int64_t>) return 'l';
  else if constexpr (std::is_same_v<T, float>) return 'f';
  else if constexpr (std::is_same_v<T, double>) return 'd';
  else return 'b';
}

/// A compressor per thread, made on first use (libdeflate's are not shared between threads).
libdeflate_compressor* Compressor() {
  struct Owned {
    libdeflate_compressor* c = libdeflate_alloc_compressor(1);  // the fastest level
    ~Owned() { libdeflate_free_compressor(c); }
  };
  thread_local Owned owned;
  return owned.c;
}

/// `values` in their stored form: when they take more than `compressAbove` bytes, one zlib stream
/// (kept only if compressing worked), else the bytes as they are.
template <typename T>
PackedArray Pack(std::span<const T> values, const EncodeOptions& options) {
  PackedArray packed{ArrayCode<T>(), static_cast<std::uint32_t>(values.size()), 0, {}};
  const auto* plain = reinterpret_cast<const char*>(values.data());
  const std::size_t size = values.size_bytes();
  if (options.compressAbove > 0 && size > options.compressAbove) {
    libdeflate_compressor* compressor = Compressor();
    std::string deflated(compressor != nullptr ? libdeflate_zlib_compress_bound(compressor, size) : 0, '\0');
    const std::size_t length =
        compressor != nullptr ? libdeflate_zlib_compress(compressor, plain, size, deflated.data(), deflated.size()) : 0;
    if (length > 0) {  // 0: out of memory for the compressor; the values are kept as they are
      deflated.resize(length);
      deflated.shrink_to_fit();
      packed.encoding = 1;
      packed.bytes = std::move(deflated);
      return packed;
    }
  }
  packed.bytes.assign(plain, size);
  return packed;
}

template <typename T, typename Sink>
void PutArray(Sink& out, const std::vector<T>& values, const EncodeOptions& options) {
  PutPacked(out, Pack<T>(values, options));
}

template <typename Sink>
void PutProperty(Sink& out, const Property& property, const EncodeOptions& options) {
  const char code = TypeCode(property);
  out.Append(&code, 1);
  std::visit(
      [&](const auto& v) {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, bool>) Put<std::uint8_t>(out, v ? 1 : 0);
        else if constexpr (std::is_arithmetic_v<T>) Put<T>(out, v);
        else if constexpr (std::is_same_v<T, std::string>) {
          Put<std::uint32_t>(out, static_cast<std::uint32_t>(v.size()));
          out.Append(v.data(), v.size());
        } else if constexpr (std::is_same_v<T, Raw>) {
          Put<std::uint32_t>(out, static_cast<std::uint32_t>(v.bytes.size()));
          out.Append(v.bytes.data(), v.bytes.size());
        } else if constexpr (std::is_same_v<T, PackedArray>) PutPacked(out, v);
        else if constexpr (std::is_same_v<T, BoolArray>) PutArray(out, v.values, options);
        else PutArray(out, v, options);
      },
      property);
}

template <typename Sink>
void PutNode(Sink& out, const Node& node, const EncodeOptions& options) {
  const std::size_t start = out.Tell();
  PutZeros(out, 12);  // end offset, property count, property bytes: filled in below
  Put<std::uint8_t>(out, static_cast<std::uint8_t>(node.name.size()));
  out.Append(node.name.data(), node.name.size());
  const std::size_t propertiesStart = out.Tell();
  for (const auto& p : node.properties) PutProperty(out, p, options);
  const std::size_t propertiesSize = out.Tell() - propertiesStart;
  for (const auto& child : node.children) PutNode(out, child, options);
  if (!node.children.empty() || node.properties.empty()) PutZeros(out, kNullRecord);
  out.Patch(start, static_cast<std::uint32_t>(out.Tell()));
  out.Patch(start + 4, static_cast<std::uint32_t>(node.properties.size()));
  out.Patch(start + 8, static_cast<std::uint32_t>(propertiesSize));
}

template <typename Sink>
void PutFile(Sink& out, const std::vector<Node>& top, const EncodeOptions& options) {
  out.Append(kMagic.data(), kMagic.size());
  Put<std::uint32_t>(out, kVersion);
  for (const auto& node : top) PutNode(out, node, options);
  PutZeros(out, kNullRecord);
  out.Append(reinterpret_cast<const char*>(kFooterId.data()), kFooterId.size());
  // Zero padding to the next 16-byte boundary (a whole 16 bytes when already aligned).
  PutZeros(out, 16 - out.Tell() % 16);
  Put<std::uint32_t>(out, 0);
  Put<std::uint32_t>(out, kVersion);
  PutZeros(out, 120);
  out.Append(reinterpret_cast<const char*>(kFooterMagic.data()), kFooterMagic.size());
}

/// The values of a packed array, for the ASCII form.
template <typename T>
std::vector<T> Unpacked(const PackedArray& packed) {
  std::vector<T> values(packed.count);
  const std::size_t size = values.size() * sizeof(T);
  if (size == 0) return values;
  if (packed.encoding == 0) {
    std::memcpy(values.data(), packed.bytes.data(), std::min(size, packed.bytes.size()));
  } else {
    uLongf unpacked = static_cast<uLongf>(size);
    uncompress(reinterpret_cast<Bytef*>(values.data()), &unpacked, reinterpret_cast<const Bytef*>(packed.bytes.data()),
               static_cast<uLong>(packed.bytes.size()));
  }
  return values;
}

// --- ASCII -----------------------------------------------------------------------------------------

std::string Base64(std::string_view bytes) {
  static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t n = static_cast<std::uint8_t>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) n |= static_cast<std::uint8_t>(bytes[i + 1]) << 8;
    if (i + 2 < bytes.size()) n |= static_cast<std::uint8_t>(bytes[i + 2]);
    out.push_back(kDigits[(n >> 18) & 63]);
    out.push_back(kDigits[(n >> 12) & 63]);
    out.push_back(i + 1 < bytes.size() ? kDigits[(n >> 6) & 63] : '=');
    out.push_back(i + 2 < bytes.size() ? kDigits[n & 63] : '=');
  }
  return out;
}

template <typename T>
std::string Number(T value) {
  if constexpr (std::is_floating_point_v<T>)
    if (!std::isfinite(value)) value = 0;
  std::array<char, 40> buffer{};
  const auto [end, ec] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
  return ec == std::errc() ? std::string(buffer.data(), end) : std::string("0");
}

std::string QuotedString(const std::string& s) {
  std::string text = s;
  if (const auto split = s.find(std::string_view("\x00\x01", 2)); split != std::string::npos)
    text = s.substr(split + 2) + "::" + s.substr(0, split);
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"') out += "&quot;";
    else out.push_back(c);
  }
  return out + "\"";
}

template <typename T>
std::string AsciiArray(const std::vector<T>& values, const std::string& indent) {
  std::string out = "*" + std::to_string(values.size()) + " {\n" + indent + "\ta: ";
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0) out += ',';
    out += Number(values[i]);
  }
  return out + "\n" + indent + "} ";
}

void AsciiNode(std::string& out, const Node& node, const std::string& indent) {
  out += indent + node.name + ": ";
  bool arrayWritten = false;
  for (std::size_t i = 0; i < node.properties.size(); ++i) {
    if (i > 0) out += ", ";
    std::visit(
        [&](const auto& v) {
          using T = std::decay_t<decltype(v)>;
          if constexpr (std::is_same_v<T, bool>) out += v ? "T" : "F";
          else if constexpr (std::is_same_v<T, std::int16_t>) out += Number(static_cast<int>(v));
          else if constexpr (std::is_arithmetic_v<T>) out += Number(v);
          else if constexpr (std::is_same_v<T, std::string>) out += QuotedString(v);
          else if constexpr (std::is_same_v<T, Raw>) out += "\"" + Base64(v.bytes) + "\"";
          else if constexpr (std::is_same_v<T, BoolArray>) {
            std::vector<int> ints(v.values.begin(), v.values.end());
            out += AsciiArray(ints, indent);
            arrayWritten = true;
          } else if constexpr (std::is_same_v<T, PackedArray>) {
            switch (v.type) {
              case 'i': out += AsciiArray(Unpacked<std::int32_t>(v), indent); break;
              case 'l': out += AsciiArray(Unpacked<std::int64_t>(v), indent); break;
              case 'f': out += AsciiArray(Unpacked<float>(v), indent); break;
              case 'd': out += AsciiArray(Unpacked<double>(v), indent); break;
              default: {
                const auto bytes = Unpacked<std::uint8_t>(v);
                out += AsciiArray(std::vector<int>(bytes.begin(), bytes.end()), indent);
              }
            }
            arrayWritten = true;
          } else {
            out += AsciiArray(v, indent);
            arrayWritten = true;
          }
        },
        node.properties[i]);
  }
  if (!node.children.empty() || (node.properties.empty() && !arrayWritten)) {
    out += " {\n";
    for (const auto& child : node.children) AsciiNode(out, child, indent + "\t");
    out += indent + "}";
  }
  out += "\n";
}

// --- decoding ----------------------------------------------------------------------------------------

struct Reader {
  std::string_view bytes;
  const std::string& file;
  bool wide = false;  // 64-bit record offsets (7500 and later)

  vex::Error Fail(std::size_t at, const std::string& problem) const {
    return VEX_ERROR(vex::ErrorKind::FileIO, file + ": byte " + std::to_string(at) + ": " + problem);
  }

  template <typename T>
  vex::Result<T> Get(std::size_t& at) const {
    if (at + sizeof(T) > bytes.size()) return std::unexpected(Fail(at, "file ends inside a record"));
    T value;
    std::memcpy(&value, bytes.data() + at, sizeof(T));
    at += sizeof(T);
    return value;
  }

  template <typename T>
  vex::Result<std::vector<T>> GetArray(std::size_t& at) const {
    const std::size_t start = at;
    VEX_ASSIGN(const auto count, Get<std::uint32_t>(at));
    VEX_ASSIGN(const auto encoding, Get<std::uint32_t>(at));
    VEX_ASSIGN(const auto length, Get<std::uint32_t>(at));
    if (at + length > bytes.size()) return std::unexpected(Fail(start, "array runs past the end of the file"));
    const std::size_t size = static_cast<std::size_t>(count) * sizeof(T);
    if (encoding > 1) return std::unexpected(Fail(start, "unknown array encoding " + std::to_string(encoding)));
    // Deflate packs at most 1032 bytes into one, so a count beyond that is a lie told before any allocation.
    if (encoding == 0 && length != size) return std::unexpected(Fail(start, "array length does not match its count"));
    if (encoding == 1 && size > static_cast<std::size_t>(length) * 1032 + 64)
      return std::unexpected(Fail(start, "array count is larger than its compressed data can hold"));
    std::vector<T> values(count);
    if (encoding == 0) {
      if (size > 0) std::memcpy(values.data(), bytes.data() + at, size);
    } else {
      uLongf unpacked = static_cast<uLongf>(size);
      if (uncompress(reinterpret_cast<Bytef*>(values.data()), &unpacked,
                     reinterpret_cast<const Bytef*>(bytes.data() + at), length) != Z_OK ||
          unpacked != size)
        return std::unexpected(Fail(start, "corrupt compressed array"));
    }
    at += length;
    return values;
  }

  vex::Result<Property> GetProperty(std::size_t& at) const {
    const std::size_t start = at;
    VEX_ASSIGN(const auto code, Get<char>(at));
    switch (code) {
      case 'C': { VEX_ASSIGN(const auto v, Get<std::uint8_t>(at)); return Property(v != 0); }
      case 'Y': { VEX_ASSIGN(const auto v, Get<std::int16_t>(at)); return Property(v); }
      case 'I': { VEX_ASSIGN(const auto v, Get<std::int32_t>(at)); return Property(v); }
      case 'L': { VEX_ASSIGN(const auto v, Get<std::int64_t>(at)); return Property(v); }
      case 'F': { VEX_ASSIGN(const auto v, Get<float>(at)); return Property(v); }
      case 'D': { VEX_ASSIGN(const auto v, Get<double>(at)); return Property(v); }
      case 'S':
      case 'R': {
        VEX_ASSIGN(const auto length, Get<std::uint32_t>(at));
        if (at + length > bytes.size()) return std::unexpected(Fail(start, "string runs past the end of the file"));
        std::string s(bytes.substr(at, length));
        at += length;
        return code == 'S' ? Property(std::move(s)) : Property(Raw{std::move(s)});
      }
      case 'i': { VEX_ASSIGN(auto v, GetArray<std::int32_t>(at)); return Property(std::move(v)); }
      case 'l': { VEX_ASSIGN(auto v, GetArray<std::int64_t>(at)); return Property(std::move(v)); }
      case 'f': { VEX_ASSIGN(auto v, GetArray<float>(at)); return Property(std::move(v)); }
      case 'd': { VEX_ASSIGN(auto v, GetArray<double>(at)); return Property(std::move(v)); }
      case 'b': { VEX_ASSIGN(auto v, GetArray<std::uint8_t>(at)); return Property(BoolArray{std::move(v)}); }
      default: break;
    }
    return std::unexpected(Fail(start, std::string("unknown property type '") + code + "'"));
  }

  vex::Result<std::uint64_t> GetOffset(std::size_t& at) const {
    if (wide) return Get<std::uint64_t>(at);
    VEX_ASSIGN(const auto v, Get<std::uint32_t>(at));
    return static_cast<std::uint64_t>(v);
  }

  /// One record at `at`; nullopt-like empty name with end 0 marks the null record.
  vex::Result<bool> GetNode(std::size_t& at, std::size_t limit, Node& node, int depth) const {
    const std::size_t start = at;
    if (depth > 64) return std::unexpected(Fail(start, "records nested too deep"));
    VEX_ASSIGN(const auto end, GetOffset(at));
    VEX_ASSIGN(const auto count, GetOffset(at));
    VEX_ASSIGN(const auto listLength, GetOffset(at));
    VEX_ASSIGN(const auto nameLength, Get<std::uint8_t>(at));
    if (end == 0) return false;  // the null record closing a list
    if (end > limit || end <= start) return std::unexpected(Fail(start, "record ends outside its parent"));
    if (at + nameLength > end) return std::unexpected(Fail(start, "record name runs past the record"));
    node.name = std::string(bytes.substr(at, nameLength));
    at += nameLength;
    const std::size_t propertiesStart = at;
    for (std::uint64_t i = 0; i < count; ++i) {
      VEX_ASSIGN(auto p, GetProperty(at));
      if (at > end) return std::unexpected(Fail(start, "properties of '" + node.name + "' run past the record"));
      node.properties.push_back(std::move(p));
    }
    if (at - propertiesStart != listLength)
      return std::unexpected(Fail(start, "property list of '" + node.name + "' does not have its stated length"));
    const std::size_t sentinel = wide ? 25 : kNullRecord;
    if (at < end) {
      if (end - at < sentinel) return std::unexpected(Fail(at, "record '" + node.name + "' lacks its null record"));
      while (at < end - sentinel) {
        Node child;
        VEX_ASSIGN(const bool real, GetNode(at, end - sentinel, child, depth + 1));
        if (!real) return std::unexpected(Fail(at, "null record before the end of '" + node.name + "'"));
        node.children.push_back(std::move(child));
      }
      for (std::size_t i = 0; i < sentinel; ++i)
        if (bytes[at + i] != '\0') return std::unexpected(Fail(at, "record '" + node.name + "' lacks its null record"));
      at += sentinel;
    }
    if (at != end) return std::unexpected(Fail(start, "record '" + node.name + "' does not end at its end offset"));
    return true;
  }
};

}  // namespace

char TypeCode(const Property& property) {
  static constexpr char kCodes[] = {'C', 'Y', 'I', 'L', 'F', 'D', 'S', 'R', 'i', 'l', 'f', 'd', 'b'};
  static_assert(sizeof(kCodes) + 1 == std::variant_size_v<Property>);
  if (const auto* packed = std::get_if<PackedArray>(&property)) return packed->type;
  return kCodes[property.index()];
}

PackedArray PackDoubles(std::span<const double> values, const EncodeOptions& options) {
  return Pack<double>(values, options);
}

PackedArray PackInts(std::span<const std::int32_t> values, const EncodeOptions& options) {
  return Pack<std::int32_t>(values, options);
}

Node& Node::Add(std::string childName, std::vector<Property> props) {
  children.push_back(Node{std::move(childName), std::move(props), {}});
  return children.back();
}

const Node* Node::Find(std::string_view childName) const {
  for (const auto& child : children)
    if (child.name == childName) return &child;
  return nullptr;
}

std::string ObjectName(std::string_view name, std::string_view objectClass) {
  std::string out(name);
  out.append("\x00\x01", 2);
  out.append(objectClass);
  return out;
}

std::string EncodeBinary(const std::vector<Node>& top, const EncodeOptions& options) {
  std::string bytes;
  StringSink out{bytes};
  PutFile(out, top, options);
  return bytes;
}

vex::Result<void> WriteBinary(const std::vector<Node>& top, const std::string& path, const EncodeOptions& options) {
  FileSink out(path);
  if (!out.Good()) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot write: " + std::strerror(errno));
  PutFile(out, top, options);
  if (!out.Close()) return VEX_FAIL(vex::ErrorKind::FileIO, path + ": cannot write: " + std::strerror(errno));
  return {};
}

std::string EncodeAscii(const std::vector<Node>& top) {
  std::string out = "; FBX 7.4.0 project file\n; ----------------------------------------------------\n\n";
  for (const auto& node : top) AsciiNode(out, node, "");
  return out;
}

vex::Result<std::vector<Node>> DecodeBinary(std::string_view bytes, const std::string& file) {
  if (bytes.size() < kMagic.size() + 4 || bytes.substr(0, kMagic.size()) != kMagic)
    return VEX_FAIL(vex::ErrorKind::FileIO, file + ": byte 0: not a binary FBX file (no FBX binary header)");
  std::uint32_t version = 0;
  std::memcpy(&version, bytes.data() + kMagic.size(), 4);
  if (version < 7100 || version > 7700)
    return VEX_FAIL(vex::ErrorKind::FileIO,
                    file + ": byte " + std::to_string(kMagic.size()) + ": unsupported FBX version " + std::to_string(version));
  Reader reader{bytes, file, version >= 7500};
  std::size_t at = kMagic.size() + 4;
  std::vector<Node> top;
  while (true) {
    Node node;
    VEX_ASSIGN(const bool real, reader.GetNode(at, bytes.size(), node, 0));
    if (!real) break;
    top.push_back(std::move(node));
  }
  return top;
}

}  // namespace host::formats::fbx
