// The reference host the in-process benchmarks share: bound once to the module compiled into
// the benchmark, two workers, no console output. A bind failure ends the run.
#pragma once

#include <cstdlib>
#include <iostream>

#include "frame/module.h"
#include "host/reference_host.h"

namespace bench {

inline host::ReferenceHost& BenchHost() {
  static host::ReferenceHost* h = [] {
    host::HostOptions options;
    options.threads = 2;
    options.quiet = true;
    auto* made = new host::ReferenceHost(options);
    if (auto bound = made->BindInProcess(g_kelvo); !bound) {
      std::cerr << "cannot bind the reference host: " << bound.error().Describe() << '\n';
      std::abort();
    }
    return made;
  }();
  return *h;
}

}  // namespace bench
