#pragma once

#include "JobEvents.h"

#include <QStringList>

// Failures that the update and the repair meet in the same way, worded once for both.
namespace JobFailure {

// The check found a game file open in another program.
StageResult InUse(const QString& path);
// The patcher stopped while copying into `volumes`: a full volume is told as a shortage of space,
// anything else as the stage's own failure.
StageResult Copy(Stage stage, const QString& error, const QStringList& volumes);

} // namespace JobFailure
