#include "exchange/archicad_exchange.h"

#include <array>
#include <cctype>
#include <memory>
#include <vector>

#include "exchange/archicad_locate.h"
#include "frame/module.h"
#include "vex/host.h"

namespace interop::exchange {
namespace {

constexpr std::string_view kNothingToExport = "Error: Nothing to export?!";

// The module-wide exchange state: the scene file most recently opened at ArchiCAD's request.
struct ExchangeState {
  std::string fileName;
};
std::unique_ptr<ExchangeState> g_exchange;

std::string StoredFileName() { return g_exchange ? g_exchange->fileName : std::string(); }

void ShowDialog(std::int32_t id, std::string_view suffix = {}) {
  vex::Host().dialogs->Message(GetString(id) + std::string(suffix));
}

bool LocateFull(std::string& programPath) {
  auto* registry = vex::Host().registry;
  if (registry == nullptr) return false;
  std::array<char, kProgramPathSize> buffer{};
  if (!LocateArchiCad(*registry, false, buffer)) return false;
  programPath = buffer.data();
  return true;
}

bool IsInstalled() {
  auto* registry = vex::Host().registry;
  std::array<char, kProgramPathSize> unused{};
  return registry != nullptr && LocateArchiCad(*registry, true, unused);
}

/// The scene file a hand-back writes: the stored file name, else the document's own file, as "vex".
std::string HandBackTarget(const vex::IDocument& document) {
  const std::string stored = StoredFileName();
  const std::string base = stored.empty() ? JoinPath(document.GetPath(), document.GetName()) : stored;
  return WithSuffix(base, "vex");
}

bool SaveScene(vex::IDocument& document, const std::string& path) {
  auto& documents = *vex::Host().documents;
  return documents.SaveDocument(document, path, vex::IDocuments::kNativeSceneFormat, kSaveFlags).has_value();
}

/// Writes the one-byte answer beside the scene file; success means the file could be opened.
bool WriteCommunicationFile(const std::string& scenePath, unsigned char code) {
  vex::FileOpenOptions options;
  options.byteOrder = 2;
  options.type = "VEXC";
  options.creator = "VEX1";
  options.errorDialog = false;
  auto file = vex::Host().files->OpenWrite(JoinPath(DirectoryOf(scenePath), kCommunicationFileName), options);
  if (!file) return false;
  (void)(*file)->Write(&code, 1);
  (void)(*file)->Close();
  return true;
}

void Unmark(vex::IDocument& document) {
  vex::ParamContainer data = document.GetDataContainer();
  data.Set(kDocumentMarkKey, vex::Data(std::int32_t{0}));
  document.SetDataContainer(data);
}

/// Closing (or end of activity): asks whether the changes go back, answers ArchiCAD, unmarks.
void OfferHandBack(vex::IDocument& document) {
  if (!IsArchiCadDocument(document)) return;
  const std::string target = HandBackTarget(document);
  unsigned char code = kAnswerDeclined;
  if (vex::Host().dialogs->Question(GetString(20009))) {
    if (!SaveScene(document, target)) ShowDialog(20011);
    code = kAnswerSaved;
  }
  if (!WriteCommunicationFile(target, code)) ShowDialog(20010);
  Unmark(document);
}

/// A new hand-over: the scene goes to the exchange directory and ArchiCAD is started on it.
void HandOver(vex::IDocument& document) {
  auto& files = *vex::Host().files;
  const std::string directory = JoinPath(files.UserWritePath(), kExchangeDirectory);
  if (!files.IsDirectory(directory) && !files.CreateDirectory(directory)) {
    ShowDialog(20007);
    return;
  }
  const bool wasChanged = document.IsChanged();
  const std::string exchangeFile = JoinPath(directory, kExchangeFileName);
  if (!SaveScene(document, exchangeFile)) {
    ShowDialog(20011);
    return;
  }
  // The hand-over copy is not the user's save.
  if (wasChanged) document.SetChanged(true);
  std::string program;
  if (!LocateFull(program)) {
    ShowDialog(20008);
    return;
  }
  auto* processes = vex::Host().processes;
  if (processes == nullptr || !processes->Start(program, {exchangeFile})) ShowDialog(20008, "\n" + program);
}

/// The command on a document ArchiCAD owns: save it back, answer 88, unmark and close it.
bool HandBack(vex::IDocument& document) {
  const std::string target = HandBackTarget(document);
  if (!SaveScene(document, target)) {
    ShowDialog(20011);
    vex::Host().console->Print(kNothingToExport);
    return false;
  }
  if (!WriteCommunicationFile(target, kAnswerSaved)) ShowDialog(20010);
  return true;
}

bool EndsWithSuffix(std::string_view path, std::string_view suffix) {
  const std::string name(path.substr(path.find_last_of("/\\") == std::string_view::npos
                                         ? 0
                                         : path.find_last_of("/\\") + 1));
  const auto dot = name.rfind('.');
  if (dot == std::string::npos || name.size() - dot - 1 != suffix.size()) return false;
  for (std::size_t i = 0; i < suffix.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(name[dot + 1 + i])) != suffix[i]) return false;
  return true;
}

bool OpenRequest(const char* requested) {
  if (*requested == '\0') return false;
  std::string path(requested);
  for (char& c : path)
    if (c == '/') c = '\\';
  if (g_exchange) g_exchange->fileName = path;
  auto& documents = *vex::Host().documents;
  if (vex::Host().files->Exists(path) && EndsWithSuffix(path, "vex")) {
    if (auto loaded = documents.LoadDocument(path, kLoadFlags)) {
      vex::IDocument* document = documents.InsertDocument(std::move(*loaded));
      if (document != nullptr) {
        documents.SetActiveDocument(document);
        const std::string directory = DirectoryOf(path);
        document->SetPath(directory);
        document->SetName(path.substr(directory.empty() ? 0 : directory.size() + 1));
        vex::ParamContainer data = document->GetDataContainer();
        data.Set(kDocumentMarkKey, vex::Data(kArchiCadCommandId));
        document->SetDataContainer(data);
        documents.Refresh();
        vex::Host().console->Print(GetString(20005) + " \"" + path + "\"");
        return true;
      }
    }
  }
  vex::Host().console->Print("Error: Could not open file  \"" + path + "\" !");
  return false;
}

class SendToArchiCad final : public vex::ICommand {
 public:
  bool Execute(vex::IDocument* document) override {
    if (document == nullptr) document = vex::Host().documents->GetActiveDocument();
    if (document == nullptr) {
      vex::Host().console->Print(kNothingToExport);
      return false;
    }
    auto& settings = document->Settings();
    const bool hadSetting = settings.Contains(kExchangeSetting);
    const bool previous = settings.GetBool(kExchangeSetting);
    settings.Set(kExchangeSetting, vex::Data(true));
    const auto restore = [&] {
      if (hadSetting)
        settings.Set(kExchangeSetting, vex::Data(previous));
      else
        settings.Erase(kExchangeSetting);
    };
    if (!IsArchiCadDocument(*document)) {
      HandOver(*document);
      restore();
      return true;
    }
    const bool ok = HandBack(*document);
    restore();
    if (ok) {
      Unmark(*document);
      vex::Host().documents->CloseDocument(document);
    }
    return ok;
  }

