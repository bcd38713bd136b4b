// The Corvane light object class: a neutral light description becomes a
// Corvane light (host object type 1036751) with every attribute written into
// its parameter.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "lights/lights_impl.h"

namespace interop::lights {

inline constexpr std::string_view kCorvaneLightClassId = "net.kelvo.tessel.vexobjectclasses.corvanearealight";

/// One row of the attribute-to-parameter table: the description attribute, the Corvane light
/// parameter it is written into, and how many times in a row the write is made.
struct CorvaneLightRow {
  int number;
  LightAttr attr;
  std::int32_t parameter;
  int times = 1;
};

/// The rows in the order they are written (intensity last).
extern const std::array<CorvaneLightRow, 90> kCorvaneLightRows;

vex::Result<vex::ComponentRef> CreateCorvaneLightClass();

/// Writes rows 1 to 90 of the description into the object. Success without a write when the
/// object is missing or the description is empty; stops at the first failing read or write (what
/// was written stays written).
vex::Result<void> FillCorvaneLight(vex::ISceneObject* object, const vex::tessel::VEXObjectDescription& description);

}  // namespace interop::lights
