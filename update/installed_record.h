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

// The hash of the package in the record, which the rollback copy must have: 64 hexadecimal digits,
// or nothing. After a failed build of the service was taken back, the record lists two packages,
// and the first is the installed one.
std::string RecordedPackageHash(const std::string& record);

}  // namespace Vantrell
