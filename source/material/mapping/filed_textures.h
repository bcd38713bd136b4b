// Textures that a mapping files under a target role while it transfers
// parameters, and the one way a finished texture is stored on a target port.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "material/mapping/materialmapping.h"

namespace interop::mapping {

/// A texture met during parameter transfer: the source port it came from, the target role it
/// is to play, and the texture as data (a `TextureBuffer`; anything else is a wrong data type
/// when the texture is used).
struct FiledTexture {
  std::string source;
  std::string role;
  vex::Data texture;
};

inline FiledTexture FileTexture(std::string_view source, std::string_view role, const vex::TextureBuffer& texture) {
  return FiledTexture{std::string(source), std::string(role), vex::Data::MakeCustom(texture)};
}

/// Stores a texture under a target port. The constant already written to the port stays beside
/// the texture (the placeholder or factor a mapping chose); a port without one gets the target
/// bundle's default, and a port the bundle does not know gets opaque white. Only lack of memory
/// fails.
inline vex::Result<void> StoreTexture(vex::ParameterSet& target, std::string_view port,
                                      const vex::TextureBuffer& texture) {
  vex::Parameter entry;
  if (const vex::Parameter* existing = target.Find(port); existing != nullptr && existing->Constant() != nullptr) {
    entry = vex::Parameter(*existing->Constant());
    entry.properties = existing->properties;
  } else if (const vex::ParameterSet* defaults = BundleDefaults(target.GetBundle());
             defaults != nullptr && defaults->Find(port) != nullptr && defaults->Find(port)->Constant() != nullptr) {
    entry = vex::Parameter(*defaults->Find(port)->Constant());
  } else {
    entry = vex::Parameter::Constant(vex::ColorA{1.0, 1.0, 1.0, 1.0});
  }
  entry.texture = texture;
  return Set(target, port, std::move(entry));
}

}  // namespace interop::mapping
