#pragma once

#include <QLockFile>
#include <QString>

// One run per install folder: a lock file in the folder, held for the whole run. A lock left by a run
// that was killed is taken over; a live one is named, so the player knows what to wait for.
class InstallLock
{
public:
    explicit InstallLock(const QString& installFolder);

    bool tryLock();
    // Who holds the lock, after tryLock() failed: "process 123 (core-update) on host".
    QString holder() const;
    QString filePath() const { return m_path; }

private:
    QString m_path;
    QLockFile m_lock;
};
