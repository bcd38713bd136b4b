// vexinterop: drives the exchange module on real files, through the reference host.
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <limits>

#include "cli/commands.h"
#include "host/formats/conversion.h"
#include "host/images.h"
#include "host/json_text.h"

namespace cli {

vex::Result<host::ReferenceHost*> Context::Host() {
  if (host_) return host_.get();
  if (maxPixels > 0) host::SetMaxImagePixels(maxPixels);
  if (maxJsonDepth > 0) host::SetJsonDepthLimit(maxJsonDepth);
  host::HostOptions options;
  options.quiet = !verbose;
  auto h = std::make_unique<host::ReferenceHost>(options);
  h->dialogs().echo = verbose;
  if (beforeLoad) VEX_TRY(beforeLoad(*h));
  const std::string path = modulePath.empty() ? host::ReferenceHost::DefaultModulePath() : modulePath;
  VEX_ASSIGN(host::LoadReport report, h->Load(path));
  for (const auto& p : report.problems) std::cerr << "vexinterop: warning: " << p << '\n';
  for (const auto& s : settings) {
    const auto eq = s.find('=');
    if (eq == std::string::npos)
      return VEX_FAIL(vex::ErrorKind::IllegalArgument, "--set " + s + ": expected NAME=VALUE");
    VEX_TRY(h->config().SetString(s.substr(0, eq), s.substr(eq + 1)));
  }
  host_ = std::move(h);
  return host_.get();
}

Context::~Context() = default;

int Fail(const vex::Error& error, int code) {
  std::cerr << "vexinterop: " << error.message << " (" << error.unit << ":" << error.line << ")\n";
  return code;
}

vex::Result<vex::ParameterSet> ReadSetFile(host::ReferenceHost& host, const std::string& path) {
  host::json::ReadOptions read;
  read.bundles = &host.bundles();
  read.images = &host.images();
  read.ids = &host.ids();
  VEX_ASSIGN(vex::ParameterSet set, host::json::ReadParameterSetFile(path, read));
  // The textures become pixel buffers as a baker gives them: a selected channel in every colour
  // channel and the value scale applied, so that no mapping applies them twice or not at all.
  host::formats::ResolveTextureProperties(set);
  return set;
}

host::scene_file::ReadOptions SceneReadOptions(const host::ReferenceHost& host) {
  host::scene_file::ReadOptions options;
  options.units = &host.units();
  return options;
}

vex::Result<host::Document*> LoadScene(host::ReferenceHost& host, const std::string& path) {
  return host::scene_file::Load(host.documents(), path, SceneReadOptions(host));
}

host::json::WriteOptions SetWriteOptions(host::ReferenceHost& host) {
  host::json::WriteOptions write;
  write.bundles = &host.bundles();
  return write;
}

int Fail(const std::string& message, int code) {
  std::cerr << "vexinterop: " << message << '\n';
  return code;
}

}  // namespace cli

namespace {

constexpr const char* kExitCodes =
    "Exit codes: 0 success, 1 the work failed (bad input, failed mapping, cannot write), "
    "2 no mapping between the two bundles, 64 wrong usage (unknown command or option, bad option value).\n"
    "Limits: --max-pixels (images), --max-json-depth (JSON nesting); see docs/robustness.md.";

/// Global options that take a value in the next argument.
bool TakesValue(std::string_view option) {
  return option == "--module" || option == "--set" || option == "--max-pixels" || option == "--max-json-depth";
}

std::string Cut(std::string_view text) {
  constexpr std::size_t kMax = 200;
  return text.size() <= kMax ? std::string(text) : std::string(text.substr(0, kMax)) + "...";
}

/// The command words before the options: "light" "frobnicate" for an unknown sub-command of
/// "light". Empty when every command word names a command.
std::string UnknownCommand(CLI::App& app, int argc, char** argv) {
  CLI::App* level = &app;
  std::string path;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "--") return {};
    if (arg.starts_with("-")) {
      if (level == &app && TakesValue(arg)) ++i;
      if (level != &app) return {};  // the command's own options follow
      continue;
    }
    if (level->get_subcommands([](CLI::App*) { return true; }).empty()) return {};
    CLI::App* next = nullptr;
    for (CLI::App* sub : level->get_subcommands([](CLI::App*) { return true; }))
      if (sub->check_name(std::string(arg))) next = sub;
    path += (path.empty() ? "" : " ") + std::string(arg);
    if (next == nullptr) return path;
    level = next;
  }
  return {};
}

