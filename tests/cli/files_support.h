// Inputs for the file-format tests, made by the tests themselves: two Corvane sets (constants
// only, and textured with a checker, a roughness ramp and a bent normal map) and their PNGs; and
// the parse of a written .usda text that the tests share.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "host/images.h"

namespace files_test {

inline void WriteCorvaneInputs(const std::filesystem::path& dir) {
  std::filesystem::create_directories(dir);
  auto checker = vex::TextureBuffer::Make(8, 8);
  auto ramp = vex::TextureBuffer::Make(8, 8);
  auto normal = vex::TextureBuffer::Make(8, 8);
  for (std::size_t i = 0; i < 64; ++i) {
    const bool odd = ((i % 8) + (i / 8)) % 2 != 0;
    float* c = checker._pixels->Pixel(i);
    c[0] = odd ? 0.9f : 0.1f, c[1] = 0.2f, c[2] = odd ? 0.1f : 0.8f, c[3] = 1.0f;
    float* r = ramp._pixels->Pixel(i);
    r[0] = r[1] = r[2] = static_cast<float>(i % 8) / 7.0f, r[3] = 1.0f;
    float* n = normal._pixels->Pixel(i);
    n[0] = 0.6f, n[1] = 0.45f, n[2] = 0.95f, n[3] = 1.0f;
  }
  (void)host::WriteImage((dir / "checker.png").string(), checker, {.srgb = true});
  (void)host::WriteImage((dir / "ramp.png").string(), ramp, {});
  (void)host::WriteImage((dir / "normal.png").string(), normal, {});
  std::ofstream(dir / "corvane_plain.json") << R"({"bundle": "net.kelvo.material.portbundle.corvane",
 "parameters": {
  "diffuse_color": {"type": "Color", "value": [0.8, 0.3, 0.2]},
  "diffuse_weight": {"type": "Float", "value": 0.9},
  "fresnel_type": {"type": "String", "value": "metalness"},
  "metalness": {"type": "Float", "value": 0.6},
  "reflection_roughness": {"type": "Float", "value": 0.35},
  "emission_weight": {"type": "Float", "value": 0.5},
  "emission_color": {"type": "Color", "value": [1.0, 0.5, 0.25]},
  "opacity": {"type": "Color", "value": [0.7, 0.7, 0.7]}}})";
  std::ofstream(dir / "corvane_textured.json") << R"({"bundle": "net.kelvo.material.portbundle.corvane",
 "parameters": {
  "diffuse_color": {"type": "Color", "value": [1, 1, 1], "texture": "checker.png"},
  "reflection_roughness": {"type": "Float", "value": 0.5, "texture": "ramp.png"},
  "overall_normal": {"type": "Color", "value": [0.5, 0.5, 1], "texture": "normal.png"},
  "overall_normal_weight": {"type": "Float", "value": 0.7},
  "emission_weight": {"type": "Float", "value": 3.0},
  "emission_color": {"type": "Color", "value": [0.2, 0.4, 0.1]}}})";
}

/// The .usda text: prim path -> attribute -> value text. The header and balanced braces are
/// expected.
inline std::map<std::string, std::map<std::string, std::string>> ParseUsda(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(in)), {});
  EXPECT_EQ(text.rfind("#usda 1.0\n", 0), 0u) << path;
  std::map<std::string, std::map<std::string, std::string>> prims;
  std::vector<std::string> stack;
  std::string pending;
  const std::regex def(R"re(^\s*def (\w+) "(\w+)")re");
  const std::regex attribute(R"re(^\s*(?:uniform )?[\w\[\]0-9]+ ([\w:.]+) = (.*)$)re");
  std::istringstream lines(text);
  int depth = 0;
  for (std::string line; std::getline(lines, line);) {
    std::smatch m;
    if (std::regex_search(line, m, def)) pending = m[2];
    if (line.find('{') != std::string::npos) {
      stack.push_back(pending);
      ++depth;
    } else if (line.find('}') != std::string::npos) {
      if (!stack.empty()) stack.pop_back();
      --depth;
    } else if (std::regex_search(line, m, attribute) && !stack.empty()) {
      std::string prim;
      for (const auto& s : stack) prim += "/" + s;
      prims[prim][m[1]] = m[2];
    }
  }
  EXPECT_EQ(depth, 0) << path;
  return prims;
}

}  // namespace files_test
