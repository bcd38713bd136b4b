// The Allplan saver's --options strings, one per line.
#include "cli/allplan_options.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  vex::ParamContainer settings;
  while (!text.empty()) {
    const auto end = text.find('\n');
    (void)cli::ApplyAllplanOption(std::string(text.substr(0, end)), settings);
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return 0;
}
