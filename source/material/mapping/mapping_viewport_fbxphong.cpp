// PENDING: conversion lands with its mapping issue.
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

class ViewportToFbxPhong final : public MappingBase {
 public:
  ViewportToFbxPhong() : MappingBase(classid::kViewportToFbxPhong, vex::bundle::kViewport, vex::bundle::kFbxPhong) {}
  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef&) override {
    return VEX_FAIL(vex::ErrorKind::Unknown, "Mapping " + classId_ + " has no conversion in this build");
  }
};

}  // namespace

vex::Result<vex::ComponentRef> CreateViewportToFbxPhong() { return vex::MakeComponent<ViewportToFbxPhong>(); }

}  // namespace interop::mapping
