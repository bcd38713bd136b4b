// The entry protocol between the host and a module library.
#pragma once

#include <cstdint>

#include "vex/component.h"

namespace vex::entry {

/// Action codes of the entry function.
inline constexpr std::int32_t kSystemInit = 1;
inline constexpr std::int32_t kStart = 2;
inline constexpr std::int32_t kEnd = 3;
inline constexpr std::int32_t kQuery = 4;
inline constexpr std::int32_t kMessage = 6;

/// Results.
inline constexpr std::int32_t kOk = 1;
inline constexpr std::int32_t kFailed = 0;
inline constexpr std::int32_t kRefused = -3;
inline constexpr std::int32_t kUnhandled = -1;
inline constexpr std::int32_t kQueryAnswer = 5;

/// Message ids the module reacts to.
inline constexpr std::int32_t kMsgNone = 0;
inline constexpr std::int32_t kMsgLoadResources = 1;
inline constexpr std::int32_t kMsgEndActivity = 1001084;
inline constexpr std::int32_t kMsgBuildMenu = 1001188;

/// Data of the resource-loading message: the module clears `pointer` when its resource loaded.
struct ResourceMessageData {
  void* pointer = nullptr;
};

/// The entry function's signature.
using EntryFunction = std::int32_t (*)(std::int32_t action, void* p1, void* p2, void* p3);

/// Exported symbol names.
inline constexpr const char* kEntrySymbol = "vex_main";
inline constexpr const char* kFrameworkSymbol = "g_kelvo";
inline constexpr const char* kCpuYieldSymbol = "g_CpuYieldDelegate";

/// The type of the exported `g_CpuYieldDelegate`: what a module calls while it spins.
using CpuYieldDelegate = void (*)();

}  // namespace vex::entry
