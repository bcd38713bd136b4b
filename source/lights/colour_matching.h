// The CIE 1931 2-degree colour matching functions with the Judd-Vos correction,
// 380 nm to 825 nm in 5 nm steps. The table is generated at build time from
// source/lights/data/cie1931_judd_vos_2deg_5nm.csv, every value rounded to six
// decimal places (half up): the first row is 0.002690, 0.000200, 0.012260.
#pragma once

#include <array>
#include <cstddef>

namespace interop::lights {

struct ColourMatchingRow {
  double wavelength;  ///< nanometres
  double x, y, z;     ///< x̄, ȳ, z̄
};

inline constexpr std::size_t kColourMatchingRows = 90;

extern const std::array<ColourMatchingRow, kColourMatchingRows> kColourMatching;

}  // namespace interop::lights
