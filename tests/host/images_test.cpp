// Image files: a texture read from a plain 8-bit PNG and written again untouched is the source
// file, byte for byte; anything that changed it (its pixels, its colour handling, the file on disk)
// or a file whose chunks a reader could interpret differently is encoded again.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "host/images.h"

namespace fs = std::filesystem;

namespace {

std::string Bytes(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

class ImageFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() / ("interop_images_" + std::to_string(getpid()));
    fs::remove_all(dir);
    fs::create_directories(dir);
  }
  void TearDown() override { fs::remove_all(dir); }

  /// An 8-bit RGB PNG of our own encoder (level 1): re-encoding it at another level gives other
  /// bytes, so a copy is told from an encoding.
  fs::path Source(const std::string& name, int level = 9) {
    auto texture = vex::TextureBuffer::Make(64, 32, {0.2f, 0.5f, 0.9f, 1});
    for (std::size_t i = 0; i < texture.GetCount(); ++i) texture._pixels->Pixel(i)[0] = static_cast<float>(i % 64) / 63.f;
    host::ImageWriteOptions options;
    options.pngCompression = level;
    const fs::path file = dir / name;
    EXPECT_TRUE(host::WriteImage(file.string(), texture, options).has_value());
    return file;
  }

  fs::path dir;
};

TEST_F(ImageFiles, AnUntouchedPngTextureIsCopiedAndAChangedOneEncodedAgain) {
  const fs::path source = Source("source.png");
  const std::string original = Bytes(source);
  // A read-only source: its copy is an ordinary new file all the same.
  fs::permissions(source, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
  for (const bool colour : {false, true}) {
    SCOPED_TRACE(colour ? "colour data" : "plain data");
    auto read = host::ReadImage(source.string(), colour);
    ASSERT_TRUE(read.has_value()) << read.error().message;
    host::ImageWriteOptions same;
    same.srgb = colour;
    ASSERT_TRUE(host::WriteImage((dir / "copy.png").string(), *read, same).has_value());
    EXPECT_TRUE(Bytes(dir / "copy.png") == original) << "an untouched texture is its file";
    EXPECT_NE(fs::status(dir / "copy.png").permissions() & fs::perms::owner_write, fs::perms::none);

    // Other colour handling: encoded, and the pixels read back are what the buffer holds.
    host::ImageWriteOptions other;
    other.srgb = !colour;
    ASSERT_TRUE(host::WriteImage((dir / "other.png").string(), *read, other).has_value());
    EXPECT_FALSE(Bytes(dir / "other.png") == original);

    // A copy of the buffer shares its pixels: still untouched.
    const vex::TextureBuffer shared = *read;
    ASSERT_TRUE(host::WriteImage((dir / "shared.png").string(), shared, same).has_value());
    EXPECT_TRUE(Bytes(dir / "shared.png") == original);

    // One pixel changed in place: encoded, and the change is in the file.
    read->_pixels->Pixel(5)[1] = 1.f;
    ASSERT_TRUE(host::WriteImage((dir / "changed.png").string(), *read, same).has_value());
    EXPECT_FALSE(Bytes(dir / "changed.png") == original);
    auto back = host::ReadImage((dir / "changed.png").string(), colour);
    ASSERT_TRUE(back.has_value());
    EXPECT_NEAR(back->_pixels->Pixel(5)[1], 1.f, 1e-6);
    EXPECT_NEAR(back->_pixels->Pixel(6)[1], read->_pixels->Pixel(6)[1], 1e-2);
  }

  // The source changed on disk after it was read: encoded from the pixels, not copied.
  auto read = host::ReadImage(source.string(), false);
  ASSERT_TRUE(read.has_value());
  fs::permissions(source, fs::perms::owner_write, fs::perm_options::add);
  Source("source.png", 1);
  const std::string rewritten = Bytes(source);
  ASSERT_FALSE(rewritten == original);
  std::ofstream(source, std::ios::binary | std::ios::app) << "trailing";
  ASSERT_TRUE(host::WriteImage((dir / "after.png").string(), *read, {}).has_value());
  EXPECT_FALSE(Bytes(dir / "after.png") == Bytes(source));

  // Written over its own file: nothing to copy, the pixels are encoded.
  auto self = host::ReadImage((dir / "copy.png").string(), false);
  ASSERT_TRUE(self.has_value());
  ASSERT_TRUE(host::WriteImage((dir / "copy.png").string(), *self, {}).has_value());
  EXPECT_TRUE(host::ReadImage((dir / "copy.png").string(), false).has_value());
}

TEST_F(ImageFiles, PngsWithGammaOrColourChunksAreEncodedAgain) {
  // The same pixels with a gAMA chunk before the image data: a reader may apply it, so the file
  // is not passed on as it is.
  const std::string plain = Bytes(Source("plain.png"));
  const std::size_t ihdrEnd = 8 + 8 + 13 + 4;
  const std::string gamma("\x00\x00\x00\x04gAMA\x00\x00\xb1\x8f\x0b\xfc\x61\x05", 16);
  const fs::path tagged = dir / "tagged.png";
  std::ofstream(tagged, std::ios::binary) << plain.substr(0, ihdrEnd) + gamma + plain.substr(ihdrEnd);
  auto read = host::ReadImage(tagged.string(), true);
  ASSERT_TRUE(read.has_value()) << read.error().message;
  host::ImageWriteOptions options;
  options.srgb = true;
  ASSERT_TRUE(host::WriteImage((dir / "out.png").string(), *read, options).has_value());
  EXPECT_FALSE(Bytes(dir / "out.png") == Bytes(tagged));
  EXPECT_EQ(Bytes(dir / "out.png").find("gAMA"), std::string::npos);
}

}  // namespace
