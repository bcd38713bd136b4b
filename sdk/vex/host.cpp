// Glue every binary that talks to the host carries: the bound host tables and
// the id helpers that go through them.
#include "vex/host.h"

#include <cstdio>
#include <cstdlib>

namespace vex {
namespace {
const HostApi* g_host = nullptr;
}  // namespace

void BindHost(const HostApi* api) { g_host = api; }
bool IsHostBound() { return g_host != nullptr; }

const HostApi& Host() {
  if (g_host == nullptr) {
    std::fputs("vex: host tables used before system initialisation\n", stderr);
    std::abort();
  }
  return *g_host;
}

InternedId InternedId::Intern(std::string_view text) { return Host().ids->Intern(text); }

InternedId InternedId::MakeUninterned(std::string text, std::uint64_t hash) {
  InternedId id;
  id.owner_ = std::make_shared<const IdEntry>(IdEntry{std::move(text), hash});
  id.entry_ = id.owner_.get();
  return id;
}

}  // namespace vex
