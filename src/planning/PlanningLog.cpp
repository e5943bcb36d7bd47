#include "planning/PlanningLog.h"

Q_LOGGING_CATEGORY(lcStdUtil, "StdUtil")
Q_LOGGING_CATEGORY(lcStdUtilUpdate, "StdUtil update")
Q_LOGGING_CATEGORY(lcConfig, "config")
