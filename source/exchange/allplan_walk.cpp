#include "exchange/allplan_walk.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "vex/host.h"
#include "vex/ui.h"

namespace interop::exchange::allplan {

WalkOptions WalkOptions::From(const AllplanOptions& o) {
  return WalkOptions{o.edges, o.faces, o.volumes, o.packed, o.weldTolerance};
}

Dimension ChooseDimension(const WalkOptions& options) {
  if (options.volumes) return Dimension::Volumes;
  if (options.faces) return Dimension::Faces;
  if (options.edges) return Dimension::Edges;
  return Dimension::Faces;
}

bool IsUuid(std::string_view text) {
  if (text.size() != 36) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (c != '-') return false;
    } else if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'))) {
      return false;
    }
  }
  return true;
}

namespace {

constexpr std::uint64_t kFnvOffset = 14695981039346656037ull;
constexpr std::uint64_t kFnvPrime = 1099511628211ull;

std::uint64_t Fnv(std::uint64_t h, std::string_view bytes) {
  for (const char c : bytes) h = (h ^ static_cast<unsigned char>(c)) * kFnvPrime;
  return h;
}

/// Whether a mesh can be written, and the first problem when it cannot.
std::string CheckMesh(const vex::PolygonMesh& mesh) {
  for (std::size_t i = 0; i < mesh.points.size(); ++i) {
    const auto& p = mesh.points[i];
    if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
      return "point " + std::to_string(i) + " has a coordinate that is not a finite number";
  }
  if (mesh.points.size() > 0xFFFFFFFFu) return "too many points";
  std::size_t corner = 0;
  for (std::size_t f = 0; f < mesh.polygonSizes.size(); ++f) {
    const std::int32_t size = mesh.polygonSizes[f];
    if (size < 3) return "polygon " + std::to_string(f) + " has " + std::to_string(size) + " corners (at least 3 needed)";
    if (corner + static_cast<std::size_t>(size) > mesh.polygonPoints.size())
      return "polygon " + std::to_string(f) + " has more corners than the mesh lists";
    for (std::int32_t k = 0; k < size; ++k, ++corner) {
      const std::int32_t p = mesh.polygonPoints[corner];
      if (p < 0 || static_cast<std::size_t>(p) >= mesh.points.size())
        return "polygon " + std::to_string(f) + " refers to point " + std::to_string(p) + ", which does not exist";
    }
  }
  if (corner != mesh.polygonPoints.size()) return "the mesh lists more corners than its polygons have";
  return {};
}

/// The shared edges of a mesh: each undirected edge once, ordered by its lower then its higher
/// point, and for every corner the edge from it to the next corner of its polygon. Built from
/// per-point lists (compressed rows), without a hash table.
struct SharedEdges {
  std::vector<std::uint32_t> rowStart;   // per point: first slot of its partners
  std::vector<std::uint32_t> partners;   // higher points, sorted and unique within each row
  std::vector<std::uint32_t> rowCount;   // unique partners per row
  std::vector<std::uint32_t> firstEdge;  // edge index of each row's first partner
  std::uint64_t count = 0;

  explicit SharedEdges(const vex::PolygonMesh& mesh) {
    const std::size_t n = mesh.points.size();
    rowStart.assign(n + 1, 0);
    ForEachSide(mesh, [&](std::uint32_t a, std::uint32_t b) { ++rowStart[std::min(a, b) + 1]; });
    for (std::size_t i = 0; i < n; ++i) rowStart[i + 1] += rowStart[i];
    partners.resize(rowStart[n]);
    rowCount.assign(n, 0);
    ForEachSide(mesh, [&](std::uint32_t a, std::uint32_t b) {
      const std::uint32_t lo = std::min(a, b);
      partners[rowStart[lo] + rowCount[lo]++] = std::max(a, b);
    });
    firstEdge.resize(n);
    for (std::size_t i = 0; i < n; ++i) {
      auto* begin = partners.data() + rowStart[i];
      auto* end = begin + rowCount[i];
      std::sort(begin, end);
      rowCount[i] = static_cast<std::uint32_t>(std::unique(begin, end) - begin);
      firstEdge[i] = static_cast<std::uint32_t>(count);
      count += rowCount[i];
    }
  }

