// PENDING: conversion lands with its mapping issue.
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

class CorvaneToGltfPbr final : public MappingBase {
 public:
  CorvaneToGltfPbr() : MappingBase(classid::kCorvaneToGltfPbr, vex::bundle::kCorvane, vex::bundle::kGltf) {}
  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef&) override {
    return VEX_FAIL(vex::ErrorKind::Unknown, "Mapping " + classId_ + " has no conversion in this build");
  }
};

}  // namespace

vex::Result<vex::ComponentRef> CreateCorvaneToGltfPbr() { return vex::MakeComponent<CorvaneToGltfPbr>(); }

}  // namespace interop::mapping
