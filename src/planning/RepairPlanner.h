#pragma once

#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"

#include <QString>
#include <QStringList>

namespace Morvantix {

// A repair fetches the files that failed verification one by one from the version's loose files on
// the server ("<version>/files/<path>"), into a folder of the cache, and lets the patcher's add step
// copy them into the game folder. Nothing is ever downloaded straight into the game folder: the
// download manager may clear its download folder. Every name comes from the server's verify manifest
// and passes SafePath before it becomes a path; a planner that meets an unsafe name changes nothing
// and returns false.

// Prepares the verify job over the whole game folder from the verify manifest text: MD5 for every
// file and every failure collected (a repair kind).
CORE_EXPORT bool SolveRepairManifest(const QString& text, GameUpdateContext& ctx);

// The same job over only the named files, on their downloaded copies in the cache's repair folder,
// so a bad download is caught before anything is copied into the game. (A partial manifest must
// never be verified against the game folder itself: a passing check deletes the pak files it does
// not list.) Names the manifest does not list are dropped.
CORE_EXPORT bool SolvePartRepairManifest(
    const QString& text, const QStringList& files, GameUpdateContext& ctx);

// Makes the failed files of the manifest in ctx.m_manifestContent the download list, creates their
// folders in the cache and writes the patch info file that adds them to the game folder. A partial
// copy left in the cache by an interrupted run is resumed.
CORE_EXPORT bool GetRepairDownloadVec(
    GameUpdateContext& ctx, const QStringList& failedFiles, const QString& version);

// A part of the repair GetRepairDownloadVec planned: files whose cached copy failed its check are
// discarded and fetched whole again instead of resumed. The patch info file written by the first
// plan still lists every file of the repair.
CORE_EXPORT bool GetRepairPartDownloadVec(
    GameUpdateContext& ctx, const QStringList& failedFiles, const QString& version);

// The cache folder a repair downloads into.
CORE_EXPORT QString RepairFolder(const GameUpdateContext& ctx);

// Address of a loose file of a version: each path segment percent-encoded.
CORE_EXPORT QString LooseFileUrl(const QString& version, const QString& relativePath);

} // namespace Morvantix
