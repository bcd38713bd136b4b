#include "material/nodematerialbaker.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <string>
#include <vector>

#include "vex/host.h"

namespace interop::material {
namespace {

using Rgba = std::array<float, 4>;

enum class Kind : std::uint8_t { Image, Constant, Checker, Gradient };

/// An input of a procedural node: a constant, or another node of the program.
struct Input {
  Rgba value{0, 0, 0, 1};
  int child = -1;
};

struct Op {
  Kind kind = Kind::Constant;
  Input a, b;                 // constant colour: a; checker and gradient: the two colours
  float squares = 8.f;        // checker: squares per side
  float dirX = 1.f, dirY = 0.f;  // gradient: unit direction
  int image = -1;             // index into Program::images
  int channel = -1;           // image: channel select (-1: all four)
  float valueScale = 1.f;     // image: multiplies red, green and blue
  bool nearest = false;       // image: no filtering
};

struct Program {
  std::vector<Op> ops;
  std::vector<vex::TextureBuffer> images;
};

constexpr int kMaxDepth = 32;

bool IsImage(const vex::GraphNode& node) {
  return node.asset == vex::node::kImage || node.asset == vex::node::kCorvaneImage;
}

std::string StringPort(const vex::GraphNode& node, std::string_view port) {
  const vex::Data* d = node.ports.Find(port);
  const auto* s = d ? d->Get<std::string>() : nullptr;
  return s ? *s : std::string();
}

std::optional<double> NumberPort(const vex::GraphNode& node, std::string_view port) {
  const vex::Data* d = node.ports.Find(port);
  if (d == nullptr) return std::nullopt;
  if (const auto* f = d->Get<double>()) return *f;
  if (const auto* i = d->Get<std::int32_t>()) return *i;
  return std::nullopt;
}

/// A colour value of a port: Color, ColorA, a grey number or a list of three or four numbers.
std::optional<Rgba> ColorPort(const vex::GraphNode& node, std::string_view port) {
  const vex::Data* d = node.ports.Find(port);
  if (d == nullptr) return std::nullopt;
  if (const auto* c = d->Get<vex::Color>())
    return Rgba{static_cast<float>(c->r), static_cast<float>(c->g), static_cast<float>(c->b), 1.f};
  if (const auto* c = d->Get<vex::ColorA>())
    return Rgba{static_cast<float>(c->r), static_cast<float>(c->g), static_cast<float>(c->b), static_cast<float>(c->a)};
  if (auto f = NumberPort(node, port)) {
    const auto g = static_cast<float>(*f);
    return Rgba{g, g, g, 1.f};
  }
  if (const auto* a = d->Get<vex::DataArray>(); a && (a->size() == 3 || a->size() == 4)) {
    Rgba out{0, 0, 0, 1};
    for (std::size_t i = 0; i < a->size(); ++i) {
      const auto* f = (*a)[i].Get<double>();
      const auto* n = (*a)[i].Get<std::int32_t>();
      if (!f && !n) return std::nullopt;
      out[i] = f ? static_cast<float>(*f) : static_cast<float>(*n);
    }
    return out;
  }
  return std::nullopt;
}

vex::Error CannotBake(const std::string& problem) {
  return vex::MakeError(vex::ErrorKind::IllegalArgument, "Illegal argument: " + problem, VEX_UNIT, __LINE__);
}

struct Compiler {
  const vex::NodeGraph& graph;
  const vex::IDocument* document;
  bool colorData;
  Program& program;

  vex::Result<Input> CompileInput(const vex::GraphNode& node, std::string_view port, Rgba fallback, int depth) {
    Input in;
    if (const vex::GraphNode* source = graph.Source(node.id, port)) {
      VEX_ASSIGN(in.child, Compile(*source, depth + 1));
      return in;
    }
    if (node.ports.Contains(port)) {
      auto c = ColorPort(node, port);
      if (!c) return std::unexpected(CannotBake("port " + std::string(port) + " of node " + node.id + " is not a colour"));
      in.value = *c;
    } else {
      in.value = fallback;
    }
    return in;
  }

