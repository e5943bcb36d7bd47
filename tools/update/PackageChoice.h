#pragma once

#include <QVector>

// Whether the full package of the newest version costs less to download than the chain of patches the
// planner chose: then the host installs the full package instead. A chain that is not smaller loses,
// as the publisher leaves out a single patch that is not smaller than its target's full package.
// Sizes come from the server's text; an absurd sum saturates rather than wraps. A full package of
// unknown size (0) never wins.
bool IsFullPackageSmaller(const QVector<qint64>& chainStepBytes, qint64 fullPackageBytes);
