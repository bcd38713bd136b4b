// Host materials as the exchange framework sees them: a material's type, its
// document, whether it is node-based, and its channel parameters.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vex/data.h"
#include "vex/error.h"
#include "vex/scene.h"

namespace vex {

/// Host id of the standard material type.
inline constexpr std::int32_t kStandardMaterialType = 5703;

class IMaterial {
 public:
  virtual ~IMaterial() = default;
  virtual std::int32_t GetType() const = 0;
  virtual std::string GetName() const = 0;
  virtual bool IsNodeBased() const = 0;
  /// The document holding the material, or nullptr for a material outside any document.
  virtual IDocument* GetDocument() const = 0;
  /// A channel parameter (colour 2100, texture link 8000, ...); NotFound when absent.
  virtual Result<Data> GetParameter(std::int32_t id) const = 0;
};

using MaterialRef = std::shared_ptr<IMaterial>;

}  // namespace vex
