// The standard material's exporter and its legacy (channel) path, through the
// exporter class as the host's exchange code creates it.
#include <gtest/gtest.h>

#include "material/materialexport_mmaterial.h"
#include "material_support.h"

namespace {

using namespace testing_support;

constexpr const char* kExporterMessage = "Illegal state: Condition _exporter != nullptr not fulfilled. ";

TEST(MaterialExport, RegistryRecordFindsTheExporterByMaterialType) {
  const auto entries = Host().components().GetRegistryEntries("net.kelvo.material.registry.materialexporters");
  ASSERT_EQ(entries.size(), 1u);
  const auto* record = entries[0].record.Get<vex::MaterialExportDescription>();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->materialType, 5703);
  EXPECT_EQ(record->exporterClass, "net.kelvo.material.class.materialexport.mmaterial");
  EXPECT_EQ(entries[0].id, "net.kelvo.material.class.materialexport.mmaterial");
  auto exporter = NewExporter();
  ASSERT_NE(exporter, nullptr);
  EXPECT_EQ(exporter->GetSupportedMaterialType(), 5703);
}

TEST(MaterialExport, OtherTypeFailsAndLeavesNoSubExporter) {
  ScratchDocument scratch("othertype");
  auto exporter = NewExporter();
  // Before Initialize both calls fail on the missing sub-exporter, an empty request included.
  auto early = exporter->GetTextures(vex::TextureRequest{});
  ASSERT_FALSE(early);
  EXPECT_EQ(early.error().message, kExporterMessage);
  EXPECT_EQ(early.error().unit, "materialexport_mmaterial");

  auto good = scratch.Add(ChannelMaterial("Good", {1, 0, 0}));
  ASSERT_TRUE(exporter->Initialize(good, Description(Accept({{vex::bundle::kStandardSurface, 0}}))));
  auto other = scratch.Add(host::MakeMaterial(1011136, "Hair"));
  auto init = exporter->Initialize(other, Description(Accept({{vex::bundle::kStandardSurface, 0}})));
  ASSERT_FALSE(init);
  EXPECT_EQ(init.error().message,
            "Illegal state: Condition materialType == GetSupportedMaterialType() not fulfilled. ");
  EXPECT_EQ(init.error().unit, "materialexport_mmaterial");
  auto after = exporter->GetParameters();
  ASSERT_FALSE(after);
  EXPECT_EQ(after.error().message, kExporterMessage);
}

TEST(MaterialExport, EmptyRequestAndSecondInitialize) {
  ScratchDocument scratch("reinit");
  auto exporter = NewExporter();
  auto red = scratch.Add(ChannelMaterial("Red", {1, 0, 0}));
  auto blue = scratch.Add(ChannelMaterial("Blue", {0, 0, 1}));
  ASSERT_TRUE(exporter->Initialize(red, Description(Accept({{vex::bundle::kStandardSurface, 0}}))));
  auto empty = exporter->GetTextures(vex::TextureRequest{});
  ASSERT_TRUE(empty);
  EXPECT_FALSE(empty->present);
  EXPECT_TRUE(empty->textures.empty());
  // The second Initialize replaces the sub-exporter: the blue material and the OBJ bundle.
  ASSERT_TRUE(exporter->Initialize(blue, Description(Accept({{vex::bundle::kObj, 1}}))));
  auto set = exporter->GetParameters();
  ASSERT_TRUE(set) << set.error().Describe();
  EXPECT_EQ((*set)->GetBundle(), vex::bundle::kObj);
  EXPECT_EQ(*(*set)->Find("base_color")->Constant()->Get<vex::Color>(), (vex::Color{0, 0, 1}));
}

TEST(MaterialExportLegacy, BundleChoiceAndEmptyMap) {
  ScratchDocument scratch("legacybundle");
  auto exporter = NewExporter();
  auto m = scratch.Add(ChannelMaterial("Plain", {0.2, 0.4, 0.6}));
  ASSERT_TRUE(exporter->Initialize(
      m, Description(Accept({{vex::bundle::kGltf, 1}, {vex::bundle::kStandardSurface, 5}, {vex::bundle::kObj, 0}}))));
  auto set = exporter->GetParameters();
  ASSERT_TRUE(set);
  EXPECT_EQ((*set)->GetBundle(), vex::bundle::kStandardSurface);
  ASSERT_EQ((*set)->Size(), 1u);
  EXPECT_EQ(*(*set)->Find("base_color")->Constant()->Get<vex::Color>(), (vex::Color{0.2, 0.4, 0.6}));

  ASSERT_TRUE(exporter->Initialize(m, Description(Accept({{vex::bundle::kGltf, 1}, {vex::bundle::kObj, 0}}))));
  EXPECT_EQ((*exporter->GetParameters())->GetBundle(), vex::bundle::kGltf);  // the map's first, not its 0

  ASSERT_TRUE(exporter->Initialize(m, Description(vex::MaterialTypesMap{})));
  auto none = exporter->GetParameters();
  ASSERT_FALSE(none);
  EXPECT_EQ(none.error().message, "Illegal state: Condition _materialTypes.IsPopulated() == true not fulfilled. ");
  EXPECT_EQ(none.error().unit, "materialexport_mmaterial_legacy");
}

