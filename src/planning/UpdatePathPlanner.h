#pragma once

#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"
#include "planning/GuideManifestInfo.h"

#include <QString>
#include <QVector>
#include <QtGlobal>

namespace Morvantix {

// True when an unfinished patch chain towards a since-replaced target must go on from the recorded
// transition version. A changed target outside the patch stage resets the stage to the start and
// saves the settings.
CORE_EXPORT bool IsPatchStageContinued(GameUpdateContext& ctx);

// Plans the cheapest chain of patches, in bytes, from the installed version (or from the transition
// version when continuePatchStage is set) to manifest.lastVersion and stores its steps in
// ctx.m_guideManifest.m_downloadList. Patches whose files cannot be stored in the cache folder
// (IsStorablePackage) take no part. On failure found and cost become false and 0 and the previous
// steps stay; on success found becomes true and cost is left as the caller set it.
CORE_EXPORT void PlanUpdatePath(const GuideManifestInfo& manifest, GameUpdateContext& ctx,
    bool continuePatchStage, bool& found, qint64& cost);

// A patch between two of the planner's versions, named by their indices (oldest first), with its
// size in bytes and its position in the manifest's patch list.
struct PatchEdge
{
    int from = 0;
    int to = 0;
    qint64 cost = 0;
    int position = 0;
};

// The cheapest route in bytes from version index start to target over edges, given in manifest
// order. Only patches towards a higher index count; a later patch for the same pair replaces an
// earlier one. A direct patch beats a chain of equal cost, and of equal chains the one through the
// lower version first wins. On success route holds the patches from start to target (none when
// they are the same). Time and memory grow with the number of patches, not with the square of the
// number of versions.
CORE_EXPORT bool ShortestPath(
    int start, int target, const QVector<PatchEdge>& edges, QVector<PatchEdge>& route);

// Makes the planned step that starts at version (the first step when version is empty) the download
// list; nothing changes when no step starts there.
CORE_EXPORT void GetCurrentShortestDownloadFile(GameUpdateContext& ctx, const QString& version);

} // namespace Morvantix
