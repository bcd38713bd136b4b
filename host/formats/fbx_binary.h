// FBX node records: the tree every FBX file is made of (a node has a name, a list of typed
// properties and child nodes), written as binary FBX 7.4 or as the ASCII form of the same tree,
// and read back from the binary form. The scene writer builds the tree; this unit owns the bytes
// (record layout, sentinels, footer, zlib-compressed arrays).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "vex/error.h"

namespace host::formats::fbx {

/// Raw bytes ('R'): embedded images, file ids. Strings ('S') are std::string.
struct Raw {
  std::string bytes;
  bool operator==(const Raw&) const = default;
};
/// A boolean array ('b'), one byte per value.
struct BoolArray {
  std::vector<std::uint8_t> values;
  bool operator==(const BoolArray&) const = default;
};

/// A numeric array already in its stored form, so that the tree of a large scene holds the
/// compressed bytes rather than the values: `type` is the array's code ('i', 'l', 'f', 'd' or
/// 'b'), `encoding` 0 for the values as they are (little-endian), 1 for zlib.
struct PackedArray {
  char type = 'd';
  std::uint32_t count = 0;
  std::uint32_t encoding = 0;
  std::string bytes;
  bool operator==(const PackedArray&) const = default;
};

/// One property of a record. The alternatives map one to one onto the type codes
/// C (bool), Y (int16), I (int32), L (int64), F (float), D (double), S (string), R (raw) and the
/// arrays i, l, f, d, b (a PackedArray carries its own array code). Decoding never makes a
/// PackedArray.
using Property = std::variant<bool, std::int16_t, std::int32_t, std::int64_t, float, double, std::string, Raw,
                              std::vector<std::int32_t>, std::vector<std::int64_t>, std::vector<float>,
                              std::vector<double>, BoolArray, PackedArray>;

/// The type code of a property ('C', 'Y', 'I', ...).
char TypeCode(const Property& property);

struct Node {
  std::string name;
  std::vector<Property> properties;
  std::vector<Node> children;

  /// Appends a child and returns it (references stay valid until the next Add on this node).
  Node& Add(std::string childName, std::vector<Property> props = {});
  /// The first child of that name, or nullptr.
  const Node* Find(std::string_view childName) const;
};

/// An object's name as FBX stores it: "<name>\x00\x01<class>" (the ASCII form shows it as
/// "<class>::<name>").
std::string ObjectName(std::string_view name, std::string_view objectClass);

inline constexpr std::uint32_t kVersion = 7400;

struct EncodeOptions {
  /// Arrays whose data exceed this many bytes are stored zlib-compressed (encoding 1); 0 never
  /// compresses.
  std::size_t compressAbove = 1024;
};

/// `values` in their stored form: compressed when they take more than `options.compressAbove`
/// bytes. Safe to call from several threads at once.
PackedArray PackDoubles(std::span<const double> values, const EncodeOptions& options = {});
PackedArray PackInts(std::span<const std::int32_t> values, const EncodeOptions& options = {});

/// The binary file: the 27-byte header (magic, version 7400), the top-level records with 32-bit
/// offsets, the closing null record and the footer. A record with children, or with neither
/// properties nor children, ends with the 13-byte null record.
std::string EncodeBinary(const std::vector<Node>& top, const EncodeOptions& options = {});

/// The same bytes written straight into the file at `path` (created or replaced) through a small
/// buffer: the file's text is never held whole. FileIO naming the file when it cannot be written.
vex::Result<void> WriteBinary(const std::vector<Node>& top, const std::string& path, const EncodeOptions& options = {});

/// The same tree as ASCII FBX 7.4 text: "Name: p1, p2 {" ... "}", arrays as "*N { a: ... }",
/// raw bytes base64-encoded, object names as "<class>::<name>".
std::string EncodeAscii(const std::vector<Node>& top);

/// Reads the top-level records of a binary FBX file (versions 7100 to 7700, 32- or 64-bit
/// offsets). `file` names the file in messages; FileIO naming the byte offset and the problem
/// for anything malformed (bad magic, a record running past its parent, a missing sentinel, a
/// corrupt compressed array, an unknown type code).
vex::Result<std::vector<Node>> DecodeBinary(std::string_view bytes, const std::string& file);

}  // namespace host::formats::fbx
