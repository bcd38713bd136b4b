// Fixtures shared by the viewport mapping tests: viewport sets, interned and
// colliding types, and the defaults-table lookups. The constant, texture and
// run helpers come from the Corvane mapping tests.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "corvane_mapping_support.h"
#include "material/mapping/mappings.h"
#include "vex/host.h"

namespace viewport_test {

using namespace corvane_test;

inline std::shared_ptr<vex::ParameterSet> Viewport() {
  return std::make_shared<vex::ParameterSet>(vex::Id(vex::bundle::kViewport));
}

/// A viewport set of the given type (interned through the host's id table).
inline std::shared_ptr<vex::ParameterSet> Viewport(std::string_view type) {
  auto set = Viewport();
  set->SetConstant("type", vex::InternedId::Intern(type));
  return set;
}

/// A type that has the hash of `known` but is not the interned id.
inline vex::InternedId Colliding(std::string_view known) {
  return vex::InternedId::MakeUninterned("foreign " + std::string(known), vex::HashId(known));
}

/// The target ports of a result, in order.
inline std::vector<std::string> Ports(const vex::ParameterSet& set) {
  std::vector<std::string> names;
  for (const auto& [port, unused] : set.Entries()) names.push_back(port);
  return names;
}

/// The recorded source ports of a defaults table, in order.
inline std::vector<std::string> Recorded(const vex::DefaultsTable& table) {
  std::vector<std::string> names;
  for (const auto& e : table.entries) names.push_back(e.sourcePort);
  return names;
}

/// The target port a source port's default was recorded against ("" when not recorded).
inline std::string RecordedAgainst(const vex::DefaultsTable& table, std::string_view sourcePort) {
  const vex::DefaultUse* use = table.Find(sourcePort);
  return use ? use->targetPort : std::string();
}

template <class T>
T RecordedValue(const vex::DefaultsTable& table, std::string_view sourcePort) {
  const vex::DefaultUse* use = table.Find(sourcePort);
  if (use == nullptr || use->value.Get<T>() == nullptr) {
    ADD_FAILURE() << "no recorded default of the expected type for \"" << sourcePort << "\"";
    return T{};
  }
  return *use->value.Get<T>();
}

}  // namespace viewport_test
