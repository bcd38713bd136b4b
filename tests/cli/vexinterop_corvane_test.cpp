// The Corvane mappings through `vexinterop map`: textures read from every
// common image format (colour ports linearised, data ports raw), packed glTF
// textures written beside the output, the size check of the glTF merges, the
// glTF round trip back into Corvane ports, and the Corvane-to-USD dumps.
#include <gtest/gtest.h>

#include "run_tool.h"
#include <sys/wait.h>
#include <unistd.h>

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/images.h"
#include "host/paramset_json.h"

namespace fs = std::filesystem;
using Json = nlohmann::json;

namespace {

using cli_test::Outcome;
using cli_test::Tool;

struct TempDir {
  fs::path path;
  TempDir()
      : path(fs::temp_directory_path() /
             ("vexinterop_corvane_" + std::to_string(getpid()) + "_" +
              ::testing::UnitTest::GetInstance()->current_test_info()->name())) {
    fs::remove_all(path);
    fs::create_directories(path);
  }
  ~TempDir() { fs::remove_all(path); }
  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(path)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
};

/// A small image of one colour (a value per channel), in the format the suffix names.
void WriteImage(const fs::path& file, int width, int height, OIIO::TypeDesc format, const std::vector<float>& colour) {
  auto out = OIIO::ImageOutput::create(file.string());
  ASSERT_TRUE(out) << file;
  const int channels = static_cast<int>(colour.size());
  OIIO::ImageSpec header(width, height, channels, format);
  header.attribute("oiio:UnassociatedAlpha", 1);  // the file holds exactly these values
  ASSERT_TRUE(out->open(file.string(), header)) << out->geterror();
  std::vector<float> pixels;
  for (int i = 0; i < width * height; ++i) pixels.insert(pixels.end(), colour.begin(), colour.end());
  ASSERT_TRUE(out->write_image(OIIO::TypeDesc::FLOAT, pixels.data())) << out->geterror();
  ASSERT_TRUE(out->close());
}

void WriteImage(const fs::path& file, int width, int height, int channels, OIIO::TypeDesc format, float value) {
  WriteImage(file, width, height, format, std::vector<float>(static_cast<std::size_t>(channels), value));
}

Json ReadJson(const fs::path& file) {
  std::ifstream in(file);
  std::stringstream text;
  text << in.rdbuf();
  return Json::parse(text.str());
}

void WriteJson(const fs::path& file, const Json& json) { std::ofstream(file) << json.dump(2); }

/// The first pixel of an image file, as stored (no colour decoding).
std::vector<float> FirstPixel(const fs::path& file) {
  auto buffer = host::ReadImage(file.string(), false);
  if (!buffer) {
    ADD_FAILURE() << buffer.error().message;
    return {};
  }
  const float* p = buffer->_pixels->Pixel(0);
  return {p[0], p[1], p[2], p[3]};
}

float SrgbToLinear(float c) { return c <= 0.04045f ? c / 12.92f : std::pow((c + 0.055f) / 1.055f, 2.4f); }

Json Param(const char* type, Json value) { return Json{{"type", type}, {"value", std::move(value)}}; }
Json Textured(const char* type, Json value, const std::string& texture) {
  return Json{{"type", type}, {"value", std::move(value)}, {"texture", texture}};
}

constexpr const char* kCorvane = "net.kelvo.material.portbundle.corvane";
constexpr const char* kGltf = "net.kelvo.material.portbundle.gltf";

TEST(VexinteropCorvane, EveryImageFormatIsReadColourPortsLinearisedDataPortsRaw) {
  TempDir dir;
  struct Format {
    const char* suffix;
    OIIO::TypeDesc type;
    int channels;
    float stored;
    bool encoded;  // 8-bit sRGB on a colour port
    float tolerance;
  };
  // The RGBA files have alpha below 1: their colour must not come back premultiplied.
  const Format formats[] = {{"png", OIIO::TypeDesc::UINT8, 4, 128.f / 255.f, true, 1e-5f},
                            {"jpg", OIIO::TypeDesc::UINT8, 3, 128.f / 255.f, true, 3.f / 255.f},
                            {"tif", OIIO::TypeDesc::UINT8, 4, 128.f / 255.f, true, 1e-5f},
                            {"exr", OIIO::TypeDesc::FLOAT, 4, 0.25f, false, 1e-6f},
                            {"hdr", OIIO::TypeDesc::FLOAT, 3, 0.25f, false, 1e-6f}};
  for (const auto& f : formats) {
    SCOPED_TRACE(f.suffix);
    const std::string image = std::string("grey.") + f.suffix;
    WriteImage(dir.path / image, 4, 4, f.channels, f.type, f.stored);
    Json set{{"bundle", kCorvane},
             {"parameters",
              {{"diffuse_color", Textured("Color", {1, 1, 1}, image)},
               {"reflection_roughness", Textured("Float", 0.5, image)}}}};
    WriteJson(dir.path / "in.json", set);
    const fs::path out = dir.path / (std::string("out_") + f.suffix + ".json");
    const auto run = Tool("map " + (dir.path / "in.json").string() + " --to " + kGltf + " -o " + out.string() +
                          " --float-textures");
    ASSERT_EQ(run.exit, 0) << run.output;
    // Float output shows the linear values the mapping worked on.
    const auto stem = out.stem().string();
    const auto base = FirstPixel(dir.path / (stem + ".baseColorTexture.exr"));
    const auto metalRough = FirstPixel(dir.path / (stem + ".metallicRoughnessTexture.exr"));
    ASSERT_EQ(base.size(), 4u);
    ASSERT_EQ(metalRough.size(), 4u);
    const float colour = f.encoded ? SrgbToLinear(f.stored) : f.stored;
    EXPECT_NEAR(base[0], colour, f.tolerance);
    EXPECT_NEAR(base[2], colour, f.tolerance);
    EXPECT_NEAR(metalRough[1], f.stored, f.tolerance);  // roughness green, raw
    EXPECT_EQ(metalRough[0], 0.f);
    EXPECT_EQ(metalRough[2], 1.f);
  }
  // A texture that cannot be read names the JSON file, the port and the image.
  Json missing{{"bundle", kCorvane}, {"parameters", {{"metalness", Textured("Float", 1, "nowhere.png")}}}};
  WriteJson(dir.path / "missing.json", missing);
  const auto run = Tool("map " + (dir.path / "missing.json").string() + " --to " + kGltf + " -o " +
                        (dir.path / "never.json").string());
  EXPECT_EQ(run.exit, 1);
  EXPECT_NE(run.output.find("missing.json: parameters.metalness: "), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("nowhere.png"), std::string::npos) << run.output;
  EXPECT_FALSE(fs::exists(dir.path / "never.json"));
}

TEST(VexinteropCorvane, TheTexturedExampleWritesPackedGltfTexturesAndEveryBundlesImages) {
  TempDir dir;
  const std::string example = std::string(INTEROP_SOURCE_DIR) + "/examples/corvane_textured.json";
  const auto gltf = Tool("map " + example + " --to " + kGltf + " -o " + (dir.path / "gltf.json").string());
  ASSERT_EQ(gltf.exit, 0) << gltf.output;
  const Json out = ReadJson(dir.path / "gltf.json");
  EXPECT_EQ(out["bundle"], kGltf);
  for (const char* port :
       {"baseColorTexture", "metallicRoughnessTexture", "emissiveTexture", "normalTexture", "occlusionTexture"}) {
    SCOPED_TRACE(port);
    const std::string file = std::string("gltf.") + port + ".png";
    EXPECT_EQ(out["parameters"][port]["texture"], file);
    ASSERT_TRUE(fs::exists(dir.path / file));
  }
  // Packed layouts: metal/roughness (0, roughness, metal, 1); transmission became the alpha.
  const auto metalRough = FirstPixel(dir.path / "gltf.metallicRoughnessTexture.png");
  ASSERT_EQ(metalRough.size(), 4u);
  EXPECT_EQ(metalRough[0], 0.f);
  EXPECT_EQ(metalRough[3], 1.f);
  EXPECT_EQ(out["parameters"]["alphaMode"]["value"], "BLEND");

  const struct {
    const char* bundle;
    const char* name;
    std::vector<const char*> ports;
  } others[] = {{"net.kelvo.material.portbundle.obj", "obj",
                 {"diffuse_color", "metallic", "roughness", "normal_map", "emissive_color"}},
                {"net.kelvo.material.portbundle.usdpreviewsurface", "usd",
                 {"diffuseColor", "metallic", "roughness", "normal", "emissiveColor", "opacity"}}};
  for (const auto& o : others) {
    SCOPED_TRACE(o.name);
    const auto run = Tool("map " + example + " --to " + o.bundle + " -o " + (dir.path / o.name).string() + ".json");
    ASSERT_EQ(run.exit, 0) << run.output;
    const Json set = ReadJson(dir.path / (std::string(o.name) + ".json"));
    for (const char* port : o.ports) {
      const std::string file = std::string(o.name) + "." + port + ".png";
      EXPECT_EQ(set["parameters"][port]["texture"], file) << port;
      EXPECT_TRUE(fs::exists(dir.path / file)) << port;
    }
  }
}

TEST(VexinteropCorvane, DifferentSizesInOneGltfMergeFailAndWriteNothing) {
  TempDir dir;
  WriteImage(dir.path / "big.png", 8, 8, 3, OIIO::TypeDesc::UINT8, 0.5f);
  WriteImage(dir.path / "small.png", 4, 4, 3, OIIO::TypeDesc::UINT8, 0.5f);
  Json set{{"bundle", kCorvane},
           {"parameters",
            {{"diffuse_color", Textured("Color", {1, 1, 1}, "big.png")},
             {"opacity", Textured("Color", {1, 1, 1}, "small.png")},
             {"emission_weight", Param("Float", 1.0)},
             {"emission_color", Textured("Color", {1, 1, 1}, "small.png")}}}};
  WriteJson(dir.path / "in.json", set);
  const auto before = dir.Files();
  const auto run =
      Tool("map " + (dir.path / "in.json").string() + " --to " + kGltf + " -o " + (dir.path / "out.json").string());
  EXPECT_EQ(run.exit, 1);
  EXPECT_NE(run.output.find("Illegal state: Condition opDims.IsEqual(bcTexBuffer._dimensions, 0) not fulfilled. "
                            " (mapping_corvane_gltfpbr:"),
            std::string::npos)
      << run.output;
  EXPECT_EQ(dir.Files(), before);
}

TEST(VexinteropCorvane, GltfImportedBackKeepsColourMetalRoughnessEmissionAndNormalWeight) {
  TempDir dir;
  WriteImage(dir.path / "diffuse.png", 4, 4, 3, OIIO::TypeDesc::UINT8, 200.f / 255.f);
  Json set{{"bundle", kCorvane},
           {"parameters",
            {{"diffuse_color", Param("Color", {0.8, 0.3, 0.2})},
             {"fresnel_type", Param("String", "metalness")},
             {"metalness", Param("Float", 0.6)},
             {"reflection_roughness", Param("Float", 0.35)},
             {"emission_weight", Param("Float", 0.5)},
             {"emission_color", Param("Color", {0.2, 0.4, 0.6})},
             {"overall_normal_weight", Param("Float", 0.8)}}}};
  const auto roundTrip = [&](const Json& input, const std::string& name) {
    WriteJson(dir.path / (name + ".json"), input);
    const auto there = Tool("map " + (dir.path / (name + ".json")).string() + " --to " + kGltf + " -o " +
                            (dir.path / (name + "_gltf.json")).string());
    EXPECT_EQ(there.exit, 0) << there.output;
    const auto back = Tool("map " + (dir.path / (name + "_gltf.json")).string() + " --to " + kCorvane + " -o " +
                           (dir.path / (name + "_back.json")).string());
    EXPECT_EQ(back.exit, 0) << back.output;
    return ReadJson(dir.path / (name + "_back.json"));
  };

  Json back = roundTrip(set, "constants");
  ASSERT_EQ(back["bundle"], kCorvane);
  const Json& p = back["parameters"];
  const auto near = [](const Json& values, std::vector<double> expected) {
    ASSERT_EQ(values.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(values[i].get<double>(), expected[i], 1e-12);
  };
  near(p["diffuse_color"]["value"], {0.8, 0.3, 0.2});
  // The import writes no Fresnel mode: the Corvane default ("metalness") keeps the metal a metal,
  // so the imported set exports its metalness again.
  EXPECT_FALSE(p.contains("fresnel_type")) << p.dump();
  WriteJson(dir.path / "again.json", back);
  const auto again = Tool("map " + (dir.path / "again.json").string() + " --to " + kGltf + " -o " +
                          (dir.path / "again_gltf.json").string());
  ASSERT_EQ(again.exit, 0) << again.output;
  EXPECT_DOUBLE_EQ(ReadJson(dir.path / "again_gltf.json")["parameters"]["metallicFactor"]["value"].get<double>(), 0.6);
  EXPECT_DOUBLE_EQ(p["metalness"]["value"].get<double>(), 0.6);
  EXPECT_DOUBLE_EQ(p["reflection_roughness"]["value"].get<double>(), 0.35);
  EXPECT_DOUBLE_EQ(p["overall_normal_weight"]["value"].get<double>(), 0.8);
  // The emission weight comes back multiplied into the colour.
  const double weight = p["emission_weight"]["value"].get<double>();
  near({p["emission_color"]["value"][0].get<double>() * weight, p["emission_color"]["value"][1].get<double>() * weight,
        p["emission_color"]["value"][2].get<double>() * weight},
       {0.5 * 0.2, 0.5 * 0.4, 0.5 * 0.6});

  // A diffuse texture comes back as the same 8-bit colour.
  set["parameters"]["diffuse_color"] = Textured("Color", {1, 1, 1}, "diffuse.png");
  back = roundTrip(set, "textured");
  const Json& t = back["parameters"]["diffuse_color"];
  ASSERT_TRUE(t.contains("texture")) << t.dump();
  const auto pixel = FirstPixel(dir.path / t["texture"].get<std::string>());
  ASSERT_EQ(pixel.size(), 4u);
  EXPECT_NEAR(pixel[0], 200.f / 255.f, 1e-6f);
  EXPECT_EQ(t["properties"]["colorSpace"], "sRGB");

  // Only the glTF class takes its target bundle back: USD Preview Surface has no way back.
  WriteJson(dir.path / "usd.json", Json{{"bundle", "net.kelvo.material.portbundle.usdpreviewsurface"},
                                        {"parameters", {{"metallic", Param("Float", 1.0)}}}});
  const auto none = Tool("map " + (dir.path / "usd.json").string() + " --to " + kCorvane + " -o " +
                         (dir.path / "usd_back.json").string());
  EXPECT_EQ(none.exit, 2) << none.output;
  EXPECT_NE(none.output.find("No material mapping from net.kelvo.material.portbundle.usdpreviewsurface to "
                             "net.kelvo.material.portbundle.corvane"),
            std::string::npos)
      << none.output;
  EXPECT_FALSE(fs::exists(dir.path / "usd_back.json"));
}

TEST(VexinteropCorvane, UsdMappingPathDumpsInputAndOutputThatReadBack) {
  TempDir dir;
  const fs::path dumps = dir.path / "dumps";
  fs::create_directories(dumps);
  WriteImage(dir.path / "opacity.png", 2, 2, OIIO::TypeDesc::UINT8, {0.2f, 0.4f, 0.6f});
  Json set{{"bundle", kCorvane},
           {"parameters",
            {{"diffuse_color", Param("Color", {0.1, 0.2, 0.3})},
             {"opacity", Textured("Color", {1, 1, 1}, "opacity.png")}}}};
  WriteJson(dir.path / "in.json", set);
  const std::string usd = "net.kelvo.material.portbundle.usdpreviewsurface";

  // Unset: nothing is written.
  auto run = Tool("map " + (dir.path / "in.json").string() + " --to " + usd + " -o " + (dir.path / "a.json").string());
  ASSERT_EQ(run.exit, 0) << run.output;
  EXPECT_TRUE(fs::is_empty(dumps));

  run = Tool("--set g_corvaneUSDMappingPath=" + dumps.string() + " map " + (dir.path / "in.json").string() + " --to " +
             usd + " -o " + (dir.path / "b.json").string());
  ASSERT_EQ(run.exit, 0) << run.output;
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(dumps)) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  ASSERT_EQ(names.size(), 2u);
  const std::string ms = names[0].substr(0, names[0].find('_'));
  EXPECT_EQ(names[0], ms + "_mapping_input");
  EXPECT_EQ(names[1], ms + "_mapping_output");
  EXPECT_FALSE(ms.empty());
  EXPECT_TRUE(std::all_of(ms.begin(), ms.end(), [](char c) { return c >= '0' && c <= '9'; }));

  // The input dump holds the texture as it arrived (the pass greys the source's pixels in place
  // afterwards), and it maps again to the same output.
  const Json input = ReadJson(dumps / names[0]);
  EXPECT_EQ(input["bundle"], kCorvane);
  EXPECT_EQ(input["parameters"]["opacity"]["texture"]["width"], 2);
  const auto kept = host::json::ReadParameterSetFile((dumps / names[0]).string(), {});
  ASSERT_TRUE(kept) << kept.error().message;
  ASSERT_TRUE(kept->Find("opacity") && kept->Find("opacity")->texture);
  const float* first = kept->Find("opacity")->texture->_pixels->Pixel(3);
  EXPECT_NEAR(first[0], 0.2f, 0.5f / 255);
  EXPECT_NEAR(first[1], 0.4f, 0.5f / 255);
  EXPECT_NEAR(first[2], 0.6f, 0.5f / 255);
  EXPECT_NEAR(FirstPixel(dir.path / "b.opacity.png")[1], 0.4f, 1.f / 255);  // the output is the grey mean
  run = Tool("map " + (dumps / names[0]).string() + " --to " + usd + " -o " + (dir.path / "again.json").string());
  ASSERT_EQ(run.exit, 0) << run.output;
  const Json output = ReadJson(dumps / names[1]);
  EXPECT_EQ(output["bundle"], usd);
  EXPECT_EQ(ReadJson(dir.path / "again.json")["parameters"]["opacity"]["value"], output["parameters"]["opacity"]["value"]);
  EXPECT_EQ(FirstPixel(dir.path / "again.opacity.png"), FirstPixel(dir.path / "b.opacity.png"));

  // A directory that does not exist fails the run with a file error; no output is written.
  run = Tool("--set g_corvaneUSDMappingPath=" + (dir.path / "absent").string() + " map " +
             (dir.path / "in.json").string() + " --to " + usd + " -o " + (dir.path / "c.json").string());
  EXPECT_EQ(run.exit, 1);
  EXPECT_NE(run.output.find("directory does not exist"), std::string::npos) << run.output;
  EXPECT_FALSE(fs::exists(dir.path / "c.json"));
  EXPECT_FALSE(fs::exists(dir.path / "absent"));
}

}  // namespace
