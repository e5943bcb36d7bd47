#pragma once

#include <QLoggingCategory>

// The planning functions log at the critical level under these categories, so a launcher can
// filter them apart from the rest of its output.
Q_DECLARE_LOGGING_CATEGORY(lcStdUtil)
Q_DECLARE_LOGGING_CATEGORY(lcStdUtilUpdate)
Q_DECLARE_LOGGING_CATEGORY(lcConfig)
