#pragma once

// The format of installed.sha256, the record of the last accepted release: one line for each file,
// with its name, a blank, its hash and a line feed. Pure functions, safe on any thread.

#include <string>

#include "update/update.h"

namespace Vantrell {

// One line of the record, with its line feed.
std::string InstalledRecordLine(const ManifestFile& file);

// Whether the record contains the line of every file of the manifest. A line may begin anywhere in
// the text: "ax.deb HASH" lists x.deb too. An empty record lists nothing.
[[nodiscard]] bool ListsEveryFile(const std::string& record, const UpdateManifest& manifest);

}  // namespace Vantrell
