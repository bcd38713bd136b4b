#include "host/polygon_object.h"

#include <cmath>

namespace host {

std::shared_ptr<SceneObject> MakePolygonObject(std::string name, vex::PolygonMesh mesh,
                                               std::optional<vex::Color> colour) {
  auto object = std::make_shared<SceneObject>(vex::kPolygonObjectType);
  object->SetName(std::move(name));
  object->MutableParameters().Set(vex::kPolygonMeshParameter, vex::Data::MakeCustom(std::move(mesh)));
  if (colour) object->MutableParameters().Set(vex::kObjectColorParameter, *colour);
  return object;
}

std::string CheckPolygonAttributes(const vex::PolygonMesh& mesh, const PolygonAttributes& attributes) {
  const std::size_t corners = mesh.polygonPoints.size();
  const auto count = [](std::size_t given, std::size_t expected, const char* what, const char* per) {
    return std::string(what) + ": " + std::to_string(given) + " for " + std::to_string(expected) + " " + per;
  };
  if (!attributes.normals.empty() && attributes.normals.size() != corners)
    return count(attributes.normals.size(), corners, "normals", "polygon corners");
  if (!attributes.uvs.empty() && attributes.uvs.size() != corners)
    return count(attributes.uvs.size(), corners, "uvs", "polygon corners");
  if (!attributes.materials.empty() && attributes.materials.size() != mesh.PolygonCount())
    return count(attributes.materials.size(), mesh.PolygonCount(), "materials", "polygons");
  const auto names = static_cast<std::int64_t>(attributes.materialNames.size());
  for (std::size_t i = 0; i < attributes.materials.size(); ++i)
    if (attributes.materials[i] < -1 || attributes.materials[i] >= names)
      return "materials[" + std::to_string(i) + "]: " + std::to_string(attributes.materials[i]) +
             " names no material (the object lists " + std::to_string(names) + ")";
  return {};
}

vex::Vector3d Affine::Apply(const vex::Vector3d& p) const {
  return {m[0][0] * p.x + m[0][1] * p.y + m[0][2] * p.z + m[0][3],
          m[1][0] * p.x + m[1][1] * p.y + m[1][2] * p.z + m[1][3],
          m[2][0] * p.x + m[2][1] * p.y + m[2][2] * p.z + m[2][3]};
}

Affine Affine::operator*(const Affine& o) const {
  Affine r;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 4; ++j) {
      double v = m[i][0] * o.m[0][j] + m[i][1] * o.m[1][j] + m[i][2] * o.m[2][j];
      if (j == 3) v += m[i][3];
      r.m[i][j] = v;
    }
  }
  return r;
}

bool Affine::IsIdentity() const { return m == Affine{}.m; }

Affine LocalTransform(const vex::ISceneObject& object) {
  const auto vector = [&](std::int32_t id, vex::Vector3d fallback) {
    const vex::Data* d = object.Parameters().Find(id);
    const auto* v = d != nullptr ? d->Get<vex::Vector3d>() : nullptr;
    return v != nullptr ? *v : fallback;
  };
  const vex::Vector3d t = vector(vex::kObjectRelativePosition, {});
  const vex::Vector3d r = vector(vex::kObjectRelativeRotation, {});
  const vex::Vector3d s = vector(vex::kObjectRelativeScale, {1, 1, 1});
  const double cx = std::cos(r.x), sx = std::sin(r.x);
  const double cy = std::cos(r.y), sy = std::sin(r.y);
  const double cz = std::cos(r.z), sz = std::sin(r.z);
  // Rz * Ry * Rx: the rotation about x is applied first.
  const double rot[3][3] = {{cz * cy, cz * sy * sx - sz * cx, cz * sy * cx + sz * sx},
                            {sz * cy, sz * sy * sx + cz * cx, sz * sy * cx - cz * sx},
                            {-sy, cy * sx, cy * cx}};
  Affine a;
  const double scale[3] = {s.x, s.y, s.z};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) a.m[i][j] = rot[i][j] * scale[j];
  a.m[0][3] = t.x;
  a.m[1][3] = t.y;
  a.m[2][3] = t.z;
  return a;
}

Affine GlobalTransform(const vex::ISceneObject& object) {
  Affine a = LocalTransform(object);
  for (const vex::ISceneObject* p = object.GetParent(); p != nullptr; p = p->GetParent()) a = LocalTransform(*p) * a;
  return a;
}

namespace {

void CopyInto(Document& copy, const vex::ISceneObject& source, const Affine& parentGlobal, SceneObject* parent) {
  const Affine global = parentGlobal * LocalTransform(source);
  const bool polygon = source.GetType() == vex::kPolygonObjectType;
  auto object = std::make_shared<SceneObject>(polygon ? vex::kPolygonObjectType : vex::kGroupObjectType);
  object->SetName(source.GetName());
  auto& parameters = object->MutableParameters();
  for (const std::int32_t id : {vex::kObjectColorParameter, vex::kObjectUuidParameter})
    if (const vex::Data* d = source.Parameters().Find(id)) parameters.Set(id, *d);
  if (polygon) {
    if (const vex::Data* d = source.Parameters().Find(vex::kPolygonMeshParameter)) {
      const auto* mesh = d->Get<vex::PolygonMesh>();
      if (mesh == nullptr || global.IsIdentity()) {
        parameters.Set(vex::kPolygonMeshParameter, *d);  // shared, or left for the caller to judge
      } else {
        vex::PolygonMesh moved;
        moved.points.reserve(mesh->points.size());
        for (const auto& p : mesh->points) moved.points.push_back(global.Apply(p));
        moved.polygonSizes = mesh->polygonSizes;
        moved.polygonPoints = mesh->polygonPoints;
        parameters.Set(vex::kPolygonMeshParameter, vex::Data::MakeCustom(std::move(moved)));
      }
    }
  }
  auto inserted = copy.InsertObject(object, parent);
  auto* here = inserted ? static_cast<SceneObject*>(*inserted) : nullptr;
  for (const auto* child : source.GetChildren()) CopyInto(copy, *child, global, here);
}

}  // namespace

vex::Result<std::unique_ptr<vex::IDocument>> Polygons::MakePolygonCopy(const vex::IDocument& document) {
  if (refuse) return VEX_FAIL(vex::ErrorKind::IllegalState, "The document cannot be turned into polygons");
  const auto* source = dynamic_cast<const Document*>(&document);
  if (source == nullptr)
    return VEX_FAIL(vex::ErrorKind::IllegalArgument, "Illegal argument: the document was not made by this host");
  auto copy = std::make_unique<Document>(source->GetName());
  copy->SetPath(source->GetPath());
  copy->Settings() = source->Settings();
  for (const auto& object : source->Objects()) CopyInto(*copy, *object, Affine{}, nullptr);
  copy->SetChanged(false);
  return std::unique_ptr<vex::IDocument>(std::move(copy));
}

}  // namespace host
