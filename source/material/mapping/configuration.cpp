// The `configuration` unit: the mapping-path settings, declared at library load
// so the host's configuration service knows them before the first mapping runs.
#include "material/mapping/configuration.h"

#include <algorithm>
#include <memory>
#include <new>
#include <optional>

#include "frame/module.h"
#include "vex/host.h"

namespace interop::mapping {

std::string SettingValue(std::string_view name) {
  return vex::IsHostBound() ? vex::Host().configuration->GetString(name) : std::string();
}

vex::Result<vex::ParameterSetRef> SnapshotForDump(const vex::ParameterSet& set) {
  std::shared_ptr<vex::ParameterSet> copy;
  try {
    copy = std::make_shared<vex::ParameterSet>(set);
  } catch (const std::bad_alloc&) {
    return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  }
  for (auto& [port, entry] : copy->Entries()) {
    if (!entry.texture || !entry.texture->_pixels) continue;
    const vex::PixelArray& pixels = *entry.texture->_pixels;
    auto owned = vex::PixelArray::Allocate(pixels.GetCount());
    if (!owned) return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
    std::copy_n(pixels.Data(), pixels.GetCount() * 4, owned->Data());
    entry.texture->_pixels = std::move(owned);
  }
  return copy;
}

vex::Result<void> WriteMappingDump(std::string_view directory, const vex::ParameterSet& input,
                                   const vex::ParameterSet& output) {
  const auto& host = vex::Host();
  const auto ms = static_cast<std::int64_t>(host.clock->NowSeconds() * 1000.0);
  std::string base(directory);
  if (!base.empty() && base.back() != '/' && base.back() != '\\') base.push_back('/');
  const std::string prefix = base + std::to_string(ms);
  VEX_TRY(host.files->WriteParameterSet(prefix + "_mapping_input", input));
  auto written = host.files->WriteParameterSet(prefix + "_mapping_output", output);
  // A dump is the pair or nothing: without its output the input is removed again.
  if (!written) (void)host.files->Remove(prefix + "_mapping_input");
  return written;
}

vex::Result<void> WriteMappingDump(std::string_view directory, const vex::ParameterSet& input,
                                   const vex::ParameterSet& output, const vex::Id& inputBundle) {
  if (input.GetBundle().IsPopulated() || !inputBundle.IsPopulated())
    return WriteMappingDump(directory, input, output);
  std::optional<vex::ParameterSet> tagged;
  try {
    tagged.emplace(input);
  } catch (const std::bad_alloc&) {
    return VEX_FAIL(vex::ErrorKind::OutOfMemory, "Out of memory");
  }
  VEX_TRY(tagged->Tag(inputBundle));
  return WriteMappingDump(directory, *tagged, output);
}

namespace {

struct ConfigurationUnit {
  static constexpr std::string_view kUnit = "configuration";
  ConfigurationUnit() {
    auto declare = [](std::string_view name, std::string_view help) {
      g_kelvo.Declare({vex::DeclarationKind::Setting, std::string(name), std::string(kUnit), std::string(help)});
    };
    declare(kViewportFbxMappingPath, "Path to the export data of viewport to FBX mapping.");
    declare(kCorvaneUsdMappingPath, "Path to the export data of Corvane to USD Preview Surface mapping.");
  }
  // Withdrawing the declarations releases the setting strings when the module unloads.
  ~ConfigurationUnit() { g_kelvo.Withdraw(kUnit); }
};

ConfigurationUnit s_configurationUnit INTEROP_UNIT_PRIORITY(kConfigurationUnitPriority);

}  // namespace
}  // namespace interop::mapping
