// FBX node records: the binary layout byte for byte on a small tree, every property type through
// the encoder and the decoder (compressed arrays included), the ASCII form, and the decoder's
// refusals of damaged files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unistd.h>

#include "host/formats/fbx_binary.h"

namespace fbx = host::formats::fbx;

namespace {

std::string U32(std::uint32_t v) {
  std::string s(4, '\0');
  std::memcpy(s.data(), &v, 4);
  return s;
}

TEST(FbxRecords, SmallTreeHasTheBinaryLayoutByteForByte) {
  // AB: 7, "x" { C: {} }
  fbx::Node ab{"AB", {std::int32_t{7}, std::string("x")}, {}};
  ab.Add("C");
  const std::string bytes = fbx::EncodeBinary({ab}, {.compressAbove = 0});

  std::string expected("Kaydara FBX Binary  \x00\x1a\x00", 23);
  expected += U32(7400);
  // AB at 27: end 93, two properties of 11 bytes, name.
  expected += U32(93) + U32(2) + U32(11) + std::string("\x02" "AB", 3);
  expected += std::string("I", 1) + U32(7);
  expected += std::string("S", 1) + U32(1) + "x";
  // C at 53: no properties, no children: closed by a null record all the same; ends at 80.
  expected += U32(80) + U32(0) + U32(0) + std::string("\x01" "C", 2);
  expected += std::string(13, '\0');
  expected += std::string(13, '\0');  // the end of AB's children
  expected += std::string(13, '\0');  // the end of the top-level records, at 106
  const unsigned char footerId[] = {0xfa, 0xbc, 0xab, 0x09, 0xd0, 0xc8, 0xd4, 0x66,
                                    0xb1, 0x76, 0xfb, 0x83, 0x1c, 0xf7, 0x26, 0x7e};
  expected += std::string(reinterpret_cast<const char*>(footerId), 16);
  expected += std::string(6, '\0');  // 122 padded to 128
  expected += U32(0) + U32(7400) + std::string(120, '\0');
  const unsigned char magic[] = {0xf8, 0x5a, 0x8c, 0x6a, 0xde, 0xf5, 0xd9, 0x7e,
                                 0xec, 0xe9, 0x0c, 0xe3, 0x75, 0x8f, 0x29, 0x0b};
  expected += std::string(reinterpret_cast<const char*>(magic), 16);
  ASSERT_EQ(bytes.size(), expected.size());
  for (std::size_t i = 0; i < bytes.size(); ++i)
    ASSERT_EQ(static_cast<int>(static_cast<unsigned char>(bytes[i])), static_cast<int>(static_cast<unsigned char>(expected[i])))
        << "byte " << i;
  EXPECT_EQ(bytes.size() % 16, 0u);
}

TEST(FbxRecords, EveryPropertyTypeSurvivesEncodeAndDecode) {
  fbx::Node root{"Root", {}, {}};
  root.Add("Scalars", {true, std::int16_t{-3}, std::int32_t{-70000}, std::int64_t{1} << 40, 1.5f, 0.1, std::string("a\x00\x01" "b", 4),
                       fbx::Raw{std::string("\x00\xff\x10", 3)}});
  std::vector<double> many(1000);
  for (std::size_t i = 0; i < many.size(); ++i) many[i] = static_cast<double>(i) * 0.25;
  root.Add("Arrays", {std::vector<std::int32_t>{1, -2, 3}, std::vector<std::int64_t>{-5}, std::vector<float>{0.5f},
                      many, fbx::BoolArray{{1, 0, 1}}});
  root.Add("Empty", {std::vector<std::int32_t>{}});
  for (const std::size_t compressAbove : {std::size_t{0}, std::size_t{16}}) {
    const std::string bytes = fbx::EncodeBinary({root}, {.compressAbove = compressAbove});
    auto decoded = fbx::DecodeBinary(bytes, "t.fbx");
    ASSERT_TRUE(decoded.has_value()) << decoded.error().message;
    ASSERT_EQ(decoded->size(), 1u);
    const fbx::Node& r = decoded->front();
    EXPECT_EQ(r.name, "Root");
    ASSERT_EQ(r.children.size(), 3u);
    EXPECT_EQ(r.children[0].properties, root.children[0].properties);
    EXPECT_EQ(r.children[1].properties, root.children[1].properties);
    EXPECT_EQ(r.children[2].properties, root.children[2].properties);
    std::string codes;
    for (const auto& p : r.children[0].properties) codes += fbx::TypeCode(p);
    for (const auto& p : r.children[1].properties) codes += fbx::TypeCode(p);
    EXPECT_EQ(codes, "CYILFDSRilfdb");
    if (compressAbove > 0) {
      EXPECT_LT(bytes.size(), 8000u) << "the 8000-byte array is stored compressed";
    }
  }
}

TEST(FbxRecords, AsciiFormWritesTheSameTreeAsText) {
  fbx::Node ab{"AB", {std::int32_t{7}, std::string("x\"y")}, {}};
  ab.Add("C");
  ab.Add("Vertices", {std::vector<double>{1, 2.5, -3}});
  ab.Add("Model", {std::int64_t{42}, fbx::ObjectName("Cube", "Model"), std::string("Mesh")});
  ab.Add("Content", {fbx::Raw{"Man"}});
  EXPECT_EQ(fbx::EncodeAscii({ab}),
            "; FBX 7.4.0 project file\n; ----------------------------------------------------\n\n"
            "AB: 7, \"x&quot;y\" {\n"
            "\tC:  {\n\t}\n"
            "\tVertices: *3 {\n\t\ta: 1,2.5,-3\n\t} \n"
            "\tModel: 42, \"Model::Cube\", \"Mesh\"\n"
            "\tContent: \"TWFu\"\n"
            "}\n");
}

TEST(FbxRecords, DamagedFilesAreRefusedWithTheFileAndTheByte) {
  fbx::Node ab{"AB", {std::int32_t{7}}, {}};
  ab.Add("C", {std::int32_t{1}});
  const std::string good = fbx::EncodeBinary({ab});
  ASSERT_TRUE(fbx::DecodeBinary(good, "g.fbx").has_value());

  auto refused = [](const std::string& bytes, const std::string& text) {
    auto r = fbx::DecodeBinary(bytes, "bad.fbx");
    ASSERT_FALSE(r.has_value()) << text;
    EXPECT_EQ(r.error().kind, vex::ErrorKind::FileIO);
    EXPECT_EQ(r.error().message.rfind("bad.fbx: byte ", 0), 0u) << r.error().message;
    EXPECT_NE(r.error().message.find(text), std::string::npos) << r.error().message;
  };
  refused("Kaydara FBX ASCII", "not a binary FBX file");
  refused(good.substr(0, 30), "file ends inside a record");
  std::string noSentinel = good;
  noSentinel[27 + 13 + 2 + 5 + 13 + 1 + 5] = '\x01';  // the first byte of AB's null record
  refused(noSentinel, "lacks its null record");
  std::string badType = good;
  badType[27 + 13 + 2] = 'Q';
  refused(badType, "unknown property type 'Q'");
  std::string pastParent = good;
  pastParent[27] = '\x7f';
  pastParent[28] = '\x7f';
  refused(pastParent, "ends outside its parent");
}

}  // namespace

