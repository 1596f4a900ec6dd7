// The user's markup asset stores (signatures and watermarks) as a command
// opens them: under the support folder, written as soon as they change; and
// the reading of an input file that the markup commands share.
#pragma once

#include <iostream>
#include <optional>
#include <string>

#include "cli/cli_session.h"
#include "markup/markup_asset_stores.h"

namespace klipora::cli {

// The bytes of a file named on the command line; none after saying why not.
inline std::optional<std::string> readInputFile(CliSession& session, const std::string& file) {
  auto bytes = session.platform().fileSystem.readFile(session.platform().absolutePath(file));
  if (!bytes) {
    std::cerr << "klipora: cannot read " << file << ": " << bytes.error().message() << "\n";
    return std::nullopt;
  }
  return std::move(*bytes);
}

struct MarkupAssetSession {
  explicit MarkupAssetSession(CliSession& session)
      : signatures(session.platform().fileSystem, io, io, session.paths().supportFolder,
                   session.platform().clock),
        watermarks(session.platform().fileSystem, session.platform().imageCodec, io, io,
                   session.paths().supportFolder, session.platform().clock),
        assets(signatures, watermarks) {}

  // A command reads and writes in place: it must not end before its writes.
  markup::RunInPlace io;
  markup::MarkupSignatureStore signatures;
  markup::MarkupWatermarkStore watermarks;
  markup::MarkupStoredAssets assets;
};

}  // namespace klipora::cli
