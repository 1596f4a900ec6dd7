// The bulk import of a whole folder, for `klipora import --folder`.
#pragma once

#include <string>

#include "cli/cli_session.h"

namespace klipora::cli {

// Imports every image under `folder` (source folderImport) and prints the
// outcome; returns the exit code.
int RunFolderImport(CliSession& session, const std::string& folder, bool json);

}  // namespace klipora::cli
