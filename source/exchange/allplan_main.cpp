#include "exchange/allplan_main.h"

#include <charconv>
#include <cstring>

#include "exchange/allplan_format.h"
#include "exchange/allplan_prepare.h"
#include "exchange/allplan_walk.h"
#include "frame/module.h"
#include "vex/polygon.h"
#include "vex/ui.h"

namespace interop::exchange {
namespace allplan {
namespace {

constexpr std::size_t kBufferSize = 1 << 18;
constexpr std::size_t kFlushAt = kBufferSize - 4096;

}  // namespace

// --- options -----------------------------------------------------------------------------------

AllplanOptions AllplanOptions::Read(const vex::ParamContainer& settings) {
  AllplanOptions o;
  o.prepare = settings.GetBool(kOptionPrepare);
  o.edges = settings.GetBool(kOptionEdges);
  o.faces = settings.GetBool(kOptionFaces);
  o.volumes = settings.GetBool(kOptionVolumes);
  o.packed = settings.GetBool(kOptionPacked);
  o.weldTolerance = settings.GetFloat(kOptionWeldTolerance);
  o.writeLog = settings.GetBool(kOptionWriteLog);
  o.version2005 = settings.GetBool(kOptionVersion2005);
  if (const vex::Data* unit = settings.Find(kOptionExportUnit))
    if (const auto* scale = unit->Get<vex::UnitScale>()) o.exportUnit = *scale;
  return o;
}

std::array<LogOptionLine, 8> LogOptionLines(const AllplanOptions& o) {
  const bool set[8] = {o.prepare, o.edges,    o.faces,    o.volumes,
                       o.packed,  o.weldTolerance != 0.0, o.writeLog, o.version2005};
  std::array<LogOptionLine, 8> lines;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    lines[i].labelId = kStringFirstOptionLabel + static_cast<std::int32_t>(i);
    lines[i].set = set[i];
    // The packed-polyhedra line has always carried a blank after TRUE; readers of the log
    // compare it whole, so it stays.
    lines[i].suffix = !set[i] ? " FALSE" : (i == 4 ? " TRUE " : " TRUE");
  }
  return lines;
}

std::string LogFileName(const std::string& fileName) {
  const auto slash = fileName.find_last_of("/\\");
  const auto dot = fileName.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return fileName + ".txt";
  return fileName.substr(0, dot) + ".txt";
}

// --- writer ------------------------------------------------------------------------------------

AllplanWriter::AllplanWriter(vex::IFile& output, vex::IFile* log, double scale)
    : output_(output), log_(log), scale_(scale), buffer_(new char[kBufferSize]) {
  constexpr std::string_view polyhedron = "noi:GEO_POLYHEDRON3D";
  constexpr std::string_view packed = "noi:GEO_PACKED_POLYHEDRON3D";
  constexpr std::string_view forms[3] = {R"( orientation="e_POSITIVE" dimension="e_HAS_EDGES")",
                                         R"( orientation="e_POSITIVE" dimension="e_HAS_FACES")",
                                         R"( orientation="e_POSITIVE" dimension="e_HAS_VOLUMES")"};
  std::size_t i = 0;
  names_[i++] = "noi:GEOMETRY";
  names_[i++] = "noi:OWNED_3DREPRESENTATIIONS";  // the format's own spelling
  names_[i++] = "noi:GEO_3DREPRESENTATION";
  for (const auto base : {polyhedron, packed}) {
    for (const auto form : forms) names_[i++] = std::string(base) + std::string(form);
    names_[i++] = std::string(base);
  }
  for (const char* name : {"noi:GEO_POINT_LIST_3D", "noi:GEO_EDGE_LIST", "noi:EDGES", "noi:GEO_FACE_LIST",
                           "noi:POINTS", "noi:GEO_FACE", "noi:FACES"})
    names_[i++] = name;
}

AllplanWriter::~AllplanWriter() = default;

char* AllplanWriter::Reserve(std::size_t n) {
  if (used_ + n > kBufferSize) (void)Flush();
  return buffer_.get() + used_;
}

char* AllplanWriter::Put(char* at, std::string_view text) {
  if (!text.empty()) std::memcpy(at, text.data(), text.size());
  return at + text.size();
}

char* AllplanWriter::PutNumber(char* at, double value) { return FormatNumber(value, at); }

vex::Result<void> AllplanWriter::Flush() {
  if (used_ != 0 && !error_) {
    if (auto written = output_.Write(buffer_.get(), used_); !written) error_ = written.error();
  }
  used_ = 0;
  if (error_) return std::unexpected(*error_);
  return {};
}

void AllplanWriter::WriteTag(std::string_view text, bool closing) {
  if (text.size() + 3 > kBufferSize - used_) {
    (void)Flush();
    if (text.size() + 3 > kBufferSize) {
      // A tag longer than the buffer goes out in pieces.
      const char open[2] = {'<', '/'};
      if (!error_) {
        if (auto w = output_.Write(open, closing ? 2 : 1); !w) error_ = w.error();
      }
      if (!error_) {
        if (auto w = output_.Write(text.data(), text.size()); !w) error_ = w.error();
      }
      if (!error_) {
        if (auto w = output_.Write(">", 1); !w) error_ = w.error();
      }
      return;
    }
  }
  char* at = buffer_.get() + used_;
  *at++ = '<';
  if (closing) *at++ = '/';
  at = Put(at, text);
  *at++ = '>';
  Commit(at);
  if (used_ >= kFlushAt) (void)Flush();
}

void AllplanWriter::OpenCounted(Element element, std::string_view attribute, std::uint64_t value) {
  const std::string_view name = Name(element);
  // The tag text is the name, the attribute and the quoted value, through the tag writer's form.
  char* at = Reserve(name.size() + attribute.size() + 32);
  *at++ = '<';
  at = Put(at, name);
  at = Put(at, attribute);
  *at++ = '"';
  at = std::to_chars(at, at + 20, value).ptr;
  *at++ = '"';
  *at++ = '>';
  Commit(at);
  if (used_ >= kFlushAt) (void)Flush();
}

void AllplanWriter::WriteLine(std::string_view line) {
  if (line.size() + 1 > kBufferSize - used_) {
    (void)Flush();
    if (line.size() + 1 > kBufferSize) {
      if (!error_) {
        if (auto w = output_.Write(line.data(), line.size()); !w) error_ = w.error();
      }
      if (!error_) {
        if (auto w = output_.Write("\n", 1); !w) error_ = w.error();
      }
      return;
    }
  }
  char* at = Put(buffer_.get() + used_, line);
  *at++ = '\n';
  Commit(at);
  if (used_ >= kFlushAt) (void)Flush();
}

void AllplanWriter::WritePoint(const vex::Vector3d& p) {
  char* at = Reserve(3 * kMaxNumberChars + 48);
  at = Put(at, "<noi:GEO_POINT x=\"");
  at = PutNumber(at, scale_ * p.x);
  at = Put(at, "\" y=\"");
  at = PutNumber(at, scale_ * p.z);
  at = Put(at, "\" z=\"");
  at = PutNumber(at, scale_ * p.y);
  at = Put(at, "\" />\n");
  Commit(at);
  if (used_ >= kFlushAt) (void)Flush();
}

void AllplanWriter::WriteEdge(std::uint32_t a, std::uint32_t b) {
  char* at = Reserve(64);
  at = Put(at, "<noi:GEO_EDGE e1=\"");
  at = std::to_chars(at, at + 10, a).ptr;
  at = Put(at, "\" e2=\"");
  at = std::to_chars(at, at + 10, b).ptr;
  at = Put(at, "\" />\n");
  Commit(at);
  if (used_ >= kFlushAt) (void)Flush();
}

void AllplanWriter::WriteFaceEdge(std::uint32_t e) {
  char* at = Reserve(48);
  at = Put(at, "<noi:GEO_FACE_EDGE e=\"");
  at = std::to_chars(at, at + 10, e).ptr;
  at = Put(at, "\" />\n");
  Commit(at);
  if (used_ >= kFlushAt) (void)Flush();
}

void AllplanWriter::WriteIdentity(std::uint32_t drawingId, std::uint32_t elementId) {
  scratch_ = "<noi:UUID drawingId=\"" + std::to_string(drawingId) + "\" elementId=\"" + std::to_string(elementId) +
             "\" />";
  WriteLine(scratch_);
}

void AllplanWriter::WriteNamedIdentity(std::string_view name, std::string_view uuid) {
  scratch_ = "<noi:NAMED_UUID name=\"";
  AppendAttributeText(name, scratch_);
  scratch_ += "\" uuid=\"";
  AppendAttributeText(uuid, scratch_);
  scratch_ += "\" />";
  WriteLine(scratch_);
}

void AllplanWriter::WriteStyle(double r, double g, double b) {
  char* at = Reserve(3 * kMaxNumberChars + 320);
  at = Put(at, "<noi:COMMON_STYLE alpha=\"0\" r=\"");
  at = PutNumber(at, r);
  at = Put(at, "\" g=\"");
  at = PutNumber(at, g);
  at = Put(at, "\" b=\"");
  at = PutNumber(at, b);
  at = Put(at,
           "\" layerId=\"0\" strokeId=\"1\" penId=\"2\" colorByLayer=\"false\" strokeByLayer=\"false\" "
           "penByLayer=\"false\" byLayerAllowed=\"false\" useConstructionLineMode=\"false\" drawOrder=\"15\" />\n");
  Commit(at);
  if (used_ >= kFlushAt) (void)Flush();
}

void AllplanWriter::LogLine(std::string_view line) {
  if (log_ == nullptr) return;
  // The log is small and advisory: a failed log write does not fail the document.
  std::string text(line);
  text += '\n';
  (void)log_->Write(text);
}

}  // namespace allplan

