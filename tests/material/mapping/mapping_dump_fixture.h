// A fixture for the mapping dumps: a fresh directory per test, the setting that names the dump
// directory cleared again afterwards, and the directory's file names in order.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "test_host.h"

namespace testing_support {

class MappingDumpTest : public ::testing::Test {
 protected:
  MappingDumpTest(std::string_view setting, std::string_view directoryPrefix)
      : setting_(setting), prefix_(directoryPrefix) {}

  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() /
           (prefix_ + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override {
    ASSERT_TRUE(Host().config().SetString(setting_, ""));
    std::filesystem::remove_all(dir_);
  }

  /// Points the setting at `path`.
  void SetPath(const std::filesystem::path& path) const {
    ASSERT_TRUE(Host().config().SetString(setting_, path.string()));
  }

  static std::vector<std::string> Files(const std::filesystem::path& dir) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }

  std::filesystem::path dir_;

 private:
  std::string setting_;
  std::string prefix_;
};

}  // namespace testing_support
