#include "JobFailure.h"

#include "DiskSpace.h"

namespace JobFailure {

StageResult InUse(const QString& path)
{
    return { Stage::Check, true, false, 0, QStringLiteral("a game file is in use: %1").arg(path), path };
}

StageResult Copy(Stage stage, const QString& error, const QStringList& volumes)
{
    const QString full = DiskSpace::FullVolume(volumes);
    if (!full.isEmpty())
        return { Stage::Space, true, false, 0, QStringLiteral("%1: %2").arg(full, error), QString() };
    return { stage, true, false, 0, error, QString() };
}

} // namespace JobFailure
