// PENDING: conversion lands with its mapping issue.
#include "material/mapping/mappings.h"
#include "material/mapping/materialmapping.h"

namespace interop::mapping {
namespace {

class CorvaneToObj final : public MappingBase {
 public:
  CorvaneToObj() : MappingBase(classid::kCorvaneToObj, vex::bundle::kCorvane, vex::bundle::kObj) {}
  vex::Result<vex::MappingOutput> MapMaterialData(const vex::ParameterSetRef&) override {
    return VEX_FAIL(vex::ErrorKind::Unknown, "Mapping " + classId_ + " has no conversion in this build");
  }
};

}  // namespace

vex::Result<vex::ComponentRef> CreateCorvaneToObj() { return vex::MakeComponent<CorvaneToObj>(); }

}  // namespace interop::mapping