  bool Message(std::int32_t id, void* data) override {
    if (id != kMsgOpenRequest || data == nullptr) return false;
    return OpenRequest(static_cast<const char*>(data));
  }
};

class ArchiCadHook final : public vex::ISceneHook {
 public:
  bool Message(vex::IDocument& document, std::int32_t id, std::int32_t subType, void*) override {
    if (id == vex::kMsgDocumentEvent && subType == vex::kDocumentClosing) OfferHandBack(document);
    return true;  // on to the host's default handling
  }
};

/// Depth first: the entries list and index of the first command entry of that id.
bool FindCommand(vex::MenuEntry& menu, std::string_view id, std::vector<vex::MenuEntry>*& list, std::size_t& index) {
  for (std::size_t i = 0; i < menu.children.size(); ++i) {
    vex::MenuEntry& entry = menu.children[i];
    if (entry.kind == vex::MenuEntry::kCommand && entry.id == id) {
      list = &menu.children;
      index = i;
      return true;
    }
    if (entry.kind == vex::MenuEntry::kSubmenu && FindCommand(entry, id, list, index)) return true;
  }
  return false;
}

}  // namespace

bool IsArchiCadDocument(const vex::IDocument& document) {
  return document.GetDataContainer().GetInt32(kDocumentMarkKey) == kArchiCadCommandId;
}

std::string DirectoryOf(std::string_view path) {
  const auto slash = path.find_last_of("/\\");
  return slash == std::string_view::npos ? std::string() : std::string(path.substr(0, slash));
}

std::string JoinPath(std::string_view directory, std::string_view name) {
  if (directory.empty()) return std::string(name);
  std::string out(directory);
  if (out.back() == '/' || out.back() == '\\') return out.append(name);
  // Keep the directory's own separator style.
  const auto last = out.find_last_of("/\\");
#ifdef _WIN32
  const char separator = last == std::string::npos ? '\\' : out[last];
#else
  const char separator = last == std::string::npos ? '/' : out[last];
#endif
  out += separator;
  return out.append(name);
}

std::string WithSuffix(std::string_view path, std::string_view suffix) {
  const auto slash = path.find_last_of("/\\");
  const auto nameStart = slash == std::string_view::npos ? 0 : slash + 1;
  const auto dot = path.rfind('.');
  std::string out(path.substr(0, dot != std::string_view::npos && dot > nameStart ? dot : path.size()));
  out += '.';
  return out.append(suffix);
}

bool RegisterArchiCadExchange() {
  g_exchange = std::make_unique<ExchangeState>();
  vex::CommandRegistration command;
  command.id = kArchiCadCommandId;
  command.name = GetString(20000);
  command.infoFlags = 0x10000000;
  command.helpText = "Send To ArchiCAD";
  command.command = std::make_shared<SendToArchiCad>();
  if (!vex::Host().plugins->RegisterCommand(command)) return false;
  vex::SceneHookRegistration hook;
  hook.id = kArchiCadHookId;
  hook.name = "ArchiExchangeCADHook";
  hook.infoFlags = 0x10000000;
  hook.priority = 5000;
  hook.hook = std::make_shared<ArchiCadHook>();
  return vex::Host().plugins->RegisterSceneHook(hook);
}

void ReleaseArchiCadExchange() { g_exchange.reset(); }

void ArchiCadHandBackAll() {
  if (!vex::IsHostBound()) return;
  for (vex::IDocument* document : vex::Host().documents->GetDocuments()) OfferHandBack(*document);
}

void ArchiCadInsertMenu() {
  if (!vex::IsHostBound() || !IsInstalled()) return;
  vex::MenuEntry* editor = vex::Host().plugins->FindMenu("M_EDITOR");
  if (editor == nullptr) return;
  std::vector<vex::MenuEntry>* list = nullptr;
  std::size_t index = 0;
  if (FindCommand(*editor, kMenuCommandId, list, index)) return;
  const vex::MenuEntry entry{vex::MenuEntry::kCommand, std::string(kMenuCommandId), {}};
  if (FindCommand(*editor, "IDM_MAKEPROJECT", list, index))
    list->insert(list->begin() + static_cast<std::ptrdiff_t>(index) + 1, entry);
  else
    editor->children.push_back(entry);
}

}  // namespace interop::exchange
