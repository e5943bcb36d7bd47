#pragma once

#include "core/ErrorCode.h"

#include <QString>

// The user-facing failure texts of the download path. They are shown to Chinese-speaking users as
// they stand, so they live here once rather than in each reporting function.
namespace DownloadTexts {

inline QString networkFailed()
{
    return QStringLiteral("下载失败，请检查网络");
}

inline QString requestTimedOut()
{
    return QStringLiteral("网络请求超时，请检查网络问题");
}

inline QString diskFull()
{
    return QStringLiteral("磁盘空间不足，请清除足够空间后，再进行下载");
}

inline QString pathOutsideCache()
{
    return QStringLiteral("下载文件的保存位置不在缓存目录内，已停止下载");
}

// The text of a failed job whose cause brought no text of its own.
inline QString ofError(Morvantix::ErrorCode code)
{
    if (code == Morvantix::ErrorCode::StallTimeout)
        return requestTimedOut();
    if (code == Morvantix::ErrorCode::WriteFailed)
        return diskFull();
    return networkFailed();
}

} // namespace DownloadTexts
