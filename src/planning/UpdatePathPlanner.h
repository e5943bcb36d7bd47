#pragma once

#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"
#include "planning/GuideManifestInfo.h"
#include "planning/SquareMatrix.h"

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

// The cheapest route from version index start to target over the direct costs in weight (-1: no
// patch). Only patches towards a higher index count. dist and split must come preset to -1; on
// success path holds the route's indices, start first and target last.
CORE_EXPORT bool ShortestPath(int start, int target, const SquareMatrix<qint64>& weight,
    SquareMatrix<qint64>& dist, SquareMatrix<int>& split, QVector<int>& path);

// Appends the indices of the route from i up to, not including, j that split describes.
CORE_EXPORT void BuildPath(QVector<int>& path, int i, int j, const SquareMatrix<int>& split);

// Makes the planned step that starts at version (the first step when version is empty) the download
// list; nothing changes when no step starts there.
CORE_EXPORT void GetCurrentShortestDownloadFile(GameUpdateContext& ctx, const QString& version);

} // namespace Morvantix
