#pragma once

#include "core/ErrorCode.h"

#include <QString>
#include <QStringList>
#include <QtGlobal>

namespace Morvantix {

// One record per worker, reused from report to report: a field that a report does not set keeps the
// value of the previous report. bComplete tells a completion (true) from a progress report (false).

struct DownloadCallbackInfo
{
    float percent = 0.0f;
    bool bError = false;
    bool bComplete = false;
    qint64 receivedBytes = 0;
    qint64 totalBytes = 0;
    qint64 speed = 0;
    int remainTime = 0;
    ErrorCode errorCode = NoError;
    QString errorMsg;
};

struct VerifyCallbackInfo
{
    bool bError = false;
    bool bComplete = false;
    float percent = 0.0f;
    bool bSingle = false;
    QStringList failedFiles;
};

struct UnZipCallbackInfo
{
    int percent = 0;
    bool bComplete = false;
    int curCount = 0;
    int totalCount = 0;
    int code = 0;
    QString errStr;
};

struct PatcherCallbackInfo
{
    int percent = 0;
    int totalpercent = 0;
    bool bError = false;
    bool bComplete = false;
    QString errorString;
    int status = 0;
};

struct CheckCallbackInfo
{
    bool bError = false;
    bool bComplete = false;
    QString errorPath;
    float percent = 0.0f;
};

} // namespace Morvantix
