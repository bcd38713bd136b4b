// The locating routine's cases, written once and run against two registries:
// the reference host's described registry (unit tests) and the real registry
// of Windows (the MinGW build, under Wine).
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "exchange/archicad_locate.h"

namespace locate_cases {

/// A registry the cases write (under the current user's hive) and the routine reads.
class Fixture {
 public:
  virtual ~Fixture() = default;
  /// Removes "Software\Graphisoft" with everything below it.
  virtual void Clear() = 0;
  virtual void SetString(const std::string& key, const std::string& name, const std::string& text) = 0;
  virtual void CreateKey(const std::string& key) = 0;
  virtual vex::IRegistry& Registry() = 0;
};

/// Counts open keys and records every path asked for, around any registry.
class Counting final : public vex::IRegistry {
 public:
  explicit Counting(vex::IRegistry& inner) : inner_(inner) {}
  vex::Result<vex::RegistryKey> OpenCurrentUserKey(std::string_view path) override {
    asked.emplace_back(path);
    auto key = inner_.OpenCurrentUserKey(path);
    if (key) ++open;
    return key;
  }
  vex::Result<vex::RegistryValue> EnumValue(vex::RegistryKey key, std::uint32_t index) override {
    return inner_.EnumValue(key, index);
  }
  vex::Result<std::size_t> QueryValue(vex::RegistryKey key, std::string_view name, std::span<char> buffer) override {
    return inner_.QueryValue(key, name, buffer);
  }
  void CloseKey(vex::RegistryKey key) override {
    --open;
    inner_.CloseKey(key);
  }
  std::vector<std::string> asked;
  int open = 0;

 private:
  vex::IRegistry& inner_;
};

inline const std::string k64 = "Software\\Graphisoft\\ArchiCAD-64";
inline const std::string k32 = "Software\\Graphisoft\\ArchiCAD";

/// The routine's buffer inside a larger one whose tail must never change.
struct GuardedBuffer {
  static constexpr char kCanary = '\x5A';
  std::array<char, interop::exchange::kProgramPathSize + 64> bytes;
  GuardedBuffer() { bytes.fill(kCanary); }
  std::span<char, interop::exchange::kProgramPathSize> Span() {
    return std::span<char, interop::exchange::kProgramPathSize>(bytes.data(), interop::exchange::kProgramPathSize);
  }
  bool TailIntact() const {
    return std::all_of(bytes.begin() + interop::exchange::kProgramPathSize, bytes.end(),
                       [](char c) { return c == kCanary; });
  }
  std::string Text() const { return std::string(bytes.data()); }
};

struct Outcome {
  bool found = false;
  std::string path;
  std::vector<std::string> asked;
  int leftOpen = 0;
  bool tailIntact = true;
};

inline Outcome Locate(Fixture& f, bool checkOnly) {
  Counting counting(f.Registry());
  GuardedBuffer buffer;
  Outcome o;
  o.found = interop::exchange::LocateArchiCad(counting, checkOnly, buffer.Span());
  o.path = o.found && !checkOnly ? buffer.Text() : std::string();
  o.asked = counting.asked;
  o.leftOpen = counting.open;
  o.tailIntact = buffer.TailIntact();
  return o;
}

inline void NoKeyMeansNotFound(Fixture& f) {
  f.Clear();
  for (const bool checkOnly : {true, false}) {
    const Outcome o = Locate(f, checkOnly);
    EXPECT_FALSE(o.found);
    EXPECT_EQ(o.asked, (std::vector<std::string>{k64, k32}));
    EXPECT_EQ(o.leftOpen, 0);
  }
}

inline void SixtyFourBitKeyWinsAndTheOtherIsNeverConsulted(Fixture& f) {
  f.Clear();
  f.SetString(k64, "Last Started Version", "27.0.0 INT FULL");
  f.SetString(k64 + "\\27.0.0 INT FULL", "", "C:\\Program Files\\Graphisoft\\ArchiCAD 27\\ArchiCAD.exe");
  f.SetString(k32, "Last Started Version", "19.0.0 INT FULL");
  f.SetString(k32 + "\\19.0.0 INT FULL", "", "C:\\Program Files (x86)\\ArchiCAD 19\\ArchiCAD.exe");
  const Outcome full = Locate(f, false);
  EXPECT_TRUE(full.found);
  EXPECT_EQ(full.path, "C:\\Program Files\\Graphisoft\\ArchiCAD 27\\ArchiCAD.exe");
  EXPECT_EQ(full.asked, (std::vector<std::string>{k64, k64 + "\\27.0.0 INT FULL"}));
  EXPECT_EQ(full.leftOpen, 0);
  const Outcome check = Locate(f, true);
  EXPECT_TRUE(check.found);
  EXPECT_EQ(check.asked, (std::vector<std::string>{k64}));
  EXPECT_EQ(check.leftOpen, 0);
}

inline void ThirtyTwoBitKeyWhenTheOtherIsMissing(Fixture& f) {
  f.Clear();
  f.SetString(k32, "Other", "x");
  f.SetString(k32, "Last Started Version", "19");
  f.SetString(k32, "After", "y");
  f.SetString(k32 + "\\19", "", "D:\\AC19\\ArchiCAD.exe");
  const Outcome o = Locate(f, false);
  EXPECT_TRUE(o.found);
  EXPECT_EQ(o.path, "D:\\AC19\\ArchiCAD.exe");
  EXPECT_EQ(o.asked, (std::vector<std::string>{k64, k32, k32 + "\\19"}));
  EXPECT_EQ(o.leftOpen, 0);
}

// Without "Last Started Version" check-only says not found, while full mode takes the last
// value's data as the version.
inline void FullModeFallsBackToTheLastValue(Fixture& f) {
  f.Clear();
  f.SetString(k64, "Install Language", "INT");
  f.SetString(k64, "Last Version", "26");
  f.SetString(k64 + "\\26", "", "C:\\AC26\\ArchiCAD.exe");
  EXPECT_FALSE(Locate(f, true).found);
  EXPECT_EQ(Locate(f, true).leftOpen, 0);
  const Outcome o = Locate(f, false);
  EXPECT_TRUE(o.found);
  EXPECT_EQ(o.path, "C:\\AC26\\ArchiCAD.exe");
  // A key without values at all names no version.
  f.Clear();
  f.CreateKey(k64);
  const Outcome empty = Locate(f, false);
  EXPECT_FALSE(empty.found);
  EXPECT_EQ(empty.asked, (std::vector<std::string>{k64}));
  EXPECT_EQ(empty.leftOpen, 0);
}

inline void MissingSubKeyClosesAndMissingDefaultLeavesKeysOpen(Fixture& f) {
  f.Clear();
  f.SetString(k64, "Last Started Version", "27");
  Outcome o = Locate(f, false);
  EXPECT_FALSE(o.found);
  EXPECT_EQ(o.leftOpen, 0);
  // The sub-key exists without a default value: the read fails and returns with both keys open.
  f.SetString(k64 + "\\27", "Build", "7000");
  o = Locate(f, false);
  EXPECT_FALSE(o.found);
  EXPECT_EQ(o.leftOpen, 2);
}

inline void ValueLargerThanTheBufferIsNeverWrittenPastIt(Fixture& f) {
  f.Clear();
  f.SetString(k64, "Last Started Version", "27");
  // 1022 characters and the terminator: one byte too many.
  f.SetString(k64 + "\\27", "", std::string(interop::exchange::kProgramPathSize, 'p'));
  Outcome o = Locate(f, false);
  EXPECT_FALSE(o.found);
  EXPECT_TRUE(o.tailIntact);
  EXPECT_EQ(o.leftOpen, 2);  // a failed read of the default value
  // 1021 characters and the terminator fill the buffer exactly.
  f.SetString(k64 + "\\27", "", std::string(interop::exchange::kProgramPathSize - 1, 'q'));
  o = Locate(f, false);
  EXPECT_TRUE(o.found);
  EXPECT_EQ(o.path, std::string(interop::exchange::kProgramPathSize - 1, 'q'));
  EXPECT_TRUE(o.tailIntact);
  EXPECT_EQ(o.leftOpen, 0);
}

}  // namespace locate_cases

