// "Send To ArchiCAD" through the built library, as the application drives it:
// registrations, the menu, the hand-over and hand-back, the open request, the
// closing hook and the end-of-activity message.
#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/document_events.h"
#include "host/reference_host.h"
#include "host/scene_file.h"

namespace fs = std::filesystem;

namespace {

constexpr std::int32_t kCommand = 200000215;
constexpr std::int32_t kOpenRequest = 300001002;
const std::string kNotFound = "ArchiCAD could not be found or started.";
const std::string kInstalled =
    "REGEDIT4\n[HKEY_CURRENT_USER\\Software\\Graphisoft\\ArchiCAD-64]\n\"Last Started Version\"=\"27\"\n"
    "[HKEY_CURRENT_USER\\Software\\Graphisoft\\ArchiCAD-64\\27]\n@=\"C:\\\\AC 27\\\\ArchiCAD.exe\"\n";

std::string Read(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

/// A loaded module in a scratch directory ("user dir" with a blank, to catch any splitting).
struct Session {
  fs::path dir = fs::temp_directory_path() / ("archicad_exchange_test_" + std::to_string(getpid()));
  host::ReferenceHost host{host::HostOptions{.quiet = true}};

  explicit Session(const std::string& registry = "") {
    fs::remove_all(dir);
    fs::create_directories(dir / "user dir");
    host.files().userWritePath = (dir / "user dir").string();
    if (!registry.empty()) {
      EXPECT_TRUE(host.registry().Parse(registry, "test.reg"));
    }
    auto loaded = host.Load(INTEROP_MODULE_PATH);
    EXPECT_TRUE(loaded) << (loaded ? "" : loaded.error().Describe());
  }
  ~Session() {
    host.Unload();
    fs::remove_all(dir);
  }
  vex::ICommand& Command() { return *host.plugins().FindCommand(kCommand)->command; }
  std::vector<std::string> Dialogs() const {
    std::vector<std::string> out;
    for (const auto& r : const_cast<host::ReferenceHost&>(host).dialogs().Records()) out.push_back(r.text);
    return out;
  }
  std::string Menus() { return host.plugins().DescribeMenus(); }
  fs::path ExchangeFile() const { return dir / "user dir" / "temp" / "archicadexchange.vex"; }
  /// Writes a scene file and sends the open request for `requestPath` (default: the file).
  host::Document* Open(const std::string& name, std::string requestPath = "") {
    const fs::path file = dir / name;
    host::Document scratch("x");
    scratch.Settings().Set(7, vex::Data(std::int32_t{7}));
    EXPECT_TRUE(host::scene_file::Save(scratch, file.string()));
    if (requestPath.empty()) requestPath = file.string();
    const auto before = host.documents().GetDocuments().size();
    Command().Message(kOpenRequest, requestPath.data());
    return host.documents().GetDocuments().size() > before ? host.documents().Active() : nullptr;
  }
};

std::string Backslashed(std::string path) {
  for (char& c : path)
    if (c == '/') c = '\\';
  return path;
}

TEST(ArchiCadExchange, RegistersCommandThenHookAndTheHookOnlyAfterTheCommand) {
  {
    Session s;
    std::vector<std::pair<std::string, std::int32_t>> seen;
    for (const auto& a : s.host.plugins().Attempts()) seen.emplace_back(a.kind, a.id);
    EXPECT_EQ(seen, (std::vector<std::pair<std::string, std::int32_t>>{
                        {"saver", 1016440}, {"command", 200000215}, {"hook", 200000216}, {"hook", 465001602}}));
    const auto& hook = s.host.plugins().Hooks()[0];
    EXPECT_EQ(hook.name, "ArchiExchangeCADHook");
    EXPECT_EQ(hook.priority, 5000);
    EXPECT_EQ(hook.infoFlags, 0x10000000);
    EXPECT_EQ(s.host.plugins().FindCommand(kCommand)->helpText, "Send To ArchiCAD");
  }
  host::ReferenceHost refused{host::HostOptions{.quiet = true}};
  refused.plugins().refuse = {200000215};
  auto report = refused.Load(INTEROP_MODULE_PATH);
  ASSERT_TRUE(report);
  EXPECT_EQ(report->startResult, 0);
  for (const auto& a : refused.plugins().Attempts()) EXPECT_NE(a.id, 200000216);
}

TEST(ArchiCadExchange, MenuEntryOnlyWhenInstalledAfterMakeProjectAndNeverTwice) {
  {
    Session none;
    EXPECT_EQ(none.Menus().find("PLUGIN_CMD_200000215"), std::string::npos);
  }
  Session s(kInstalled);
  EXPECT_NE(s.Menus().find("    IDM_MAKEPROJECT\n    PLUGIN_CMD_200000215\n    IDM_EXIT\n"), std::string::npos)
      << s.Menus();
  s.host.SendMessage(1001188);
  const std::string menus = s.Menus();
  EXPECT_EQ(menus.find("PLUGIN_CMD_200000215"), menus.rfind("PLUGIN_CMD_200000215"));
  // Without "IDM_MAKEPROJECT" (a submenu of that id does not count) the entry goes to the end.
  vex::MenuEntry* editor = s.host.plugins().FindMenu("M_EDITOR");
  editor->children = {{vex::MenuEntry::kSubmenu, "IDM_MAKEPROJECT", {{vex::MenuEntry::kCommand, "IDM_X", {}}}}};
  s.host.SendMessage(1001188);
  ASSERT_EQ(editor->children.size(), 2u);
  EXPECT_EQ(editor->children[1].id, "PLUGIN_CMD_200000215");
  EXPECT_EQ(editor->children[1].kind, vex::MenuEntry::kCommand);
}

TEST(ArchiCadExchange, NewHandOverWithoutArchiCadSavesThenShows20008) {
  Session s;
  host::Document& doc = s.host.documents().NewDocument("house");
  doc.SetChanged(true);
  EXPECT_TRUE(s.Command().Execute(&doc));
  ASSERT_TRUE(fs::exists(s.ExchangeFile()));
  EXPECT_NE(Read(s.ExchangeFile()).find("\"2204\": true"), std::string::npos);  // forced on for the save
  ASSERT_EQ(s.host.documents().fileLog.size(), 1u);
  EXPECT_EQ(s.host.documents().fileLog[0].format, 1001026);
  EXPECT_EQ(s.host.documents().fileLog[0].flags, 20);
  EXPECT_EQ(s.Dialogs(), std::vector<std::string>{kNotFound});
  EXPECT_TRUE(doc.IsChanged());                 // the hand-over copy is not the user's save
  EXPECT_FALSE(doc.Settings().Contains(2204));  // restored
  EXPECT_TRUE(s.host.processes().Records().empty());
}

TEST(ArchiCadExchange, NewHandOverStartsArchiCadWithTheExchangeFile) {
  Session s(kInstalled);
  host::Document& doc = s.host.documents().NewDocument("house");
  doc.Settings().Set(2204, vex::Data(false));
  EXPECT_TRUE(s.Command().Execute(&doc));
  EXPECT_TRUE(s.Dialogs().empty());
  const auto started = s.host.processes().Records();
  ASSERT_EQ(started.size(), 1u);
  EXPECT_EQ(started[0].program, "C:\\AC 27\\ArchiCAD.exe");
  EXPECT_EQ(started[0].arguments, std::vector<std::string>{s.ExchangeFile().string()});
  EXPECT_FALSE(doc.IsChanged());
  EXPECT_EQ(doc.Settings().GetBool(2204, true), false);
}

TEST(ArchiCadExchange, StartingForRealPassesThePathAsOneArgumentOrShowsTheProgram) {
  Session s;
  const fs::path program = s.dir / "fake archicad.sh";
  std::ofstream(program) << "#!/bin/sh\nprintf '%s|%s' \"$#\" \"$1\" > \"$(dirname \"$0\")/argument.txt\"\n";
  fs::permissions(program, fs::perms::owner_all);
  s.host.registry().SetString("HKEY_CURRENT_USER\\Software\\Graphisoft\\ArchiCAD", "Last Started Version", "1");
  s.host.registry().SetString("HKEY_CURRENT_USER\\Software\\Graphisoft\\ArchiCAD\\1", "", Backslashed(program.string()));
  s.host.processes().launch = true;
  host::Document& doc = s.host.documents().NewDocument("house");
  EXPECT_TRUE(s.Command().Execute(&doc));
  EXPECT_EQ(s.host.processes().WaitAll(), 0);
  EXPECT_EQ(Read(s.dir / "argument.txt"), "1|" + s.ExchangeFile().string());
  EXPECT_TRUE(s.Dialogs().empty());
  // A program that cannot be started: the dialog names it.
  fs::remove(program);
  EXPECT_TRUE(s.Command().Execute(&doc));
  EXPECT_EQ(s.Dialogs(), std::vector<std::string>{kNotFound + "\n" + Backslashed(program.string())});
}

TEST(ArchiCadExchange, ExchangeDirectoryOrSaveFailuresShowTheirDialogs) {
  Session s(kInstalled);
  host::Document& doc = s.host.documents().NewDocument("house");
  // The user directory is a file: "temp" cannot be made.
  const fs::path blocked = s.dir / "not a dir";
  std::ofstream(blocked) << "x";
  s.host.files().userWritePath = blocked.string();
  EXPECT_TRUE(s.Command().Execute(&doc));  // still reports success
  EXPECT_EQ(s.Dialogs(), std::vector<std::string>{"The exchange directory could not be created."});
  EXPECT_TRUE(s.host.documents().fileLog.empty());
  // The exchange file's place is taken by a directory: the save fails.
  s.host.dialogs().Clear();
  s.host.files().userWritePath = (s.dir / "user dir").string();
  fs::create_directories(s.ExchangeFile());
  EXPECT_TRUE(s.Command().Execute(&doc));
  EXPECT_EQ(s.Dialogs(), std::vector<std::string>{"The scene could not be saved for ArchiCAD."});
  EXPECT_TRUE(s.host.processes().Records().empty());
  EXPECT_FALSE(doc.Settings().Contains(2204));
}

TEST(ArchiCadExchange, NothingToExportWithoutADocument) {
  Session s;
  EXPECT_FALSE(s.Command().Execute(nullptr));
  EXPECT_EQ(s.host.console().Lines().back(), "Error: Nothing to export?!");
}

TEST(ArchiCadExchange, OpenRequestWithForwardSlashesOpensTheBackslashedPath) {
  Session s;
  const std::string file = (s.dir / "from ac.vex").string();
  host::Document* doc = s.Open("from ac.vex", file);
  ASSERT_NE(doc, nullptr);
  const std::string requested = Backslashed(file);
  EXPECT_EQ(s.host.documents().Active(), doc);
  EXPECT_EQ(doc->GetName(), "from ac.vex");
  EXPECT_EQ(doc->GetPath(), Backslashed(s.dir.string()));
  EXPECT_EQ(doc->GetDataContainer().GetInt32(50010), 200000215);
  EXPECT_EQ(doc->Settings().GetInt32(7), 7);
  ASSERT_EQ(s.host.documents().fileLog.size(), 1u);
  EXPECT_EQ(s.host.documents().fileLog[0].flags, 3);
  EXPECT_EQ(s.host.documents().refreshes, 1);
  EXPECT_EQ(s.host.console().Lines().back(), "Opened scene from ArchiCAD: \"" + requested + "\"");
}

TEST(ArchiCadExchange, OpenRequestForAnotherSuffixOrAMissingFileLoadsNothing) {
  Session s;
  std::ofstream(s.dir / "plan.pln") << "{}";
  const std::string path = (s.dir / "plan.pln").string();
  std::string request = path;
  EXPECT_FALSE(s.Command().Message(kOpenRequest, request.data()));
  EXPECT_EQ(s.host.console().Lines().back(), "Error: Could not open file  \"" + Backslashed(path) + "\" !");
  std::string missing = (s.dir / "gone.vex").string();
  EXPECT_FALSE(s.Command().Message(kOpenRequest, missing.data()));
  EXPECT_TRUE(s.host.documents().GetDocuments().empty());
  EXPECT_TRUE(s.host.documents().fileLog.empty());
  EXPECT_FALSE(s.Command().Message(kOpenRequest, nullptr));
  EXPECT_FALSE(s.Command().Message(12, missing.data()));
}

TEST(ArchiCadExchange, DecliningOnCloseWritesByte89AndLeavesTheSceneAlone) {
  Session s;
  host::Document* doc = s.Open("scene.vex");
  ASSERT_NE(doc, nullptr);
  const std::string before = Read(s.dir / "scene.vex");
  s.host.dialogs().answerQuestions = false;
  host::CloseDocumentAsUser(s.host.plugins(), s.host.documents(), *doc);
  EXPECT_EQ(s.Dialogs(), std::vector<std::string>{"Send the changes back to ArchiCAD?"});
  EXPECT_EQ(Read(s.dir / "ac_vexon_comm_file.end"), "\x59");
  EXPECT_EQ(Read(s.dir / "scene.vex"), before);
  EXPECT_TRUE(s.host.documents().GetDocuments().empty());
  const auto opened = s.host.files().Opened();
  ASSERT_EQ(opened.size(), 1u);
  EXPECT_EQ(opened[0].options.byteOrder, 2);
  EXPECT_EQ(opened[0].options.type, "VEXC");
  EXPECT_EQ(opened[0].options.creator, "VEX1");
  EXPECT_FALSE(opened[0].options.errorDialog);
  // Type and creator as extended attributes, where the file system keeps them.
  char type[8] = {};
  const auto length = getxattr((s.dir / "ac_vexon_comm_file.end").c_str(), "user.vexon.type", type, sizeof type);
  if (length >= 0) {
    EXPECT_EQ(std::string(type, static_cast<std::size_t>(length)), "VEXC");
  } else {
    EXPECT_TRUE(errno == ENOTSUP || errno == ENODATA) << errno;
  }
}

TEST(ArchiCadExchange, AcceptingOnCloseSavesBackAndWritesByte88) {
  Session s;
  host::Document* doc = s.Open("scene.vex");
  ASSERT_NE(doc, nullptr);
  doc->Settings().Set(8, vex::Data(std::string("edited")));
  s.host.dialogs().answerQuestions = true;
  host::CloseDocumentAsUser(s.host.plugins(), s.host.documents(), *doc);
  EXPECT_EQ(Read(s.dir / "ac_vexon_comm_file.end"), "\x58");
  EXPECT_NE(Read(s.dir / "scene.vex").find("edited"), std::string::npos);
  EXPECT_EQ(s.host.documents().fileLog.back().flags, 20);
}

TEST(ArchiCadExchange, EndOfActivityOffersEveryMarkedDocument) {
  Session s;
  host::Document* marked = s.Open("scene.vex");
  ASSERT_NE(marked, nullptr);
  s.host.documents().NewDocument("own work");
  s.host.dialogs().answerQuestions = false;
  EXPECT_EQ(s.host.SendMessage(1001084), -1);
  EXPECT_EQ(s.Dialogs(), std::vector<std::string>{"Send the changes back to ArchiCAD?"});
  EXPECT_EQ(Read(s.dir / "ac_vexon_comm_file.end"), "\x59");
  EXPECT_EQ(marked->GetDataContainer().GetInt32(50010, -1), 0);
  s.host.SendMessage(1001084);  // unmarked now: not asked again
  EXPECT_EQ(s.Dialogs().size(), 1u);
}

TEST(ArchiCadExchange, CommandOnAMarkedDocumentHandsItBackAndClosesIt) {
  Session s;
  host::Document* doc = s.Open("scene.vex");
  ASSERT_NE(doc, nullptr);
  EXPECT_TRUE(s.Command().Execute(doc));
  EXPECT_TRUE(s.Dialogs().empty());
  EXPECT_EQ(Read(s.dir / "ac_vexon_comm_file.end"), "\x58");
  EXPECT_TRUE(s.host.documents().GetDocuments().empty());
  EXPECT_EQ(s.host.documents().fileLog.back().path, (s.dir / "scene.vex").string());
  // A failed save back: dialog 20011, the console line, and the command fails.
  doc = s.Open("again.vex");
  ASSERT_NE(doc, nullptr);
  fs::remove(s.dir / "again.vex");
  fs::create_directories(s.dir / "again.vex");
  s.host.console().Clear();
  EXPECT_FALSE(s.Command().Execute(doc));
  EXPECT_EQ(s.Dialogs(), std::vector<std::string>{"The scene could not be saved for ArchiCAD."});
  EXPECT_EQ(s.host.console().Lines(), std::vector<std::string>{"Error: Nothing to export?!"});
  EXPECT_EQ(s.host.documents().GetDocuments().size(), 1u);
}

}  // namespace