namespace {

TEST(FbxRecords, PackedArraysAndTheStreamedFileMatchTheInMemoryEncoding) {
  // A tree larger than the file writer's buffer, so that the end offsets of the outer records are
  // patched into bytes already written; its arrays packed ahead, plain and compressed.
  std::vector<double> wave(300000);
  for (std::size_t i = 0; i < wave.size(); ++i) wave[i] = std::sin(static_cast<double>(i) * 0.001) * 100;
  std::vector<std::int32_t> corners(90000);
  for (std::size_t i = 0; i < corners.size(); ++i) corners[i] = i % 3 == 2 ? -static_cast<std::int32_t>(i) - 1 : static_cast<std::int32_t>(i);
  fbx::Node objects{"Objects", {}, {}};
  fbx::Node& geometry = objects.Add("Geometry", {std::int64_t{7}, std::string("g")});
  geometry.Add("Vertices", {fbx::PackDoubles(wave)});
  geometry.Add("PolygonVertexIndex", {fbx::PackInts(corners, {.compressAbove = 0})});
  geometry.Add("Plain", {wave});
  geometry.Add("Tiny", {fbx::PackInts(std::vector<std::int32_t>{4, 5})});
  const std::vector<fbx::Node> top{fbx::Node{"Header", {std::string("h")}, {}}, objects, fbx::Node{"Takes", {}, {}}};

  const auto* packed = std::get_if<fbx::PackedArray>(&geometry.children[0].properties[0]);
  ASSERT_NE(packed, nullptr);
  EXPECT_EQ(packed->encoding, 1u);
  EXPECT_LT(packed->bytes.size(), wave.size() * sizeof(double));
  EXPECT_EQ(fbx::TypeCode(geometry.children[0].properties[0]), 'd');
  EXPECT_EQ(fbx::TypeCode(geometry.children[1].properties[0]), 'i');

  const std::string bytes = fbx::EncodeBinary(top);
  ASSERT_GT(bytes.size(), std::size_t{1} << 20);
  const auto file = std::filesystem::temp_directory_path() / ("fbx_stream_" + std::to_string(getpid()) + ".fbx");
  ASSERT_TRUE(fbx::WriteBinary(top, file.string()).has_value());
  std::ifstream in(file, std::ios::binary);
  const std::string written((std::istreambuf_iterator<char>(in)), {});
  std::filesystem::remove(file);
  EXPECT_TRUE(written == bytes) << "the streamed file differs from the in-memory encoding (" << written.size() << " and "
                                << bytes.size() << " bytes)";

  auto decoded = fbx::DecodeBinary(written, "t.fbx");
  ASSERT_TRUE(decoded.has_value()) << decoded.error().message;
  ASSERT_EQ(decoded->size(), 3u);
  const fbx::Node* g = (*decoded)[1].Find("Geometry");
  ASSERT_NE(g, nullptr);
  EXPECT_EQ(std::get<std::vector<double>>(g->Find("Vertices")->properties[0]), wave);
  EXPECT_EQ(std::get<std::vector<std::int32_t>>(g->Find("PolygonVertexIndex")->properties[0]), corners);
  EXPECT_EQ(std::get<std::vector<double>>(g->Find("Plain")->properties[0]), wave);
  EXPECT_EQ(std::get<std::vector<std::int32_t>>(g->Find("Tiny")->properties[0]), (std::vector<std::int32_t>{4, 5}));

  // The ASCII form shows packed arrays by their values.
  fbx::Node small{"S", {fbx::PackInts(std::vector<std::int32_t>{1, -2, 3}, {.compressAbove = 4})},
                  {}};
  EXPECT_NE(fbx::EncodeAscii({small}).find("*3 {\n\ta: 1,-2,3\n} "), std::string::npos) << fbx::EncodeAscii({small});

  // An unwritable place is an error naming the file.
  const auto refused = fbx::WriteBinary(top, "/nonexistent-dir/x.fbx");
  ASSERT_FALSE(refused.has_value());
  EXPECT_NE(refused.error().message.find("/nonexistent-dir/x.fbx: cannot write"), std::string::npos) << refused.error().message;
}

}  // namespace
