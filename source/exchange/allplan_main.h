// The scene saver that writes Allplan XML: its settings object, the document
// writer with its tag and raw line writers, and the saver's allocator.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "vex/data.h"
#include "vex/host.h"
#include "vex/plugins.h"
#include "vex/units.h"

namespace interop::exchange {

/// The saver's allocator, handed to the host at registration.
std::shared_ptr<vex::ISceneSaver> AllocateAllplanSaver();

namespace allplan {

/// Option ids of the saver's settings container.
inline constexpr std::int32_t kOptionPrepare = 2000;        ///< bool: weld points, drop degenerate polygons
inline constexpr std::int32_t kOptionEdges = 2001;          ///< bool: edge form
inline constexpr std::int32_t kOptionFaces = 2004;          ///< bool: face form
inline constexpr std::int32_t kOptionVolumes = 2006;        ///< bool: volume form
inline constexpr std::int32_t kOptionPacked = 2007;         ///< bool: packed polyhedra (shared edges)
inline constexpr std::int32_t kOptionWeldTolerance = 2008;  ///< float: weld distance in export units
inline constexpr std::int32_t kOptionWriteLog = 2009;       ///< bool: text log beside the file
inline constexpr std::int32_t kOptionVersion2005 = 2110;    ///< bool: version 2005 (clear: 2004)
inline constexpr std::int32_t kOptionExportUnit = 2005;     ///< UnitScale: the unit of the file

/// Result of a save the document could not be prepared for.
inline constexpr std::int32_t kCannotPrepare = -7;

/// Resource strings of the saver.
inline constexpr std::int32_t kStringPrepareFailed = 10011;
inline constexpr std::int32_t kStringShowLogQuestion = 10013;
inline constexpr std::int32_t kStringExportProblems = 10014;
inline constexpr std::int32_t kStringFirstOptionLabel = 10023;

/// The saver's settings object, read from the settings container at the start of every save.
struct AllplanOptions {
  bool prepare = false;
  bool edges = false;
  bool faces = false;
  bool volumes = false;
  bool packed = false;
  double weldTolerance = 0.0;
  bool writeLog = false;
  bool version2005 = false;
  std::optional<vex::UnitScale> exportUnit;

  static AllplanOptions Read(const vex::ParamContainer& settings);
};

/// One line of the log per option: label string id, whether it is set, and the suffix written.
struct LogOptionLine {
  std::int32_t labelId = 0;
  bool set = false;
  std::string_view suffix;  ///< " TRUE", " TRUE " or " FALSE"
};
/// The option lines of the log, in order (2000, 2001, 2004, 2006, 2007, 2008, 2009, 2110).
std::array<LogOptionLine, 8> LogOptionLines(const AllplanOptions& options);

/// The elements of the writer's name table, in its order.
enum class Element : std::uint8_t {
  Geometry,
  Owned3dRepresentations,
  Geo3dRepresentation,
  PolyhedronEdges,
  PolyhedronFaces,
  PolyhedronVolumes,
  Polyhedron,
  PackedPolyhedronEdges,
  PackedPolyhedronFaces,
  PackedPolyhedronVolumes,
  PackedPolyhedron,
  PointList3d,
  EdgeList,
  Edges,
  FaceList,
  Points,
  Face,
  Faces,
};
inline constexpr std::size_t kElementCount = 18;

/// Writes the XML document into the output file and, when there is one, lines into the log.
/// Output is buffered and handed to the file in large blocks; the first failed write makes
/// every later write a no-op and is kept as the writer's error.
class AllplanWriter {
 public:
  /// `scale` multiplies every coordinate; `log` may be null.
  AllplanWriter(vex::IFile& output, vex::IFile* log, double scale);
  ~AllplanWriter();
  AllplanWriter(const AllplanWriter&) = delete;
  AllplanWriter& operator=(const AllplanWriter&) = delete;

  /// The element name of the table entry.
  std::string_view Name(Element element) const { return names_[static_cast<std::size_t>(element)]; }
  double Scale() const { return scale_; }

  /// Tag writer: "<", "/" for a closing tag, the tag text, ">". Adds no line break.
  void WriteTag(std::string_view text, bool closing = false);
  void Open(Element element) { WriteTag(Name(element)); }
  void Close(Element element) { WriteTag(Name(element), true); }
  /// An opening tag with one whole-number attribute: name, `attribute` (" count="), the value in quotes.
  void OpenCounted(Element element, std::string_view attribute, std::uint64_t value);

  /// Raw line writer: the finished line, then a line feed.
  void WriteLine(std::string_view line);
  /// Leaf lines.
  void WritePoint(const vex::Vector3d& p);  ///< scaled, axes swapped (x, z, y)
  void WriteEdge(std::uint32_t a, std::uint32_t b);
  void WriteFaceEdge(std::uint32_t e);
  void WriteIdentity(std::uint32_t drawingId, std::uint32_t elementId);
  /// `name` is UTF-8 and is escaped and encoded here; `uuid` is written as given.
  void WriteNamedIdentity(std::string_view name, std::string_view uuid);
  /// Channels on the 0..255 scale.
  void WriteStyle(double r, double g, double b);

  bool HasLog() const { return log_ != nullptr; }
  /// A line of the log (nothing without a log).
  void LogLine(std::string_view line);

  /// Hands buffered output to the file; returns the writer's error state.
  vex::Result<void> Flush();
  bool Failed() const { return error_.has_value(); }
  const std::optional<vex::Error>& Error() const { return error_; }

  /// Set when the object walk fails.
  bool errorFlag = false;

 private:
  char* Reserve(std::size_t n);
  void Commit(char* end) { used_ = static_cast<std::size_t>(end - buffer_.get()); }
  char* Put(char* at, std::string_view text);
  /// A literal: its length is known here, so the copy is a few stores.
  template <std::size_t N>
  static char* Put(char* at, const char (&text)[N]) {
    __builtin_memcpy(at, text, N - 1);
    return at + (N - 1);
  }
  char* PutNumber(char* at, double value);

  vex::IFile& output_;
  vex::IFile* log_;
  double scale_;
  std::array<std::string, kElementCount> names_;
  std::unique_ptr<char[]> buffer_;
  std::size_t used_ = 0;
  std::optional<vex::Error> error_;
  std::string scratch_;
};

/// The log file's name: `fileName` with its suffix replaced by "txt" (appended when it has none).
std::string LogFileName(const std::string& fileName);

}  // namespace allplan
}  // namespace interop::exchange
