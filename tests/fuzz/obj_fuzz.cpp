// OBJ with its MTL (two texts split at a NUL byte) through the material reader and the mesh
// import; the material names are then written as JSON, as a scene saving them would.
#include "fuzz_support.h"
#include "host/formats/catalogue.h"
#include "host/json_text.h"
#include "host/mesh_import.h"
#include "host/scene.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto parts = fuzz::Split(data, size, 2);
  fuzz::WriteScratch("model.mtl", parts[1]);
  const std::string path = fuzz::WriteScratch("model.obj", parts[0]);
  if (auto scene = host::formats::ReadFormatFile(path, fuzz::Bundles())) {
    nlohmann::json names = nlohmann::json::array();
    for (const auto& m : scene->materials) names.push_back(m.name);
    (void)host::DumpJsonText(names);
  }
  host::Documents documents;
  if (auto document = host::mesh_import::Load(documents, path, fuzz::HostUnits())) documents.Close(*document);
  return 0;
}
