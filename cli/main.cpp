// vexinterop: drives the exchange module on real files, through the reference host.
#include <iostream>

#include "cli/commands.h"

namespace cli {

vex::Result<host::ReferenceHost*> Context::Host() {
  if (host_) return host_.get();
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
  return host::json::ReadParameterSetFile(path, read);
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

int main(int argc, char** argv) {
  CLI::App app{"vexinterop: material, light and scene exchange through the interop_misc module"};
  app.require_subcommand(1);
  cli::Context context;
  app.add_option("--module", context.modulePath, "Module library to load (default: beside this program)");
  app.add_option("--set", context.settings, "Set a module setting, NAME=VALUE (e.g. g_viewportFBXMappingPath=DIR)");
  app.add_flag("-v,--verbose", context.verbose, "Echo the module's console lines and dialogs");
  cli::AddCoreCommands(app, context);
  cli::AddLightCommands(app, context);
  cli::AddAllplanCommands(app, context);
  cli::AddMaterialCommands(app, context);
  cli::AddArchicadCommands(app, context);
  cli::AddFileCommands(app, context);
  cli::AddMergeCommands(app, context);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e);
  }
  return 0;
}
