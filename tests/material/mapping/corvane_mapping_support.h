// Small fixtures shared by the Corvane mapping tests: sets, 2x2 textures, a
// mapping run through the component system, and the diagnostic lines a run
// wrote.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "test_host.h"
#include "vex/interfaces.h"
#include "vex/lookup.h"
#include "vex/material.h"

namespace corvane_test {

using Pixel = std::array<float, 4>;

inline std::shared_ptr<vex::ParameterSet> Corvane() {
  return std::make_shared<vex::ParameterSet>(vex::Id(vex::bundle::kCorvane));
}

/// A 2x2 texture of one colour.
inline vex::TextureBuffer Tex(Pixel fill, std::int64_t width = 2, std::int64_t height = 2) {
  return vex::TextureBuffer::Make(width, height, fill);
}

/// A 2x2 texture with four different pixels.
inline vex::TextureBuffer Tex4(Pixel p0, Pixel p1, Pixel p2, Pixel p3) {
  auto t = vex::TextureBuffer::Make(2, 2);
  const std::array<Pixel, 4> pixels{p0, p1, p2, p3};
  for (std::size_t i = 0; i < 4; ++i)
    for (std::size_t c = 0; c < 4; ++c) t._pixels->Pixel(i)[c] = pixels[i][c];
  return t;
}

template <class T>
vex::Parameter Textured(T constant, const vex::TextureBuffer& texture) {
  return vex::Parameter::Textured(vex::PackedConstantParameter(std::move(constant)), texture);
}

inline Pixel PixelOf(const vex::TextureBuffer& t, std::size_t i) {
  const float* p = t._pixels->Pixel(i);
  return {p[0], p[1], p[2], p[3]};
}

/// The T constant of a target port (fails the test when absent or of another type).
template <class T>
T Const(const vex::ParameterSet& set, std::string_view port) {
  const vex::Parameter* p = set.Find(port);
  if (p == nullptr || p->Constant() == nullptr || p->Constant()->Get<T>() == nullptr) {
    ADD_FAILURE() << "no constant of the expected type on \"" << port << "\"";
    return T{};
  }
  return *p->Constant()->Get<T>();
}

inline const vex::TextureBuffer* TextureOn(const vex::ParameterSet& set, std::string_view port) {
  const vex::Parameter* p = set.Find(port);
  return (p != nullptr && p->texture) ? &*p->texture : nullptr;
}

/// Runs a mapping class of the module on a set.
inline vex::Result<vex::MappingOutput> Map(std::string_view classId, const std::shared_ptr<vex::ParameterSet>& set) {
  auto mapping = vex::CreateAs<vex::IMaterialMapping>(classId);
  if (!mapping) return std::unexpected(mapping.error());
  return (*mapping)->MapMaterialData(set);
}

/// Console lines written since the last reset.
inline std::vector<std::string> ConsoleLines() { return testing_support::Host().console().Lines(); }

/// Whether `line` is the diagnostic `text` from `unit`.
inline bool IsDiagnostic(const std::string& line, std::string_view text, std::string_view unit) {
  return line.starts_with(std::string(text) + " [" + std::string(unit) + ":");
}

}  // namespace corvane_test
