// Pixel kernels of the material mappings: each rewrites RGBA float buffers in
// place, pixel by pixel, on the host's parallel-for. No kernel allocates; the
// result of a two-buffer kernel is its first buffer.
//
// The range forms (namespace `kernel`) do the work for pixels [begin, end) and
// are what the runners hand to the parallel-for; they are public so a caller
// can run a pass serially.
#pragma once

#include <cstdint>

#include "vex/error.h"
#include "vex/material.h"

namespace interop::mapping {

namespace kernel {
/// (1 - r, 1 - g, 1 - b, a).
void InvertRgb(float* pixels, std::int64_t begin, std::int64_t end);
/// (1, 1, 1, (r + g + b) * 0.33333334f).
void WhiteWithMeanAlpha(float* pixels, std::int64_t begin, std::int64_t end);
/// Base colour alpha becomes (r + g + b + a) * 0.25f of the opacity pixel; its colour stays.
void OpacityIntoAlpha(float* baseColor, const float* opacity, std::int64_t begin, std::int64_t end);
/// Metal pixel becomes (0, roughness green, metal green, 1).
void MetalRoughness(float* metal, const float* roughness, std::int64_t begin, std::int64_t end);
/// (0, g, 1, 1).
void GreenAsRoughness(float* pixels, std::int64_t begin, std::int64_t end);
/// ((r + g + b + a) * 0.25f, 0, 0, 1).
void Occlusion(float* pixels, std::int64_t begin, std::int64_t end);
/// (m, m, m, a) with m = (r + g + b) * 0.33333334f.
void GreyMean(float* pixels, std::int64_t begin, std::int64_t end);
}  // namespace kernel

/// Each runner covers every pixel of its buffer(s) on the host's parallel-for and waits. The
/// caller has checked that two-buffer passes get arrays of equal pixel count. Errors are those
/// of the parallel-for service.
vex::Result<void> InvertRgb(vex::PixelArray& pixels);
vex::Result<void> WhiteWithMeanAlpha(vex::PixelArray& pixels);
vex::Result<void> OpacityIntoAlpha(vex::PixelArray& baseColor, const vex::PixelArray& opacity);
vex::Result<void> MetalRoughness(vex::PixelArray& metal, const vex::PixelArray& roughness);
vex::Result<void> GreenAsRoughness(vex::PixelArray& pixels);
vex::Result<void> Occlusion(vex::PixelArray& pixels);
vex::Result<void> GreyMean(vex::PixelArray& pixels);

}  // namespace interop::mapping
