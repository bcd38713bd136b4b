// The global import and global utilities components: neutral object
// descriptions become host objects of a document; the utilities expose the
// shared conversions, including the renderer's light units.
#pragma once

#include <string_view>

#include "vex/component.h"
#include "vex/data.h"
#include "vex/scene.h"

namespace interop::exchange {

inline constexpr std::string_view kGlobalImportClassId = "net.kelvo.exchange.globalimport";
inline constexpr std::string_view kGlobalUtilsClassId = "net.kelvo.exchange.globalutils";

vex::Result<vex::ComponentRef> CreateGlobalImport();
vex::Result<vex::ComponentRef> CreateGlobalUtils();

/// A relative transform: position, rotation (radians about x, y, z, x applied first) and scale.
struct Transform {
  vex::Vector3d position{0, 0, 0};
  vex::Vector3d rotation{0, 0, 0};
  vex::Vector3d scale{1, 1, 1};
};

/// The transform that places an object at the global transform `global` when it sits under
/// `parent` (its parents' relative transforms applied in turn); `global` itself for no parent.
/// Shear that a parent's non-uniform scale under rotation would need cannot be expressed and is lost.
Transform RelativeToParent(const vex::ISceneObject* parent, const Transform& global);

}  // namespace interop::exchange
