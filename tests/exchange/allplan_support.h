// Scenes, files and XML checks shared by the Allplan tests.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <pugixml.hpp>

#include "host/polygon_object.h"
#include "host/scene.h"
#include "vex/units.h"

namespace allplan_test {

struct TempDir {
  std::filesystem::path path;
  explicit TempDir(const std::string& tag)
      : path(std::filesystem::temp_directory_path() / ("allplan_" + tag + "_" + std::to_string(getpid()))) {
    std::filesystem::create_directories(path);
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
  }
  std::string File(const std::string& name) const { return (path / name).string(); }
};

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

/// A unit cube: 8 points, 6 quads, wound outwards.
inline vex::PolygonMesh Cube(double size = 1.0) {
  vex::PolygonMesh mesh;
  for (int i = 0; i < 8; ++i) mesh.points.push_back({(i & 1) * size, ((i >> 1) & 1) * size, ((i >> 2) & 1) * size});
  mesh.polygonSizes = {4, 4, 4, 4, 4, 4};
  mesh.polygonPoints = {0, 2, 3, 1, 4, 5, 7, 6, 0, 1, 5, 4, 2, 6, 7, 3, 0, 4, 6, 2, 1, 3, 7, 5};
  return mesh;
}

inline vex::PolygonMesh Triangle(vex::Vector3d a, vex::Vector3d b, vex::Vector3d c) {
  vex::PolygonMesh mesh;
  mesh.points = {a, b, c};
  mesh.polygonSizes = {3};
  mesh.polygonPoints = {0, 1, 2};
  return mesh;
}

inline void SetUnit(host::Document& document, const std::string& unit, double metres) {
  document.Settings().Set(vex::kDocumentLengthUnit, vex::Data::MakeCustom(vex::UnitScale{unit, metres}));
}

/// Parses a written file with a real XML parser; empty text on success, else the parser's complaint.
inline std::string ParseProblem(const std::string& path, pugi::xml_document& xml) {
  const auto result = xml.load_file(path.c_str());
  return result ? std::string() : std::string(result.description()) + " at " + std::to_string(result.offset);
}

}  // namespace allplan_test