[[noreturn]] void LastResort() {
  std::string what = "unknown failure";
  if (const auto current = std::current_exception()) {
    try {
      std::rethrow_exception(current);
    } catch (const std::bad_alloc&) {
      what = "out of memory";
    } catch (const std::exception& e) {
      what = Cut(e.what());
    } catch (...) {
    }
  }
  std::fputs(("vexinterop: internal failure: " + what + "\n").c_str(), stderr);
  std::_Exit(cli::kExitFailure);
}

int Run(int argc, char** argv) {
  CLI::App app{"vexinterop: material, light and scene exchange through the interop_misc module"};
  app.require_subcommand(1);
  app.footer(kExitCodes);
  cli::Context context;
  app.add_option("--module", context.modulePath, "Module library to load (default: beside this program)");
  app.add_option("--set", context.settings, "Set a module setting, NAME=VALUE (e.g. g_viewportFBXMappingPath=DIR)");
  app.add_flag("-v,--verbose", context.verbose, "Echo the module's console lines and dialogs");
  app.add_option("--max-pixels", context.maxPixels,
                 "Largest image read, in pixels (default " + std::to_string(host::kDefaultMaxImagePixels) + ")")
      ->check(cli::WholeNumberIn(1, std::numeric_limits<std::int64_t>::max()));
  app.add_option("--max-json-depth", context.maxJsonDepth,
                 "Deepest nesting of JSON arrays and objects read (default " +
                     std::to_string(host::kDefaultJsonDepth) + ")")
      ->check(cli::WholeNumberIn(1, 100000));
  cli::AddCoreCommands(app, context);
  cli::AddLightCommands(app, context);
  cli::AddAllplanCommands(app, context);
  cli::AddMaterialCommands(app, context);
  cli::AddArchicadCommands(app, context);
  cli::AddFileCommands(app, context);
  cli::AddMergeCommands(app, context);
  if (const std::string unknown = UnknownCommand(app, argc, argv); !unknown.empty()) {
    std::cerr << "vexinterop: unknown command '" << Cut(unknown) << "' (see vexinterop --help)\n";
    return cli::kExitUsage;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::RuntimeError& e) {
    // A command's result, carried out of the parser.
    const int code = e.get_exit_code();
    return code == cli::kExitOk || code == cli::kExitNoMapping || code == cli::kExitUsage ? code : cli::kExitFailure;
  } catch (const CLI::Success& e) {
    return app.exit(e);  // --help
  } catch (const CLI::ParseError& e) {
    std::cerr << "vexinterop: " << Cut(e.what()) << " (see vexinterop --help)\n";
    return cli::kExitUsage;
  }
  return cli::kExitOk;
}

}  // namespace

namespace cli {

CLI::Validator WholeNumberIn(std::int64_t min, std::int64_t max) {
  return CLI::Validator(
      [min, max](std::string& text) -> std::string {
        std::int64_t value = 0;
        const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (ec == std::errc() && end == text.data() + text.size() && value >= min && value <= max) return {};
        const std::string range = max == std::numeric_limits<std::int64_t>::max()
                                      ? "a whole number of at least " + std::to_string(min)
                                      : "a whole number from " + std::to_string(min) + " to " + std::to_string(max);
        return "expected " + range + ", got '" + Cut(text) + "'";
      },
      "INT in [" + std::to_string(min) + " - " + std::to_string(max) + "]");
}

}  // namespace cli

int main(int argc, char** argv) {
  // Nothing escapes: one line and exit code 1, also for a failure on a worker thread.
  std::set_terminate(&LastResort);
  try {
    return Run(argc, argv);
  } catch (...) {
    LastResort();
  }
}