TEST(MaterialExportLegacy, BitmapShaderIsAReferenceToItsFile) {
  ScratchDocument scratch("legacybitmap");
  auto m = scratch.Add(ChannelMaterial("Brick", {0.5, 0.5, 0.5}));
  auto exporter = NewExporter();
  const auto description = Description(Accept({{vex::bundle::kStandardSurface, 0}}));
  // The file is never opened: a missing file, an unreadable one and an empty name export all the
  // same, as a reference, and the texture data handed over stays empty.
  std::ofstream(scratch.dir / "garbage.png") << "not an image";
  for (const std::string name : {"brick.png", "garbage.png", "missing.png", ""}) {
    m->SetLink(vex::kMaterialColorLink, Bitmap(name));  // relative to the document
    ASSERT_TRUE(exporter->Initialize(m, description));
    auto set = exporter->GetParameters();
    ASSERT_TRUE(set) << name << ": " << set.error().Describe();
    ASSERT_EQ((*set)->Size(), 1u);
    const auto* image = std::get_if<vex::ImageReference>(&(*set)->Find("base_color")->value);
    ASSERT_NE(image, nullptr) << name;
    EXPECT_EQ(image->url.text, name.empty() ? std::string() : (scratch.dir / name).string());
    EXPECT_EQ(image->colorSpace, "sRGB");

    auto first = exporter->GetTextures(vex::TextureRequest{"base_color"});
    ASSERT_TRUE(first);
    EXPECT_FALSE(first->present);
    EXPECT_TRUE(first->textures.empty());
  }
}

TEST(MaterialExportLegacy, SubstanceAcceptedRefusedAndOtherShaders) {
  ScratchDocument scratch("legacysubstance");
  std::ofstream(scratch.dir / "leather.substance") << "archive";
  auto& store = scratch.document->Materials();
  auto present = store.AddAsset({"Leather", "leather.substance"});
  auto absent = store.AddAsset({"Ghost", "ghost.substance"});
  auto substance = [](std::shared_ptr<vex::SubstanceAsset> asset) {
    auto shader = std::make_shared<host::Shader>(vex::kSubstanceShaderType);
    shader->SetAssetLink(vex::kSubstanceShaderAsset, std::move(asset));
    return shader;
  };
  auto m = scratch.Add(ChannelMaterial("Leather", {0.3, 0.2, 0.1}));
  auto exporter = NewExporter();
  const auto description = Description(Accept({{vex::bundle::kStandardSurface, 0}}));

  m->SetLink(vex::kMaterialColorLink, substance(present));
  ASSERT_TRUE(exporter->Initialize(m, description));
  auto accepted = exporter->GetParameters();
  ASSERT_TRUE(accepted);
  const auto* ref = std::get_if<vex::SubstanceReference>(&(*accepted)->Find("base_color")->value);
  ASSERT_NE(ref, nullptr);
  EXPECT_EQ(ref->assetName, "Leather");
  EXPECT_EQ(ref->assetFile.text, (scratch.dir / "leather.substance").string());

  ResetHostRecords();
  m->SetLink(vex::kMaterialColorLink, substance(absent));
  ASSERT_TRUE(exporter->Initialize(m, description));
  auto refused = exporter->GetParameters();
  ASSERT_TRUE(refused);
  EXPECT_EQ(*(*refused)->Find("base_color")->Constant()->Get<vex::Color>(), (vex::Color{0.3, 0.2, 0.1}));
  EXPECT_NE(ConsoleText().find("Substance asset \"Ghost\""), std::string::npos);

  // A Substance shader without asset, and a shader of another type: the channel colour.
  for (auto shader : {substance(nullptr), std::make_shared<host::Shader>(1011100)}) {
    m->SetLink(vex::kMaterialColorLink, shader);
    ASSERT_TRUE(exporter->Initialize(m, description));
    auto plain = exporter->GetParameters();
    ASSERT_TRUE(plain);
    EXPECT_EQ(*(*plain)->Find("base_color")->Constant()->Get<vex::Color>(), (vex::Color{0.3, 0.2, 0.1}));
  }
}

TEST(MaterialExportLegacy, MaterialOutsideAnyDocumentKeepsItsPaths) {
  ScratchDocument scratch("legacyloose");
  const auto file = scratch.Image("a.png", 1, 1, [](auto, auto) { return std::array<float, 4>{0, 1, 0, 1}; });
  auto loose = ChannelMaterial("Loose", {1, 1, 1});
  loose->SetLink(vex::kMaterialColorLink, Bitmap(file));
  ASSERT_EQ(loose->GetDocument(), nullptr);
  auto exporter = NewExporter();
  ASSERT_TRUE(exporter->Initialize(loose, Description(Accept({{vex::bundle::kStandardSurface, 0}}))));
  auto set = exporter->GetParameters();
  ASSERT_TRUE(set) << set.error().Describe();
  EXPECT_EQ(std::get<vex::ImageReference>((*set)->Find("base_color")->value).url.text, file);
}

}  // namespace