  vex::Result<int> Compile(const vex::GraphNode& node, int depth) {
    if (depth > kMaxDepth) return std::unexpected(CannotBake("the texture nodes feeding the port form a cycle"));
    Op op;
    if (IsImage(node)) {
      op.kind = Kind::Image;
      const std::string file = StringPort(node, "file");
      if (file.empty()) return std::unexpected(CannotBake("image node " + node.id + " has no file"));
      const std::string space = StringPort(node, "colorSpace");
      bool color = colorData;
      if (space == "sRGB" || space == "srgb") color = true;
      else if (space == "raw" || space == "linear" || space == "data") color = false;
      else if (!space.empty() && space != "auto")
        return std::unexpected(CannotBake("image node " + node.id + " has the unknown colour space \"" + space + "\""));
      VEX_ASSIGN(auto pixels, vex::Host().images->Read(vex::ResolveDocumentPath(file, document), color));
      if (pixels.IsEmpty()) return std::unexpected(CannotBake("image " + file + " has no pixels"));
      const std::string channel = StringPort(node, "channelSelect");
      if (!channel.empty()) {
        static constexpr std::string_view kChannels = "rgba";
        const auto at = kChannels.find(channel);
        if (channel.size() != 1 || at == std::string_view::npos)
          return std::unexpected(CannotBake("image node " + node.id + " selects the unknown channel \"" + channel + "\""));
        op.channel = static_cast<int>(at);
      }
      op.valueScale = static_cast<float>(NumberPort(node, "valueScale").value_or(1.0));
      const std::string filter = StringPort(node, "filter");
      op.nearest = filter == "nearest";
      op.image = static_cast<int>(program.images.size());
      program.images.push_back(std::move(pixels));
    } else if (node.asset == vex::node::kConstantColor) {
      op.kind = Kind::Constant;
      VEX_ASSIGN(op.a, CompileInput(node, "color", {1, 1, 1, 1}, depth));
    } else if (node.asset == vex::node::kChecker) {
      op.kind = Kind::Checker;
      VEX_ASSIGN(op.a, CompileInput(node, "color1", {1, 1, 1, 1}, depth));
      VEX_ASSIGN(op.b, CompileInput(node, "color2", {0, 0, 0, 1}, depth));
      op.squares = static_cast<float>(NumberPort(node, "squares").value_or(8.0));
      if (!(op.squares > 0.f)) return std::unexpected(CannotBake("checker node " + node.id + " needs a positive number of squares"));
    } else if (node.asset == vex::node::kLinearGradient) {
      op.kind = Kind::Gradient;
      VEX_ASSIGN(op.a, CompileInput(node, "color1", {0, 0, 0, 1}, depth));
      VEX_ASSIGN(op.b, CompileInput(node, "color2", {1, 1, 1, 1}, depth));
      const double angle = NumberPort(node, "angle").value_or(0.0) * std::numbers::pi / 180.0;
      op.dirX = static_cast<float>(std::cos(angle));
      op.dirY = static_cast<float>(std::sin(angle));
    } else {
      return std::unexpected(CannotBake("node " + node.id + " (" + node.asset.Str() + ") cannot be baked"));
    }
    program.ops.push_back(op);
    return static_cast<int>(program.ops.size() - 1);
  }
};

// --- evaluation (no allocation) ----------------------------------------------------------------

const float* Texel(const vex::TextureBuffer& image, std::int64_t x, std::int64_t y) {
  x = std::clamp<std::int64_t>(x, 0, image._dimensions.width - 1);
  y = std::clamp<std::int64_t>(y, 0, image._dimensions.height - 1);
  return image._pixels->Pixel(static_cast<std::size_t>(y * image._dimensions.width + x));
}

/// Bilinear where the footprint is at most one source pixel, the exact area mean of the footprint
/// where it is larger (minification).
Rgba SampleImage(const vex::TextureBuffer& image, bool nearest, float u, float v, float du, float dv) {
  const auto w = static_cast<float>(image._dimensions.width);
  const auto h = static_cast<float>(image._dimensions.height);
  Rgba out{0, 0, 0, 0};
  if (nearest) {
    const float* t = Texel(image, static_cast<std::int64_t>(std::floor(u * w)), static_cast<std::int64_t>(std::floor(v * h)));
    return {t[0], t[1], t[2], t[3]};
  }
  const float fw = du * w, fh = dv * h;
  if (fw <= 1.f && fh <= 1.f) {
    const float x = u * w - 0.5f, y = v * h - 0.5f;
    const float x0 = std::floor(x), y0 = std::floor(y);
    const float tx = x - x0, ty = y - y0;
    const auto ix = static_cast<std::int64_t>(x0), iy = static_cast<std::int64_t>(y0);
    const float* p00 = Texel(image, ix, iy);
    const float* p10 = Texel(image, ix + 1, iy);
    const float* p01 = Texel(image, ix, iy + 1);
    const float* p11 = Texel(image, ix + 1, iy + 1);
    for (int c = 0; c < 4; ++c)
      out[c] = (p00[c] * (1 - tx) + p10[c] * tx) * (1 - ty) + (p01[c] * (1 - tx) + p11[c] * tx) * ty;
    return out;
  }
  const float x0 = (u - du * 0.5f) * w, x1 = (u + du * 0.5f) * w;
  const float y0 = (v - dv * 0.5f) * h, y1 = (v + dv * 0.5f) * h;
  float total = 0.f;
  for (auto iy = static_cast<std::int64_t>(std::floor(y0)); static_cast<float>(iy) < y1; ++iy) {
    const float wy = std::min(y1, static_cast<float>(iy + 1)) - std::max(y0, static_cast<float>(iy));
    if (wy <= 0.f) continue;
    for (auto ix = static_cast<std::int64_t>(std::floor(x0)); static_cast<float>(ix) < x1; ++ix) {
      const float wx = std::min(x1, static_cast<float>(ix + 1)) - std::max(x0, static_cast<float>(ix));
      if (wx <= 0.f) continue;
      const float weight = wx * wy;
      const float* t = Texel(image, ix, iy);
      for (int c = 0; c < 4; ++c) out[c] += t[c] * weight;
      total += weight;
    }
  }
  if (total > 0.f)
    for (float& c : out) c /= total;
  return out;
}

Rgba Evaluate(const Program& program, int index, float u, float v, float du, float dv);

Rgba EvaluateInput(const Program& program, const Input& in, float u, float v, float du, float dv) {
  return in.child < 0 ? in.value : Evaluate(program, in.child, u, v, du, dv);
}

Rgba Evaluate(const Program& program, int index, float u, float v, float du, float dv) {
  const Op& op = program.ops[static_cast<std::size_t>(index)];
  switch (op.kind) {
    case Kind::Image: {
      Rgba c = SampleImage(program.images[static_cast<std::size_t>(op.image)], op.nearest, u, v, du, dv);
      if (op.channel >= 0) c = {c[op.channel], c[op.channel], c[op.channel], 1.f};
      for (int i = 0; i < 3; ++i) c[i] *= op.valueScale;
      return c;
    }
    case Kind::Constant:
      return EvaluateInput(program, op.a, u, v, du, dv);
    case Kind::Checker: {
      const auto cx = static_cast<std::int64_t>(std::floor(u * op.squares));
      const auto cy = static_cast<std::int64_t>(std::floor(v * op.squares));
      return EvaluateInput(program, ((cx + cy) & 1) == 0 ? op.a : op.b, u, v, du, dv);
    }
    case Kind::Gradient: {
      const float span = std::abs(op.dirX) + std::abs(op.dirY);
      const float t = std::clamp(0.5f + ((u - 0.5f) * op.dirX + (v - 0.5f) * op.dirY) / span, 0.f, 1.f);
      const Rgba a = EvaluateInput(program, op.a, u, v, du, dv);
      const Rgba b = EvaluateInput(program, op.b, u, v, du, dv);
      return {a[0] + (b[0] - a[0]) * t, a[1] + (b[1] - a[1]) * t, a[2] + (b[2] - a[2]) * t, a[3] + (b[3] - a[3]) * t};
    }
  }
  return {0, 0, 0, 0};
}

}  // namespace

vex::Dimensions FittedDimensions(vex::Dimensions source, std::int64_t size, vex::TextureResize mode) {
  if (mode != vex::TextureResize::Fit || source.width <= 0 || source.height <= 0) return {size, size};
  if (source.width >= source.height)
    return {size, std::max<std::int64_t>(1, std::llround(static_cast<double>(size) * static_cast<double>(source.height) /
                                                         static_cast<double>(source.width)))};
  return {std::max<std::int64_t>(1, std::llround(static_cast<double>(size) * static_cast<double>(source.width) /
                                                 static_cast<double>(source.height))),
          size};
}

vex::Result<vex::TextureBuffer> BakeNodeInput(const vex::NodeGraph& graph, const vex::GraphNode& endNode,
                                              std::string_view port, const BakeSettings& settings,
                                              const vex::IDocument* document, bool colorData) {
  if (settings.dimensions < 1 || settings.dimensions > kMaxBakeDimensions)
    return std::unexpected(CannotBake("texture dimensions " + std::to_string(settings.dimensions) +
                                      " are outside 1 to " + std::to_string(kMaxBakeDimensions)));
  const auto mode = static_cast<std::int32_t>(settings.resize);
  if (mode < 0 || mode > static_cast<std::int32_t>(vex::TextureResize::Fit))
    return std::unexpected(CannotBake("unknown texture resize mode " + std::to_string(mode)));
  const vex::GraphNode* source = graph.Source(endNode.id, port);
  if (source == nullptr)
    return std::unexpected(CannotBake("port " + std::string(port) + " of node " + endNode.id + " has no texture input"));

  Program program;
  Compiler compiler{graph, document, colorData, program};
  VEX_ASSIGN(const int root, compiler.Compile(*source, 0));

  // The source's own size: an image root has its pixels' size, procedural roots are square.
  const Op& rootOp = program.ops[static_cast<std::size_t>(root)];
  const vex::Dimensions sourceSize = rootOp.kind == Kind::Image
                                         ? program.images[static_cast<std::size_t>(rootOp.image)]._dimensions
                                         : vex::Dimensions{settings.dimensions, settings.dimensions};
  const vex::Dimensions out = FittedDimensions(sourceSize, settings.dimensions, settings.resize);
  // Where the source lands in the output: its width and height in output pixels and its offset.
  double contentW = static_cast<double>(out.width), contentH = static_cast<double>(out.height);
  if (settings.resize == vex::TextureResize::Pad || settings.resize == vex::TextureResize::Crop) {
    const double sx = static_cast<double>(out.width) / static_cast<double>(sourceSize.width);
    const double sy = static_cast<double>(out.height) / static_cast<double>(sourceSize.height);
    const double s = settings.resize == vex::TextureResize::Pad ? std::min(sx, sy) : std::max(sx, sy);
    contentW = static_cast<double>(sourceSize.width) * s;
    contentH = static_cast<double>(sourceSize.height) * s;
  }
  const auto offsetX = static_cast<float>((static_cast<double>(out.width) - contentW) * 0.5);
  const auto offsetY = static_cast<float>((static_cast<double>(out.height) - contentH) * 0.5);
  const auto cw = static_cast<float>(contentW), ch = static_cast<float>(contentH);

  vex::TextureBuffer buffer;
  buffer._dimensions = out;
  buffer._pixels = vex::PixelArray::Allocate(static_cast<std::size_t>(out.Pixels()));
  if (!buffer._pixels) return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  buffer.colorSpace = colorData ? "sRGB" : "";

  const std::int64_t width = out.width;
  float* pixels = buffer._pixels->Data();
  VEX_TRY(vex::Host().parallel->ParallelFor(out.Pixels(), [&](std::int64_t begin, std::int64_t end) {
    for (std::int64_t i = begin; i < end; ++i) {
      const float u = (static_cast<float>(i % width) + 0.5f - offsetX) / cw;
      const float v = (static_cast<float>(i / width) + 0.5f - offsetY) / ch;
      Rgba c{0, 0, 0, 0};  // padding outside the source
      if (u >= 0.f && u <= 1.f && v >= 0.f && v <= 1.f) c = Evaluate(program, root, u, v, 1.f / cw, 1.f / ch);
      std::copy(c.begin(), c.end(), pixels + 4 * i);
    }
  }));
  return buffer;
}

}  // namespace interop::material