  std::uint32_t Index(std::uint32_t a, std::uint32_t b) const {
    const std::uint32_t lo = std::min(a, b);
    const std::uint32_t hi = std::max(a, b);
    const auto* begin = partners.data() + rowStart[lo];
    const auto* at = std::lower_bound(begin, begin + rowCount[lo], hi);
    return firstEdge[lo] + static_cast<std::uint32_t>(at - begin);
  }

  template <class Fn>
  static void ForEachSide(const vex::PolygonMesh& mesh, Fn&& fn) {
    std::size_t corner = 0;
    for (const std::int32_t size : mesh.polygonSizes) {
      const auto* loop = mesh.polygonPoints.data() + corner;
      for (std::int32_t k = 0; k < size; ++k)
        fn(static_cast<std::uint32_t>(loop[k]), static_cast<std::uint32_t>(loop[(k + 1) % size]));
      corner += static_cast<std::size_t>(size);
    }
  }
};

class Walker {
 public:
  Walker(AllplanWriter& writer, vex::IDocument& document, const vex::Color& colour, const WalkOptions& options)
      : writer_(writer), document_(document), colour_(colour), options_(options),
        dimension_(ChooseDimension(options)) {}

  void Run(vex::IDocument& copy, int startFlag) {
    const auto objects = copy.GetObjects();
    totalPolygons_ = CountPolygons(objects);
    VisitList(objects, startFlag, kFnvOffset);
    if (auto* bar = StatusBar()) bar->Clear();
  }

  std::size_t failedObjects = 0;

 private:
  static vex::IStatusBar* StatusBar() { return vex::IsHostBound() ? vex::Host().statusBar : nullptr; }

  static std::shared_ptr<const vex::CustomData> MeshOf(const vex::ISceneObject& object) {
    auto value = object.GetParameter(vex::kPolygonMeshParameter);
    if (!value || !value->Is<vex::PolygonMesh>()) return nullptr;
    return std::get<vex::Data::Custom>(value->value);
  }

  static const vex::PolygonMesh& Mesh(const std::shared_ptr<const vex::CustomData>& data) {
    return static_cast<const vex::CustomValue<vex::PolygonMesh>*>(data.get())->value;
  }

  static std::uint64_t CountPolygons(const std::vector<vex::ISceneObject*>& objects) {
    std::uint64_t total = 0;
    std::vector<vex::ISceneObject*> stack(objects.begin(), objects.end());
    while (!stack.empty()) {
      vex::ISceneObject* o = stack.back();
      stack.pop_back();
      if (o->GetType() == vex::kPolygonObjectType)
        if (auto mesh = MeshOf(*o)) total += Mesh(mesh).PolygonCount();
      for (auto* c : o->GetChildren()) stack.push_back(c);
    }
    return total;
  }

  void VisitList(const std::vector<vex::ISceneObject*>& objects, int depth, std::uint64_t parentPath) {
    // Same-named siblings are told apart by their occurrence, so that paths stay unique.
    std::unordered_map<std::string, std::uint32_t> seen;
    for (vex::ISceneObject* object : objects) {
      if (writer_.Failed()) return;
      const std::string name = object->GetName();
      const std::uint32_t occurrence = seen[name]++;
      std::uint64_t path = Fnv(parentPath, "/");
      path = Fnv(path, name);
      path = Fnv(path, "#" + std::to_string(occurrence));
      if (object->GetType() == vex::kPolygonObjectType) Export(*object, path);
      VisitList(object->GetChildren(), depth + 1, path);
    }
  }

