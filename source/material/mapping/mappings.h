// The mapping classes of the module, in their declaration order.
#pragma once

#include <array>
#include <string_view>

#include "vex/component.h"
#include "vex/material.h"

namespace interop::mapping {

namespace classid {
inline constexpr std::string_view kViewportToFbxPhong = "net.kelvo.material.class.materialmapping.viewport.to.fbxphong";
inline constexpr std::string_view kViewportToStandardSurface =
    "net.kelvo.material.class.materialmapping.viewport.to.standardsurface";
inline constexpr std::string_view kViewportToUsdPreviewSurface =
    "net.kelvo.material.class.materialmapping.viewport.to.usdpreviewsurface";
inline constexpr std::string_view kCorvaneToUsdPreviewSurface =
    "net.kelvo.material.class.materialmapping.corvane.to.usdpreviewsurface";
inline constexpr std::string_view kViewportToGltfPbr = "net.kelvo.material.class.materialmapping.viewport.to.gltfpbr";
inline constexpr std::string_view kCorvaneToGltfPbr = "net.kelvo.material.class.materialmapping.corvane.to.gltfpbr";
inline constexpr std::string_view kCorvaneToObj = "net.kelvo.material.class.materialmapping.corvane.to.obj";
}  // namespace classid

vex::Result<vex::ComponentRef> CreateViewportToFbxPhong();
vex::Result<vex::ComponentRef> CreateViewportToStandardSurface();
vex::Result<vex::ComponentRef> CreateViewportToUsdPreviewSurface();
vex::Result<vex::ComponentRef> CreateCorvaneToUsdPreviewSurface();
vex::Result<vex::ComponentRef> CreateViewportToGltfPbr();
vex::Result<vex::ComponentRef> CreateCorvaneToGltfPbr();
vex::Result<vex::ComponentRef> CreateCorvaneToObj();

struct MappingClass {
  std::string_view classId;
  std::string_view source;
  std::string_view target;
  vex::ComponentFactory factory;
};

/// Declaration order of the mapping classes.
inline const std::array<MappingClass, 7> kMappingClasses = {{
    {classid::kViewportToFbxPhong, vex::bundle::kViewport, vex::bundle::kFbxPhong, &CreateViewportToFbxPhong},
    {classid::kViewportToStandardSurface, vex::bundle::kViewport, vex::bundle::kStandardSurface,
     &CreateViewportToStandardSurface},
    {classid::kViewportToUsdPreviewSurface, vex::bundle::kViewport, vex::bundle::kUsdPreviewSurface,
     &CreateViewportToUsdPreviewSurface},
    {classid::kCorvaneToUsdPreviewSurface, vex::bundle::kCorvane, vex::bundle::kUsdPreviewSurface,
     &CreateCorvaneToUsdPreviewSurface},
    {classid::kViewportToGltfPbr, vex::bundle::kViewport, vex::bundle::kGltf, &CreateViewportToGltfPbr},
    {classid::kCorvaneToGltfPbr, vex::bundle::kCorvane, vex::bundle::kGltf, &CreateCorvaneToGltfPbr},
    {classid::kCorvaneToObj, vex::bundle::kCorvane, vex::bundle::kObj, &CreateCorvaneToObj},
}};

}  // namespace interop::mapping
