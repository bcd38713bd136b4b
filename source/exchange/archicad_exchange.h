// "Send To ArchiCAD": the command, its scene hook "ArchiExchangeCADHook", the
// open request ArchiCAD's side sends, and the files through which a scene
// travels to ArchiCAD and back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vex {
class IDocument;
}

namespace interop::exchange {

inline constexpr std::int32_t kArchiCadCommandId = 200000215;
inline constexpr std::int32_t kArchiCadHookId = 200000216;
/// Document data key holding kArchiCadCommandId while ArchiCAD owns the document, else 0.
inline constexpr std::int32_t kDocumentMarkKey = 50010;
/// Message to the command; its data is the path of a scene file (const char*).
inline constexpr std::int32_t kMsgOpenRequest = 300001002;
/// Document setting forced on while the command runs.
inline constexpr std::int32_t kExchangeSetting = 2204;
inline constexpr std::int32_t kSaveFlags = 20;
inline constexpr std::int32_t kLoadFlags = 3;
inline constexpr std::string_view kExchangeDirectory = "temp";
inline constexpr std::string_view kExchangeFileName = "archicadexchange.vex";
inline constexpr std::string_view kCommunicationFileName = "ac_vexon_comm_file.end";
inline constexpr std::string_view kMenuCommandId = "PLUGIN_CMD_200000215";
/// The single byte of the communication file.
inline constexpr unsigned char kAnswerSaved = 88;
inline constexpr unsigned char kAnswerDeclined = 89;

/// Creates the exchange state, registers the command and, only if that succeeded, the scene hook.
bool RegisterArchiCadExchange();
/// Releases the exchange state (end of the life cycle).
void ReleaseArchiCadExchange();
/// End of activity: offers every document marked as exchanged back to ArchiCAD.
void ArchiCadHandBackAll();
/// Menu building: inserts the command into the editor menu when ArchiCAD is installed.
void ArchiCadInsertMenu();

/// Whether ArchiCAD owns the document (its mark holds the command id).
bool IsArchiCadDocument(const vex::IDocument& document);

/// Path helpers for paths that may use "\" or "/" (both separate components).
std::string DirectoryOf(std::string_view path);
std::string JoinPath(std::string_view directory, std::string_view name);
/// The path with its file name's suffix replaced by (or extended with) `suffix`.
std::string WithSuffix(std::string_view path, std::string_view suffix);

}  // namespace interop::exchange
