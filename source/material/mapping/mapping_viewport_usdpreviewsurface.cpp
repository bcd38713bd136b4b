// PENDING: conversion lands with its mapping issue.
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

class ViewportToUsdPreviewSurface final : public MappingBase {
 public:
  ViewportToUsdPreviewSurface() : MappingBase(classid::kViewportToUsdPreviewSurface, vex::bundle::kViewport, vex::bundle::kUsdPreviewSurface) {}
  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef&) override {
    return VEX_FAIL(vex::ErrorKind::Unknown, "Mapping " + classId_ + " has no conversion in this build");
  }
};

}  // namespace

vex::Result<vex::ComponentRef> CreateViewportToUsdPreviewSurface() { return vex::MakeComponent<ViewportToUsdPreviewSurface>(); }

}  // namespace interop::mapping
