// FBX (binary or text) through the material reader and the mesh import.
#include "fuzz_support.h"
#include "host/formats/catalogue.h"
#include "host/mesh_import.h"
#include "host/scene.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string path =
      fuzz::WriteScratch("model.fbx", std::string_view(reinterpret_cast<const char*>(data), size));
  (void)host::formats::ReadFormatFile(path, fuzz::Bundles());
  host::Documents documents;
  if (auto document = host::mesh_import::Load(documents, path, fuzz::HostUnits())) documents.Close(*document);
  return 0;
}
