// Module-wide state of the plug-in: the life-cycle counter, the host-side
// context object and the module's string resources.
#pragma once

#include <cstdint>
#include <string>

#include "vex/component.h"
#include "vex/host.h"

/// The module's framework state, exported to the host.
extern "C" vex::ModuleFramework g_kelvo;

namespace interop {

/// The context object made at system initialisation; holds what the host said about the module.
struct ModuleContext {
  vex::ModuleHostContext host;
  vex::StringTable strings;
  bool stringsLoaded = false;
};

/// The context, or nullptr outside an initialised life cycle.
ModuleContext* Context();

/// Loads the module's string resources (once); false when they cannot be loaded.
bool LoadResources();

/// A resource string by number: "StrNotFound" when missing (or when resources are unavailable).
std::string GetString(std::int32_t id);

/// Unit static-initialisation priorities: the declaration order of the units is fixed.
inline constexpr int kMainUnitPriority = 2001;
inline constexpr int kRegisterUnitPriority = 2002;
inline constexpr int kMaterialUnitPriority = 2003;
inline constexpr int kLightsUnitPriority = 2004;
inline constexpr int kCorvaneLightsUnitPriority = 2005;
inline constexpr int kGlobalImportUnitPriority = 2006;
inline constexpr int kConfigurationUnitPriority = 2007;

}  // namespace interop

#define INTEROP_UNIT_PRIORITY(p) __attribute__((init_priority(p)))