  std::uint32_t AssignElementId(std::uint64_t hash) {
    std::uint32_t id = static_cast<std::uint32_t>((hash ^ (hash >> 31)) & 0x7FFFFFFFu);
    if (id == 0) id = 1;
    while (!usedIds_.insert(id).second) id = id == 0x7FFFFFFFu ? 1 : id + 1;
    return id;
  }

  void Problem(const vex::ISceneObject& object, const std::string& text) {
    ++failedObjects;
    const std::string line = "Object \"" + object.GetName() + "\" not written: " + text;
    writer_.LogLine(line);
    if (vex::IsHostBound()) VEX_DIAGNOSTIC(line);
  }

  void Export(const vex::ISceneObject& object, std::uint64_t path) {
    const auto data = MeshOf(object);
    if (!data) {
      Problem(object, "it has no polygon mesh");
      return;
    }
    const vex::PolygonMesh& mesh = Mesh(data);
    if (const std::string problem = CheckMesh(mesh); !problem.empty()) {
      Problem(object, problem);
      return;
    }
    if (mesh.PolygonCount() == 0) return;  // nothing to show

    std::string uuid(kNilUuid);
    if (auto own = object.GetParameter(vex::kObjectUuidParameter)) {
      if (const auto* text = own->Get<std::string>(); text != nullptr && IsUuid(*text)) uuid = *text;
    }
    const std::uint32_t elementId = AssignElementId(uuid != kNilUuid ? Fnv(kFnvOffset, uuid) : path);
    vex::Color colour = colour_;
    if (auto own = object.GetParameter(vex::kObjectColorParameter)) {
      if (const auto* c = own->Get<vex::Color>()) {
        const auto channel = [](double v) { return std::isfinite(v) ? std::clamp(v, 0.0, 1.0) * 255.0 : 0.0; };
        colour = {channel(c->r), channel(c->g), channel(c->b)};
      }
    }

    static constexpr std::string_view kBasis[3] = {"noi:BASIS_LINE3D", "noi:BASIS_FACE3D", "noi:BASIS_VOLUME3D"};
    const auto dim = static_cast<std::size_t>(dimension_);
    const auto form = static_cast<Element>(static_cast<std::size_t>(
        options_.packed ? Element::PackedPolyhedronEdges : Element::PolyhedronEdges) + dim);
    const Element bare = options_.packed ? Element::PackedPolyhedron : Element::Polyhedron;

    writer_.WriteTag(kBasis[dim]);
    writer_.WriteNamedIdentity(object.GetName(), uuid);
    writer_.WriteIdentity(kDrawingId, elementId);
    writer_.WriteStyle(colour.r, colour.g, colour.b);
    writer_.Open(Element::Geometry);
    writer_.Open(Element::Owned3dRepresentations);
    writer_.Open(Element::Geo3dRepresentation);
    writer_.Open(form);

    writer_.Open(Element::Points);
    writer_.OpenCounted(Element::PointList3d, " count=", mesh.points.size());
    for (const auto& p : mesh.points) writer_.WritePoint(p);
    writer_.Close(Element::PointList3d);
    writer_.Close(Element::Points);

    if (options_.packed) WritePacked(mesh);
    else WritePlain(mesh);

    writer_.Close(bare);
    writer_.Close(Element::Geo3dRepresentation);
    writer_.Close(Element::Owned3dRepresentations);
    writer_.Close(Element::Geometry);
    writer_.WriteTag(kBasis[dim], true);
  }

