#include "host/material_exchange.h"

#include <filesystem>

#include "vex/host.h"
#include "vex/interfaces.h"
#include "vex/lookup.h"

namespace fs = std::filesystem;

namespace host {
namespace {

/// The constant a baked texture sits beside: the bundle's default for the port, else white.
vex::PackedConstantParameter PortDefault(const vex::Id& bundle, std::string_view port) {
  if (auto b = vex::Host().bundles->Find(bundle.View()); b)
    if (const vex::Parameter* d = (*b)->defaults.Find(port); d && d->Constant()) return *d->Constant();
  return vex::PackedConstantParameter(vex::ColorA{1.0, 1.0, 1.0, 1.0});
}

std::string Rebased(const std::string& path, const fs::path& from, const fs::path& to) {
  if (path.empty() || fs::path(path).is_absolute()) return path;
  const fs::path absolute = (from / path).lexically_normal();
  const fs::path relative = absolute.lexically_relative(to);
  return relative.empty() ? absolute.string() : relative.string();
}

}  // namespace

vex::MaterialTypesMap DefaultAcceptedBundles() {
  vex::MaterialTypesMap map;
  map.Insert(vex::Id(vex::bundle::kStandardSurface), 0);
  map.Insert(vex::Id(vex::bundle::kCorvane), 0);
  map.Insert(vex::Id(vex::bundle::kViewport), 0);
  return map;
}

vex::Result<vex::ParameterSet> ExportMaterial(const std::shared_ptr<Material>& material,
                                              const MaterialExportRequest& request) {
  if (!material) return VEX_FAIL(vex::ErrorKind::IllegalArgument, "Illegal argument: no material to export");
  auto& components = *vex::Host().components;
  std::string exporterClass;
  for (const auto& entry : components.GetRegistryEntries(vex::registry::kMaterialExporters))
    if (const auto* d = entry.record.Get<vex::MaterialExportDescription>(); d && d->materialType == material->GetType()) {
      exporterClass = d->exporterClass.Str();
      break;
    }
  if (exporterClass.empty())
    return VEX_FAIL(vex::ErrorKind::NotFound, "Material \"" + material->GetName() + "\": no exporter for material type " +
                                                  std::to_string(material->GetType()));
  VEX_ASSIGN(auto exporter, vex::CreateAs<vex::IMaterialExport>(exporterClass));

  vex::DataDictionary description;
  std::string space = request.spaceId;
  if (space.empty() && !material->Graphs().empty()) space = material->Graphs().front().first;
  if (!space.empty()) description.Set(std::string(vex::exportkey::kSpaceId), vex::Id(space));
  description.Set(std::string(vex::exportkey::kMaterialTypes), vex::Data::MakeCustom(request.accepted));
  description.Set(std::string(vex::exportkey::kTextureDimensions), request.textureSize);
  description.Set(std::string(vex::exportkey::kTextureResize), static_cast<std::int32_t>(request.resize));

  VEX_TRY(exporter->Initialize(material, description));
  VEX_ASSIGN(vex::ParameterSetRef exported, exporter->GetParameters());
  vex::ParameterSet set = *exported;
  std::vector<std::string> ports;
  for (const auto& [port, entry] : set.Entries())
    if (std::holds_alternative<vex::ImageReference>(entry.value)) ports.push_back(port);
  for (const auto& port : ports) {
    VEX_ASSIGN(vex::TextureResult result, exporter->GetTextures(vex::TextureRequest{port}));
    if (!result.present) continue;
    for (auto& [texturePort, buffer] : result.textures) {
      vex::Parameter* entry = set.Find(texturePort);
      if (entry == nullptr || buffer.IsEmpty()) continue;
      vex::Parameter baked = vex::Parameter::Textured(PortDefault(set.GetBundle(), texturePort), std::move(buffer));
      baked.properties = entry->properties;
      *entry = std::move(baked);
    }
  }
  return set;
}

std::vector<std::string> ResolveSubstanceReferences(const Material& material, vex::ParameterSet& set) {
  std::vector<std::string> notes;
  for (auto& [port, entry] : set.Entries()) {
    const auto* substance = std::get_if<vex::SubstanceReference>(&entry.value);
    if (substance == nullptr || entry.texture) continue;
    const std::string asset = substance->assetName;
    vex::PackedConstantParameter replacement = PortDefault(set.GetBundle(), port);
    std::string what = "the bundle's default";
    if (auto color = material.GetParameter(vex::kMaterialColorValue); color)
      if (const auto* c = color->Get<vex::Color>()) {
        replacement = vex::PackedConstantParameter(*c);
        what = "the material's colour";
      }
    vex::Parameter constant(std::move(replacement));
    constant.properties = entry.properties;
    entry = std::move(constant);
    notes.push_back(port + ": the Substance asset \"" + asset + "\" cannot go into a file; " + what + " was written");
  }
  return notes;
}

vex::Result<vex::MaterialRef> ImportMaterial(Document& document, const vex::ParameterSet& set,
                                             std::string_view spaceId) {
  auto& components = *vex::Host().components;
  const auto entries = components.GetRegistryEntries(vex::registry::kMaterialImporters);
  std::string importerClass;
  for (const auto& entry : entries)
    if (const auto* d = entry.record.Get<vex::MaterialImportDescription>(); d && d->nodeSpace == spaceId) {
      importerClass = d->importerClass.Str();
      break;
    }
  if (importerClass.empty() && !entries.empty()) importerClass = entries.front().id;
  if (importerClass.empty()) return VEX_FAIL(vex::ErrorKind::NotFound, "No material importer is registered");
  VEX_ASSIGN(auto importer, vex::CreateAs<vex::IMaterialImport>(importerClass));
  return importer->CreateMaterial(document, std::make_shared<const vex::ParameterSet>(set), spaceId);
}

void RebaseFileReferences(Document& document, const std::string& toDirectory) {
  const fs::path from = fs::absolute(document.GetPath().empty() ? fs::current_path() : fs::path(document.GetPath()));
  const fs::path to = fs::absolute(toDirectory).lexically_normal();
  MaterialStore& store = document.Materials();
  for (const auto& material : store.All()) {
    for (const auto& [id, shader] : material->Links()) {
      if (const vex::Data* file = shader->Parameters().Find(vex::kBitmapShaderFile))
        if (const auto* s = file->Get<std::string>())
          shader->MutableParameters().Set(vex::kBitmapShaderFile, Rebased(*s, from, to));
    }
    for (const auto& [space, graph] : material->Graphs()) {
      vex::NodeGraph rebased = graph;
      for (auto& node : rebased.nodes)
        if (vex::Data* file = node.ports.Find("file"))
          if (const auto* s = file->Get<std::string>()) *file = vex::Data(Rebased(*s, from, to));
      material->SetGraph(space, std::move(rebased));
    }
  }
  // Assets are shared by the shaders that link them: rewrite them in place.
  for (const auto& asset : store.Assets()) asset->file = Rebased(asset->file, from, to);
  document.SetPath(to.string());
}

}  // namespace host
