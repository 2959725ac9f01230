// The manifest of an archive as text, and what it may state.
#pragma once

#include <string>
#include <vector>

#include "simulator/backup_archive.h"

// The name of the member that holds it.
constexpr const char* kManifestName = "manifest";

std::string manifestText(const ArchiveManifest& manifest);

// Throws ArchiveError for whatever is missing or malformed.
ArchiveManifest parseManifest(const std::string& text);

// Throws ArchiveError unless these members can be unpacked below any folder without leaving it,
// without meeting each other, and without filling the device.
void requireSafe(const std::vector<MemberRecord>& members);

// Throws ArchiveError unless the archive is of one of `kinds`, and holds what belongs to it only.
void requireKind(const ArchiveManifest& manifest, const std::vector<ArchiveKind>& kinds);
