// Path handling of the exchange: paths arrive with "\" from ArchiCAD's side and
// with "/" from the host, and the hand-back target always ends in ".vex".
#include <gtest/gtest.h>

#include "exchange/archicad_exchange.h"

namespace {

using namespace interop::exchange;

TEST(ArchiCadPaths, SuffixDirectoryAndJoinWithEitherSeparator) {
  EXPECT_EQ(WithSuffix("C:\\a.b\\scene", "vex"), "C:\\a.b\\scene.vex");  // a dot in a directory is no suffix
  EXPECT_EQ(WithSuffix("C:\\a\\plan.pln", "vex"), "C:\\a\\plan.vex");
  EXPECT_EQ(WithSuffix("/tmp/x.y/house.vex", "vex"), "/tmp/x.y/house.vex");
  EXPECT_EQ(WithSuffix("house", "vex"), "house.vex");
  EXPECT_EQ(DirectoryOf("C:\\a\\b/scene.vex"), "C:\\a\\b");
  EXPECT_EQ(DirectoryOf("scene.vex"), "");
  EXPECT_EQ(JoinPath("C:\\AC\\temp", "f.vex"), "C:\\AC\\temp\\f.vex");
  EXPECT_EQ(JoinPath("/home/u/", "f.vex"), "/home/u/f.vex");
  EXPECT_EQ(JoinPath("", "f.vex"), "f.vex");
}

}  // namespace