// --- the saver -----------------------------------------------------------------------------------
namespace {

using namespace allplan;

/// Writes the declaration, the document tag and the version line, the model section with the
/// object walk, and the closing tags. A failure in the first four skips the rest of them; the
/// closing tags are written in any case.
void WriteDocument(AllplanWriter& writer, const AllplanOptions& options, vex::IDocument& document,
                   vex::IDocument& copy) {
  const auto opening = [&]() -> bool {
    writer.WriteTag(R"(?xml version="1.0" encoding="ISO-8859-1" ?)");
    if (writer.Failed()) return false;
    writer.WriteTag(
        R"(noi:DOCUMENT xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xmlns:noi="NOISchema.xsd")");
    if (writer.Failed()) return false;
    writer.WriteTag(options.version2005 ? R"(noi:VERSION info_1="2005" info_2="2005.0" info_3="" /)"
                                        : R"(noi:VERSION info_1="2004" info_2="2004.0" info_3="" /)");
    if (writer.Failed()) return false;
    writer.WriteTag("noi:MODEL_SECTION");
    return !writer.Failed();
  };
  if (opening()) {
    auto walked = WalkObjects(writer, document, copy, 0, vex::Color{125, 125, 125}, WalkOptions::From(options));
    if (!walked) {
      writer.errorFlag = true;
      writer.LogLine(walked.error().message);
    }
  }
  writer.WriteTag("noi:MODEL_SECTION", true);
  writer.WriteTag("noi:DOCUMENT", true);
}

class AllplanSaver final : public vex::ISceneSaver {
 public:
  std::int32_t Save(const vex::ParamContainer& settings, const std::string& fileName,
                    vex::IDocument& document) override {
    const vex::HostApi& host = vex::Host();
    // 1. Options and scale.
    const AllplanOptions options = AllplanOptions::Read(settings);
    double scale = 1.0;
    const vex::Data* documentUnit = document.Settings().Find(vex::kDocumentLengthUnit);
    const vex::UnitScale* from = documentUnit != nullptr ? documentUnit->Get<vex::UnitScale>() : nullptr;
    if (from != nullptr && options.exportUnit) {
      auto translated = host.units->GetTranslationScale(*from, *options.exportUnit);
      if (!translated) {
        host.console->Diagnostic(translated.error().message, translated.error().unit, translated.error().line);
        return kCannotPrepare;
      }
      scale = *translated;
    }

    // 2. The polygon copy.
    if (host.polygons == nullptr) {
      VEX_DIAGNOSTIC("The host offers no polygon copies");
      return kCannotPrepare;
    }
    auto made = host.polygons->MakePolygonCopy(document);
    if (!made || *made == nullptr) {
      if (!made) host.console->Diagnostic(made.error().message, made.error().unit, made.error().line);
      return kCannotPrepare;
    }
    std::unique_ptr<vex::IDocument> copy = std::move(*made);

    // 3. The preparation step, on the copy's polygon objects.
    if (options.prepare && HasPolygonObject(*copy)) {
      if (auto prepared = PrepareObjects(*copy, options.weldTolerance / scale); !prepared) {
        host.console->Diagnostic(prepared.error().message, prepared.error().unit, prepared.error().line);
        host.dialogs->Message(GetString(kStringPrepareFailed));
        return kCannotPrepare;
      }
    }

    // 4. The output file.
    vex::FileOpenOptions open;
    open.errorDialog = false;
    open.byteOrder = 1;
    open.type = "VEXC";
    open.creator = "VEX1";
    auto output = host.files->OpenWrite(fileName, open);
    if (!output) {
      host.console->Diagnostic(output.error().message, output.error().unit, output.error().line);
      return vex::kFileErrorOpen;
    }

    // 5. The log.
    std::unique_ptr<vex::IFile> log;
    const std::string logName = LogFileName(fileName);
    if (options.writeLog) {
      open.byteOrder = 2;
      auto opened = host.files->OpenWrite(logName, open);
      if (!opened) {
        host.console->Diagnostic(opened.error().message, opened.error().unit, opened.error().line);
        (void)(*output)->Close();
        (void)host.files->Remove(fileName);
        return vex::kFileErrorOpen;
      }
      log = std::move(*opened);
    }

    AllplanWriter writer(**output, log.get(), scale);
    if (log) {
      writer.LogLine("Allplan XML Version 1.002");
      for (const auto& line : LogOptionLines(options)) writer.LogLine(GetString(line.labelId) + std::string(line.suffix));
    }

    // 6. The document.
    WriteDocument(writer, options, document, *copy);
    auto flushed = writer.Flush();

    // 7. Finish.
    if (!log) {
      if (writer.errorFlag) host.dialogs->Message(GetString(kStringExportProblems));
    } else {
      (void)log->Close();
      log.reset();
      if (!writer.errorFlag) {
        if (host.fileViewer != nullptr) (void)host.fileViewer->Open(logName);
      } else if (host.dialogs->Question(GetString(kStringShowLogQuestion))) {
        if (host.fileViewer != nullptr) (void)host.fileViewer->Open(logName);
      }
    }

    // 8. Free the copy, close the output and return its state.
    copy.reset();
    auto closed = (*output)->Close();
    if (!flushed || !closed) {
      const vex::Error& e = !flushed ? flushed.error() : closed.error();
      host.console->Diagnostic(e.message, e.unit, e.line);
      return vex::kFileErrorWrite;
    }
    return 0;
  }

 private:
  static bool HasPolygonObject(const vex::IDocument& copy) {
    std::vector<vex::ISceneObject*> stack = copy.GetObjects();
    while (!stack.empty()) {
      vex::ISceneObject* o = stack.back();
      stack.pop_back();
      if (o->GetType() == vex::kPolygonObjectType) return true;
      for (auto* c : o->GetChildren()) stack.push_back(c);
    }
    return false;
  }
};

}  // namespace

std::shared_ptr<vex::ISceneSaver> AllocateAllplanSaver() { return std::make_shared<AllplanSaver>(); }

}  // namespace interop::exchange
