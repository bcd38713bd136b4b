// vexinterop archicad locate|send|open|close, and vexinterop menus: the
// ArchiCAD exchange driven through the loaded module, printing what it did.
#include <filesystem>
#include <fstream>
#include <iostream>

#include <unistd.h>

#include "cli/commands.h"
#include "host/document_events.h"
#include "host/scene_file.h"

namespace fs = std::filesystem;

namespace cli {
namespace {

constexpr std::int32_t kCommandId = 200000215;
constexpr std::int32_t kOpenRequest = 300001002;
constexpr std::int32_t kMarkKey = 50010;

struct ArchicadArgs {
  std::string registry;  ///< --registry FILE.reg
  std::string userDir;   ///< --user-dir DIR
  bool launch = false;   ///< --launch: really start ArchiCAD
  std::string scene;
  std::string path;
  std::string answer;
};

/// Installs the described registry and the user directory before the module loads (the menu is
/// built while it loads).
void Prepare(Context& context, const ArchicadArgs& args) {
  context.beforeLoad = [&args](host::ReferenceHost& h) -> vex::Result<void> {
    if (!args.registry.empty()) VEX_TRY(h.registry().LoadFile(args.registry));
    if (!args.userDir.empty()) h.files().userWritePath = fs::absolute(args.userDir).string();
    h.processes().launch = args.launch;
    return {};
  };
}

/// What the host has seen so far, to print only what one action added.
struct Marks {
  std::size_t console = 0, dialogs = 0, documentFiles = 0, opened = 0, processes = 0, registry = 0;
  explicit Marks(host::ReferenceHost& h)
      : console(h.console().Lines().size()),
        dialogs(h.dialogs().Records().size()),
        documentFiles(h.documents().fileLog.size()),
        opened(h.files().Opened().size()),
        processes(h.processes().Records().size()),
        registry(h.registry().OpenAttempts().size()) {}
};

std::string FirstByte(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  char c = 0;
  if (!in.get(c)) return "(empty)";
  return std::to_string(static_cast<unsigned char>(c));
}

void PrintSince(host::ReferenceHost& h, const Marks& m) {
  const auto attempts = h.registry().OpenAttempts();
  for (std::size_t i = m.registry; i < attempts.size(); ++i)
    std::cout << "registry key: HKEY_CURRENT_USER\\" << attempts[i].path
              << (attempts[i].opened ? " (opened)" : " (missing)") << '\n';
  const auto log = h.documents().fileLog;
  for (std::size_t i = m.documentFiles; i < log.size(); ++i)
    std::cout << (log[i].operation == "save" ? "scene saved: " : "scene loaded: ") << log[i].path << " (format "
              << log[i].format << ", flags " << log[i].flags << (log[i].ok ? "" : ", failed") << ")\n";
  const auto opened = h.files().Opened();
  for (std::size_t i = m.opened; i < opened.size(); ++i) {
    const auto& o = opened[i];
    std::cout << "file written: " << o.path << " (byte " << FirstByte(o.path) << ", "
              << (o.options.byteOrder == 2 ? "big-endian" : "little-endian") << ", type " << o.options.type
              << ", creator " << o.options.creator << ")\n";
  }
  const auto dialogs = h.dialogs().Records();
  for (std::size_t i = m.dialogs; i < dialogs.size(); ++i) {
    if (dialogs[i].question)
      std::cout << "question: " << dialogs[i].text << " -> " << (dialogs[i].answer ? "yes" : "no") << '\n';
    else
      std::cout << "dialog: " << dialogs[i].text << '\n';
  }
  const auto lines = h.console().Lines();
  for (std::size_t i = m.console; i < lines.size(); ++i) std::cout << "console: " << lines[i] << '\n';
  const auto started = h.processes().Records();
  for (std::size_t i = m.processes; i < started.size(); ++i) {
    std::cout << (started[i].launched ? "started: " : "would start: ") << started[i].program;
    for (const auto& a : started[i].arguments) std::cout << " \"" << a << '"';
    std::cout << '\n';
  }
}

bool MenuHasEntry(const vex::MenuEntry& menu) {
  if (menu.id == "PLUGIN_CMD_200000215") return true;
  for (const auto& c : menu.children)
    if (MenuHasEntry(c)) return true;
  return false;
}

vex::ICommand* Command(host::ReferenceHost& h) {
  const auto* registration = h.plugins().FindCommand(kCommandId);
  return registration ? registration->command.get() : nullptr;
}

int RunLocate(Context& context, const ArchicadArgs& args) {
  // A scratch user directory: the command's dry run writes its exchange file there.
  const fs::path scratch = fs::temp_directory_path() / ("vexinterop-locate-" + std::to_string(::getpid()));
  ArchicadArgs dry = args;
  dry.userDir = scratch.string();
  dry.launch = false;
  Prepare(context, dry);
  auto loaded = context.Host();
  if (!loaded) return Fail(loaded.error());
  host::ReferenceHost& h = **loaded;
  auto* command = Command(h);
  if (command == nullptr) return Fail("the module did not register the Send To ArchiCAD command");
  // The menu was built while the module loaded: that was the check-only search.
  const auto* editor = h.plugins().FindMenu("M_EDITOR");
  const bool installed = editor != nullptr && MenuHasEntry(*editor);
  std::cout << "check-only: " << (installed ? "found (menu entry PLUGIN_CMD_200000215 inserted)" : "not found (no menu entry)")
            << '\n';
  const std::size_t checkOnlyAttempts = h.registry().OpenAttempts().size();
  // The full search runs inside the command; starts are only recorded here.
  host::Document& document = h.documents().NewDocument("locate");
  Marks before(h);
  (void)command->Execute(&document);
  const auto started = h.processes().Records();
  const bool foundProgram = started.size() > before.processes;
  if (foundProgram)
    std::cout << "program: " << started.back().program << '\n';
  else
    std::cout << "program: not found\n";
  const auto attempts = h.registry().OpenAttempts();
  for (std::size_t i = 0; i < attempts.size(); ++i)
    std::cout << (i < checkOnlyAttempts ? "check-only" : "full") << " search: HKEY_CURRENT_USER\\" << attempts[i].path
              << (attempts[i].opened ? " (opened)" : " (missing)") << '\n';
  if (h.registry().OpenKeyCount() != 0) std::cout << "registry keys left open: " << h.registry().OpenKeyCount() << '\n';
  h.documents().CloseAll();
  std::error_code ec;
  fs::remove_all(scratch, ec);
  return installed || foundProgram ? kExitOk : kExitFailure;
}

int RunSend(Context& context, const ArchicadArgs& args) {
  Prepare(context, args);
  auto loaded = context.Host();
  if (!loaded) return Fail(loaded.error());
  host::ReferenceHost& h = **loaded;
  auto* command = Command(h);
  if (command == nullptr) return Fail("the module did not register the Send To ArchiCAD command");
  auto document = LoadScene(h, args.scene);
  if (!document) return Fail(document.error());
  const bool marked = (*document)->GetDataContainer().GetInt32(kMarkKey) == kCommandId;
  std::cout << (marked ? "hand-back of " : "new hand-over of ") << args.scene << '\n';
  Marks before(h);
  const bool ok = command->Execute(*document);
  PrintSince(h, before);
  if (h.processes().WaitAll() != 0) std::cout << "the started program reported a failure\n";
  std::cout << "command: " << (ok ? "succeeded" : "failed") << '\n';
  return ok ? kExitOk : kExitFailure;
}

/// Sends the open request ArchiCAD's side sends; returns the opened document or nullptr.
host::Document* Open(host::ReferenceHost& h, const std::string& path) {
  auto* command = Command(h);
  if (command == nullptr) return nullptr;
  std::string request = path;
  const std::size_t before = h.documents().GetDocuments().size();
  (void)command->Message(kOpenRequest, request.data());
  return h.documents().GetDocuments().size() > before ? h.documents().Active() : nullptr;
}

/// The reason the last load failed, as the host recorded it.
std::string WhyNotOpened(host::ReferenceHost& h, const std::string& path) {
  const auto& log = h.documents().fileLog;
  for (auto it = log.rbegin(); it != log.rend(); ++it)
    if (it->operation == "load" && !it->ok && !it->error.empty()) return it->error;
  return path + ": the scene was not opened";
}

int RunOpen(Context& context, const ArchicadArgs& args) {
  Prepare(context, args);
  auto loaded = context.Host();
  if (!loaded) return Fail(loaded.error());
  host::ReferenceHost& h = **loaded;
  Marks before(h);
  host::Document* document = Open(h, args.path);
  PrintSince(h, before);
  if (document == nullptr) return Fail(WhyNotOpened(h, args.path));
  std::cout << "document: " << document->GetName() << " in " << document->GetPath() << " (active, mark "
            << document->GetDataContainer().GetInt32(kMarkKey) << ")\n";
  // The scene stays with ArchiCAD: leave without the end-of-activity hand-back.
  h.documents().CloseAll();
  return kExitOk;
}

int RunClose(Context& context, const ArchicadArgs& args) {
  Prepare(context, args);
  auto loaded = context.Host();
  if (!loaded) return Fail(loaded.error());
  host::ReferenceHost& h = **loaded;
  h.dialogs().answerQuestions = args.answer == "yes";
  Marks opened(h);
  host::Document* document = Open(h, args.scene);
  PrintSince(h, opened);
  if (document == nullptr) return Fail(WhyNotOpened(h, args.scene));
  Marks before(h);
  host::CloseDocumentAsUser(h.plugins(), h.documents(), *document);
  PrintSince(h, before);
  return kExitOk;
}

int RunMenus(Context& context, const ArchicadArgs& args) {
  Prepare(context, args);
  auto loaded = context.Host();
  if (!loaded) return Fail(loaded.error());
  std::cout << (*loaded)->plugins().DescribeMenus();
  return kExitOk;
}

void AddCommonOptions(CLI::App* command, ArchicadArgs& args) {
  command->add_option("--registry", args.registry, "A regedit \".reg\" file describing the current user's registry")
      ->check(CLI::ExistingFile);
  command->add_option("--user-dir", args.userDir, "The host's per-user write path (default: ~/.local/share/vexon)");
}

}  // namespace

void AddArchicadCommands(CLI::App& app, Context& context) {
  auto args = std::make_shared<ArchicadArgs>();
  auto* group = app.add_subcommand("archicad", "Send scenes to ArchiCAD and take them back");
  group->require_subcommand(1);

  auto* locate = group->add_subcommand("locate", "Look for ArchiCAD in the registry as the module does");
  AddCommonOptions(locate, *args);
  locate->callback([&context, args] { throw CLI::RuntimeError(RunLocate(context, *args)); });

  auto* send = group->add_subcommand("send", "Run \"Send To ArchiCAD\" on a scene file");
  send->add_option("scene", args->scene, "Scene file (.vex)")->required()->check(CLI::ExistingFile);
  AddCommonOptions(send, *args);
  send->add_flag("--launch", args->launch, "Really start ArchiCAD (default: only report the start)");
  send->callback([&context, args] { throw CLI::RuntimeError(RunSend(context, *args)); });

  auto* open = group->add_subcommand("open", "Send the open request ArchiCAD's side sends for a scene file");
  open->add_option("path", args->path, "Path as ArchiCAD sends it (\"/\" or \"\\\")")->required();
  AddCommonOptions(open, *args);
  open->callback([&context, args] { throw CLI::RuntimeError(RunOpen(context, *args)); });

  auto* close = group->add_subcommand("close", "Open a scene at ArchiCAD's request, then close it as the user");
  close->add_option("scene", args->scene, "Scene file (.vex)")->required();
  close->add_option("--answer", args->answer, "Answer to \"send the changes back?\"")
      ->required()
      ->check(CLI::IsMember({"yes", "no"}));
  AddCommonOptions(close, *args);
  close->callback([&context, args] { throw CLI::RuntimeError(RunClose(context, *args)); });

  auto* menus = app.add_subcommand("menus", "Print the host's menus after the module built its entries");
  AddCommonOptions(menus, *args);
  menus->callback([&context, args] { throw CLI::RuntimeError(RunMenus(context, *args)); });
}

}  // namespace cli
