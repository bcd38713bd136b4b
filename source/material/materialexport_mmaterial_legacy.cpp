// Legacy (channel) material export.
#include "material/materialexport_mmaterial_legacy.h"

#include <new>
#include <string>
#include <utility>

#include "vex/host.h"
#include "vex/ports.h"

namespace interop::material {
namespace {

class LegacyExporter final : public SubExporter {
 public:
  LegacyExporter(vex::MaterialRef material, vex::MaterialTypesMap materialTypes)
      : _material(std::move(material)), _materialTypes(std::move(materialTypes)) {}

  vex::Result<vex::ParameterSetRef> GetParameters() override {
    VEX_CHECK_STATE(_materialTypes.IsPopulated() == true);
    const vex::Id bundle = _materialTypes.Find(vex::Id(vex::bundle::kStandardSurface))
                               ? vex::Id(vex::bundle::kStandardSurface)
                               : _materialTypes.Entries().front().first;
    auto storage = std::shared_ptr<vex::ParameterSet>(new (std::nothrow) vex::ParameterSet(bundle));
    if (!storage) return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
    // Links and paths resolve against the material's document; a material outside any document
    // keeps its paths as they are.
    const vex::IDocument* document = _material->GetDocument();

    VEX_ASSIGN(const vex::Color color, ChannelColor());
    vex::Parameter baseColor = vex::Parameter::Constant(color);
    if (const vex::IShader* shader = _material->GetLink(vex::kMaterialColorLink, vex::kShaderBaseType)) {
      if (shader->GetType() == vex::kBitmapShaderType) {
        // A reference to the shader's file, not its pixels: the file is not opened here, reading
        // it is for whoever consumes the set. A relative name is taken from the document's folder.
        vex::ImageReference image;
        image.url.text = vex::ResolveDocumentPath(BitmapFile(*shader), document);
        image.colorSpace = "sRGB";
        baseColor = vex::Parameter();
        baseColor.value = std::move(image);
      } else if (shader->GetType() == vex::kSubstanceShaderType) {
        if (const vex::SubstanceAsset* asset = shader->GetAssetLink(vex::kSubstanceShaderAsset)) {
          if (vex::Host().materials != nullptr && vex::Host().materials->CheckSubstanceAsset(*asset, document)) {
            vex::SubstanceReference substance;
            substance.assetFile.text = vex::ResolveDocumentPath(asset->file, document);
            substance.assetName = asset->name;
            baseColor = vex::Parameter();
            baseColor.value = std::move(substance);
          } else {
            // A refused asset is a loss, not an error: the channel colour stands in for it.
            VEX_DIAGNOSTIC("Material Export: Substance asset \"" + asset->name + "\" of material \"" +
                           _material->GetName() + "\" was refused; its channel colour is exported instead");
          }
        }
      }
    }
    storage->Set(vex::ports::standardsurface::base_color, std::move(baseColor));
    return vex::ParameterSetRef(std::move(storage));
  }

  /// Hands over the kept texture data and resets it: a second call returns the empty state.
  vex::Result<vex::TextureResult> GetTextures(const vex::TextureRequest& request) override {
    (void)request;
    return std::exchange(_textures, vex::TextureResult{});
  }

 private:
  /// The colour channel's value; a material without one exports white.
  vex::Result<vex::Color> ChannelColor() const {
    auto value = _material->GetParameter(vex::kMaterialColorValue);
    if (!value) return vex::Color{1.0, 1.0, 1.0};
    if (const auto* c = value->Get<vex::Color>()) return *c;
    return VEX_FAIL(vex::ErrorKind::WrongDataType,
                    "Material \"" + _material->GetName() + "\": parameter 2100 does not hold a colour");
  }

  static std::string BitmapFile(const vex::IShader& shader) {
    auto value = shader.GetParameter(vex::kBitmapShaderFile);
    const auto* file = value ? value->Get<std::string>() : nullptr;
    return file ? *file : std::string();
  }

  vex::MaterialRef _material;
  vex::MaterialTypesMap _materialTypes;
  /// Texture data GetTextures hands over once. The channel path bakes nothing, so it stays empty:
  /// a bitmap travels as a reference to its file.
  vex::TextureResult _textures;
};

}  // namespace

vex::Result<SubExporterRef> CreateLegacyExporter(const vex::MaterialRef& material,
                                                 const vex::DataDictionary& description) {
  vex::MaterialTypesMap materialTypes;
  if (const vex::Data* types = description.Find(vex::exportkey::kMaterialTypes)) {
    const auto* map = types->Get<vex::MaterialTypesMap>();
    if (map == nullptr) return VEX_FAIL(vex::ErrorKind::WrongDataType, "Wrong data type for key: materialTypes");
    materialTypes = *map;
  }
  auto exporter = std::shared_ptr<LegacyExporter>(new (std::nothrow) LegacyExporter(material, std::move(materialTypes)));
  if (!exporter) return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  return SubExporterRef(std::move(exporter));
}

}  // namespace interop::material
