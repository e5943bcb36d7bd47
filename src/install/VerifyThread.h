#pragma once

#include "core/CoreExport.h"
#include "install/ManifestFileInfo.h"

#include <QString>
#include <QStringList>
#include <QThread>

class DigestQueue;

// Checks either the downloaded archives of a job against their MD5 texts (archive mode) or the
// files of an install against a file list (manifest mode). Its fields are written by the Verifyer
// only while it is not running.
class CORE_EXPORT VerifyThread : public QThread
{
    Q_OBJECT
public:
    explicit VerifyThread(QObject* parent = nullptr);

    QStringList m_hashList;
    QStringList m_zipList;
    QStringList m_failedList;
    QString m_verifyFolder;
    bool m_bPatchMerge = false;
    bool m_bCollectAll = false;
    bool m_bMd5 = false;
    Morvantix::ManifestFileMap m_manifestMap;
    bool m_bError = false;
    bool m_bZip = false;

signals:
    void VerifyComplete(bool bError, bool bSingle);
    void VerifyProgress(float progress);

public slots:
    void finishedThread();

protected:
    void run() override;

private:
    void VerifyZipList();
    // True when the archive failed.
    bool VerifyZipFile(const QString& path, const QString& expectedMd5);
    void VerifyManifest(const Morvantix::ManifestFileMap& map, const QString& folder);
    // Each entry's file under the folder, in the map's order; "" for a name that leaves the folder.
    static QStringList FullPaths(const Morvantix::ManifestFileMap& map, const QString& folder);
    // By the next digest of `digests`, or by size when there are none.
    bool VerifyManifestEntry(const QString& folder, const Morvantix::ManifestFileInfo& entry,
        const QString& full, DigestQueue* digests);
    void CleanPakFolder(const Morvantix::ManifestFileMap& map, const QString& folder);
};
