// PENDING: conversion lands with its mapping issue.
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

class CorvaneToUsdPreviewSurface final : public MappingBase {
 public:
  CorvaneToUsdPreviewSurface() : MappingBase(classid::kCorvaneToUsdPreviewSurface, vex::bundle::kCorvane, vex::bundle::kUsdPreviewSurface) {}
  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef&) override {
    return VEX_FAIL(vex::ErrorKind::Unknown, "Mapping " + classId_ + " has no conversion in this build");
  }
};

}  // namespace

vex::Result<vex::ComponentRef> CreateCorvaneToUsdPreviewSurface() { return vex::MakeComponent<CorvaneToUsdPreviewSurface>(); }

}  // namespace interop::mapping
