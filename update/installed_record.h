#pragma once

// The form of installed.sha256, the record of the last accepted release: one line for each
// file, name, blank, hash, line feed. Pure functions, safe on any thread.

#include <string>

#include "update/update.h"

namespace Vantrell {

// Written by an accepted apply, read by check passes.
std::string InstalledRecordPath();

// One line of the record, with its line feed.
std::string InstalledRecordLine(const ManifestFile& file);

// Whether the record holds the line of every file of the manifest. The lines are looked for
// anywhere in the text, so that "ax.deb HASH" also lists x.deb. An empty record lists nothing.
bool ListsEveryFile(const std::string& record, const UpdateManifest& manifest);

}  // namespace Vantrell