  /// Every polygon side is its own edge, in polygon order; face edges count up.
  void WritePlain(const vex::PolygonMesh& mesh) {
    writer_.Open(Element::Edges);
    writer_.OpenCounted(Element::EdgeList, " count=", mesh.polygonPoints.size());
    SharedEdges::ForEachSide(mesh, [&](std::uint32_t a, std::uint32_t b) { writer_.WriteEdge(a, b); });
    writer_.Close(Element::EdgeList);
    writer_.Close(Element::Edges);
    if (dimension_ == Dimension::Edges) return Progress(mesh.PolygonCount());
    writer_.Open(Element::Faces);
    writer_.OpenCounted(Element::FaceList, " count=", mesh.PolygonCount());
    std::uint32_t edge = 0;
    for (std::size_t f = 0; f < mesh.polygonSizes.size(); ++f) {
      const std::int32_t size = mesh.polygonSizes[f];
      writer_.OpenCounted(Element::Face, " countOfEdges=", static_cast<std::uint64_t>(size));
      for (std::int32_t k = 0; k < size; ++k) writer_.WriteFaceEdge(edge++);
      writer_.Close(Element::Face);
      if ((f & 0xFFFF) == 0xFFFF) Progress(0x10000);
    }
    writer_.Close(Element::FaceList);
    writer_.Close(Element::Faces);
    Progress(mesh.PolygonCount() & 0xFFFF);
  }

  /// Each undirected edge once; a face lists its sides in order, so its winding follows from
  /// the points consecutive edges share.
  void WritePacked(const vex::PolygonMesh& mesh) {
    const SharedEdges shared(mesh);
    writer_.Open(Element::Edges);
    writer_.OpenCounted(Element::EdgeList, " count=", shared.count);
    for (std::size_t p = 0; p < shared.rowCount.size(); ++p)
      for (std::uint32_t k = 0; k < shared.rowCount[p]; ++k)
        writer_.WriteEdge(static_cast<std::uint32_t>(p), shared.partners[shared.rowStart[p] + k]);
    writer_.Close(Element::EdgeList);
    writer_.Close(Element::Edges);
    if (dimension_ == Dimension::Edges) return Progress(mesh.PolygonCount());
    writer_.Open(Element::Faces);
    writer_.OpenCounted(Element::FaceList, " count=", mesh.PolygonCount());
    std::size_t corner = 0;
    for (std::size_t f = 0; f < mesh.polygonSizes.size(); ++f) {
      const std::int32_t size = mesh.polygonSizes[f];
      const auto* loop = mesh.polygonPoints.data() + corner;
      writer_.OpenCounted(Element::Face, " countOfEdges=", static_cast<std::uint64_t>(size));
      for (std::int32_t k = 0; k < size; ++k)
        writer_.WriteFaceEdge(shared.Index(static_cast<std::uint32_t>(loop[k]),
                                           static_cast<std::uint32_t>(loop[(k + 1) % size])));
      writer_.Close(Element::Face);
      corner += static_cast<std::size_t>(size);
      if ((f & 0xFFFF) == 0xFFFF) Progress(0x10000);
    }
    writer_.Close(Element::FaceList);
    writer_.Close(Element::Faces);
    Progress(mesh.PolygonCount() & 0xFFFF);
  }

  void Progress(std::uint64_t polygons) {
    donePolygons_ += polygons;
    if (auto* bar = StatusBar(); bar != nullptr && totalPolygons_ > 0)
      bar->SetProgress("Allplan XML: " + document_.GetName(),
                       static_cast<double>(donePolygons_) / static_cast<double>(totalPolygons_));
  }

  AllplanWriter& writer_;
  vex::IDocument& document_;
  vex::Color colour_;
  WalkOptions options_;
  Dimension dimension_;
  std::unordered_set<std::uint32_t> usedIds_;
  std::uint64_t totalPolygons_ = 0;
  std::uint64_t donePolygons_ = 0;
};

}  // namespace

vex::Result<void> WalkObjects(AllplanWriter& writer, vex::IDocument& document, vex::IDocument& polygonCopy,
                              int startFlag, const vex::Color& defaultColour, const WalkOptions& options) {
  Walker walker(writer, document, defaultColour, options);
  walker.Run(polygonCopy, startFlag);
  if (walker.failedObjects > 0)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument,
                    "Allplan export: " + std::to_string(walker.failedObjects) + " object(s) could not be written");
  if (writer.Failed()) return std::unexpected(*writer.Error());
  return {};
}

}  // namespace interop::exchange::allplan
