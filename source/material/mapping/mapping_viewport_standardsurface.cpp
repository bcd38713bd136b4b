// PENDING: conversion lands with its mapping issue.
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

class ViewportToStandardSurface final : public MappingBase {
 public:
  ViewportToStandardSurface() : MappingBase(classid::kViewportToStandardSurface, vex::bundle::kViewport, vex::bundle::kStandardSurface) {}
  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef&) override {
    return VEX_FAIL(vex::ErrorKind::Unknown, "Mapping " + classId_ + " has no conversion in this build");
  }
};

}  // namespace

vex::Result<vex::ComponentRef> CreateViewportToStandardSurface() { return vex::MakeComponent<ViewportToStandardSurface>(); }

}  // namespace interop::mapping
