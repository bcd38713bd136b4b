#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "frame/module.h"
#include "test_host.h"

namespace testing_support {
namespace {

host::ReferenceHost* g_host = nullptr;

class HostEnvironment final : public ::testing::Environment {
 public:
  void SetUp() override {
    host::HostOptions options;
    options.quiet = true;
    g_host = new host::ReferenceHost(options);
    if (auto bound = g_host->BindInProcess(g_kelvo); !bound) {
      std::cerr << "cannot bind the reference host: " << bound.error().Describe() << '\n';
      std::abort();
    }
  }
  void TearDown() override {
    delete g_host;
    g_host = nullptr;
  }
};

}  // namespace

host::ReferenceHost& Host() { return *g_host; }

void ResetHostRecords() {
  g_host->console().Clear();
  g_host->dialogs().Clear();
}

}  // namespace testing_support

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  ::testing::AddGlobalTestEnvironment(new testing_support::HostEnvironment());
  return RUN_ALL_TESTS();
}
