// Staged output: whole or nothing, the parent directories it made gone again on failure, and the
// scratch of a killed run removed when the same target is staged again.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/staged_output.h"

namespace fs = std::filesystem;

namespace {

std::string Read(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void Write(const fs::path& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

class Staged : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("staged_output_" + std::to_string(getpid()) + "_" +
                                       ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir);
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }
  fs::path dir;
};

TEST_F(Staged, NothingIsVisibleBeforeTheCommitAndEverythingAfter) {
  const fs::path file = dir / "a" / "b" / "set.json";
  const fs::path folder = dir / "a" / "files";
  host::StagedOutput staged;
  auto f = staged.Stage(file.string(), host::StagedOutput::Kind::File);
  auto d = staged.Stage(folder.string(), host::StagedOutput::Kind::Directory);
  ASSERT_TRUE(f && d);
  EXPECT_EQ(fs::path(staged.Scratch(*f)).filename(), ".vexinterop-partial-set.json");
  EXPECT_EQ(fs::path(staged.Scratch(*f)).parent_path(), file.parent_path());
  Write(staged.Scratch(*f), "new");
  Write(fs::path(staged.Scratch(*d)) / "inside.txt", "x");
  EXPECT_FALSE(fs::exists(file));
  EXPECT_FALSE(fs::exists(folder));
  ASSERT_TRUE(staged.CommitAll());
  EXPECT_EQ(Read(file), "new");
  EXPECT_EQ(Read(folder / "inside.txt"), "x");
  // Committed output outlives the staging, and so do the directories it lives in.
  staged.Discard();
  EXPECT_TRUE(fs::exists(file));
  for (const auto& entry : fs::recursive_directory_iterator(dir))
    EXPECT_EQ(entry.path().filename().string().find(".vexinterop-partial-"), std::string::npos) << entry.path();
}

TEST_F(Staged, ACommitReplacesFilesAndFoldersWhole) {
  const fs::path file = dir / "out.txt";
  const fs::path folder = dir / "folder";
  Write(file, "old");
  fs::create_directories(folder);
  Write(folder / "stale.txt", "stale");
  host::StagedOutput staged;
  auto f = staged.Stage(file.string(), host::StagedOutput::Kind::File);
  auto d = staged.Stage(folder.string(), host::StagedOutput::Kind::Directory);
  ASSERT_TRUE(f && d);
  Write(staged.Scratch(*f), "new");
  Write(fs::path(staged.Scratch(*d)) / "fresh.txt", "fresh");
  EXPECT_EQ(Read(file), "old");
  ASSERT_TRUE(staged.CommitAll());
  EXPECT_EQ(Read(file), "new");
  EXPECT_TRUE(fs::exists(folder / "fresh.txt"));
  EXPECT_FALSE(fs::exists(folder / "stale.txt"));
  EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 2);
}

TEST_F(Staged, AFailureLeavesNothingNotEvenTheDirectoriesItMade) {
  const fs::path deep = dir / "made" / "for" / "this";
  fs::create_directories(dir / "kept");
  Write(dir / "kept" / "existing.txt", "mine");
  {
    host::StagedOutput staged;
    auto a = staged.Stage((deep / "report.md").string(), host::StagedOutput::Kind::File);
    auto b = staged.Stage((dir / "kept" / "existing.txt").string(), host::StagedOutput::Kind::File);
    ASSERT_TRUE(a && b);
    Write(staged.Scratch(*a), "half");
    Write(staged.Scratch(*b), "half");
    EXPECT_TRUE(fs::exists(deep));
    // Going away without a commit is a failure.
  }
  EXPECT_FALSE(fs::exists(dir / "made"));
  EXPECT_EQ(Read(dir / "kept" / "existing.txt"), "mine");
  EXPECT_EQ(std::distance(fs::directory_iterator(dir / "kept"), fs::directory_iterator()), 1);

  // A commit that finds nothing written fails and discards.
  host::StagedOutput staged;
  auto c = staged.Stage((deep / "never.txt").string(), host::StagedOutput::Kind::File);
  ASSERT_TRUE(c);
  auto committed = staged.Commit(*c);
  ASSERT_FALSE(committed);
  EXPECT_NE(committed.error().message.find("never.txt"), std::string::npos) << committed.error().message;
  staged.Discard();
  EXPECT_FALSE(fs::exists(dir / "made"));
}

TEST_F(Staged, ScratchOfAKilledRunGoesWhenTheTargetIsStagedAgain) {
  const fs::path target = dir / "scene.vex";
  const fs::path folder = dir / "gltf";
  // What a run killed half-way leaves: its scratch file and a half-filled scratch folder.
  Write(host::StagedOutput::ScratchFor(target.string()), "half");
  fs::create_directories(host::StagedOutput::ScratchFor(folder.string()));
  Write(fs::path(host::StagedOutput::ScratchFor(folder.string())) / "half.bin", "half");
  host::StagedOutput staged;
  auto f = staged.Stage(target.string(), host::StagedOutput::Kind::File);
  auto d = staged.Stage(folder.string(), host::StagedOutput::Kind::Directory);
  ASSERT_TRUE(f && d);
  EXPECT_FALSE(fs::exists(staged.Scratch(*f)));
  EXPECT_TRUE(fs::is_empty(staged.Scratch(*d)));
  staged.Discard();
  EXPECT_TRUE(fs::is_empty(dir));
}

TEST_F(Staged, TargetsOfTheWrongKindAreRefusedWithTheirPath) {
  fs::create_directories(dir / "adir");
  Write(dir / "afile", "x");
  host::StagedOutput staged;
  auto asFile = staged.Stage((dir / "adir").string(), host::StagedOutput::Kind::File);
  ASSERT_FALSE(asFile);
  EXPECT_NE(asFile.error().message.find("adir: cannot write: is a directory"), std::string::npos) << asFile.error().message;
  auto asDir = staged.Stage((dir / "afile").string(), host::StagedOutput::Kind::Directory);
  ASSERT_FALSE(asDir);
  EXPECT_NE(asDir.error().message.find("afile: cannot write: exists and is not a directory"), std::string::npos);
  // A parent that is a file: no directory can be made there.
  auto under = staged.Stage((dir / "afile" / "x.json").string(), host::StagedOutput::Kind::File);
  ASSERT_FALSE(under);
  EXPECT_NE(under.error().message.find("afile"), std::string::npos) << under.error().message;
  ASSERT_TRUE(host::WriteFileStaged((dir / "one" / "two.txt").string(), "text"));
  EXPECT_EQ(Read(dir / "one" / "two.txt"), "text");
}

}  // namespace
