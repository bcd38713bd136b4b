// "Send To ArchiCAD": the command, its scene hook and the module-wide exchange state.
#pragma once

namespace interop::exchange {

/// Creates the exchange state, registers the command and, only if that succeeded, the scene hook.
bool RegisterArchiCadExchange();
/// Releases the exchange state (end of the life cycle).
void ReleaseArchiCadExchange();
/// End of activity: hands every document marked as exchanged back to ArchiCAD.
void ArchiCadHandBackAll();
/// Menu building: inserts the command into the editor menu when ArchiCAD is installed.
void ArchiCadInsertMenu();

}  // namespace interop::exchange
