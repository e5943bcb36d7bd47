#pragma once

#include "HttpTestServer.h"

#include "core/CallbackInfo.h"
#include "core/CoreSystem.h"
#include "core/GameUpdateContext.h"
#include "download/DownloaderManager.h"

#include <QCryptographicHash>
#include <QFile>
#include <QVector>

#include <memory>

namespace DownloadTest {

// Reproducible bytes that differ at every offset, so a misplaced or repeated block changes the hash.
inline QByteArray makeData(int size, int seed)
{
    QByteArray data(size, Qt::Uninitialized);
    quint32 state = 2166136261u ^ quint32(seed);
    for (int i = 0; i < size; ++i) {
        state = state * 1664525u + 1013904223u;
        data[i] = char(state >> 24);
    }
    return data;
}

inline QString md5Of(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex());
}

inline qint64 sizeOnDisk(const QString& path)
{
    return QFile(path).size();
}

inline void writeFile(const QString& path, const QByteArray& data)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(data);
}

inline std::shared_ptr<Morvantix::GameUpdateContext> context()
{
    return Morvantix::CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
}

// What the manager reported during one test. The manager is a process-wide singleton, so the
// recorder registers itself on creation and leaves the manager stopped and deaf on destruction.
class Reports
{
public:
    Reports()
    {
        DownloaderManager::GetInstance()->RegistCallbackFunc(
            [this](Morvantix::DownloadCallbackInfo& info) { m_all.append(info); });
    }
    ~Reports()
    {
        DownloaderManager::GetInstance()->PauseDownload(*context());
        DownloaderManager::GetInstance()->RegistCallbackFunc(nullptr);
        context()->m_downloadFileList.clear();
        context()->m_bLimitSpeed = false;
        context()->m_updateSetting.limitSpeed = 0;
    }

    const QVector<Morvantix::DownloadCallbackInfo>& all() const { return m_all; }
    // Completions and failures: a run must produce exactly one.
    int endings() const
    {
        int count = 0;
        for (const auto& info : m_all)
            count += (info.bComplete || info.bError) ? 1 : 0;
        return count;
    }
    Morvantix::DownloadCallbackInfo last() const
    {
        return m_all.isEmpty() ? Morvantix::DownloadCallbackInfo() : m_all.last();
    }

private:
    QVector<Morvantix::DownloadCallbackInfo> m_all;
};

} // namespace DownloadTest
