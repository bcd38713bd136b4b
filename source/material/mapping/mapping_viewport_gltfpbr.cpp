// PENDING: conversion lands with its mapping issue.
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

class ViewportToGltfPbr final : public MappingBase {
 public:
  ViewportToGltfPbr() : MappingBase(classid::kViewportToGltfPbr, vex::bundle::kViewport, vex::bundle::kGltf) {}
  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef&) override {
    return VEX_FAIL(vex::ErrorKind::Unknown, "Mapping " + classId_ + " has no conversion in this build");
  }
};

}  // namespace

vex::Result<vex::ComponentRef> CreateViewportToGltfPbr() { return vex::MakeComponent<ViewportToGltfPbr>(); }

}  // namespace interop::mapping