/// Defines the tests of every case for a suite whose fixture class is `FixtureType`.
#define LOCATE_CASES(Suite, FixtureType)                                                                    \
  TEST(Suite, NoKeyMeansNotFound) {                                                                          \
    FixtureType f;                                                                                           \
    locate_cases::NoKeyMeansNotFound(f);                                                                     \
  }                                                                                                          \
  TEST(Suite, SixtyFourBitKeyWinsAndTheOtherIsNeverConsulted) {                                              \
    FixtureType f;                                                                                           \
    locate_cases::SixtyFourBitKeyWinsAndTheOtherIsNeverConsulted(f);                                         \
  }                                                                                                          \
  TEST(Suite, ThirtyTwoBitKeyWhenTheOtherIsMissing) {                                                        \
    FixtureType f;                                                                                           \
    locate_cases::ThirtyTwoBitKeyWhenTheOtherIsMissing(f);                                                   \
  }                                                                                                          \
  TEST(Suite, FullModeFallsBackToTheLastValue) {                                                             \
    FixtureType f;                                                                                           \
    locate_cases::FullModeFallsBackToTheLastValue(f);                                                        \
  }                                                                                                          \
  TEST(Suite, MissingSubKeyClosesAndMissingDefaultLeavesKeysOpen) {                                          \
    FixtureType f;                                                                                           \
    locate_cases::MissingSubKeyClosesAndMissingDefaultLeavesKeysOpen(f);                                     \
  }                                                                                                          \
  TEST(Suite, ValueLargerThanTheBufferIsNeverWrittenPastIt) {                                                \
    FixtureType f;                                                                                           \
    locate_cases::ValueLargerThanTheBufferIsNeverWrittenPastIt(f);                                           \
  }
