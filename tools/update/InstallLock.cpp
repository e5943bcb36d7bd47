#include "InstallLock.h"

#include <QDir>

namespace {

const QString kLockFileName = QStringLiteral("core-update.lock");

} // namespace

InstallLock::InstallLock(const QString& installFolder)
    : m_path(QDir(installFolder).filePath(kLockFileName))
    , m_lock(m_path)
{
    // A run may take hours; only a holder that is gone makes a lock stale, never its age.
    m_lock.setStaleLockTime(0);
}

bool InstallLock::tryLock()
{
    return m_lock.tryLock(0);
}

QString InstallLock::holder() const
{
    qint64 pid = 0;
    QString host;
    QString program;
    if (!m_lock.getLockInfo(&pid, &host, &program))
        return QStringLiteral("a process that cannot be named (%1)").arg(m_path);
    return QStringLiteral("process %1 (%2) on %3").arg(pid).arg(program, host);
}
