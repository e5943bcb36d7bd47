#pragma once

#include "core/CoreExport.h"
#include "install/ManifestFileInfo.h"

#include <QString>
#include <QThread>

// Replaces the launcher's own files with a new set already unpacked into a source folder: files the
// new list drops are deleted, every file of the new list is copied over the installation. The
// running updater's folder is never touched: its new version goes to a staging folder, which the
// updater program swaps in later.
class CORE_EXPORT UpdateThread : public QThread
{
    Q_OBJECT
public:
    explicit UpdateThread(QObject* parent = nullptr);

    QString installRoot;
    QString sourceRoot;
    QString oldFileListText;
    QString newFileListText;

signals:
    void UpdateFinished(QString errString);
    void UpdateProgress(int percent, int totalpercent);

public slots:
    void finishedThread();

protected:
    void run() override;

private:
    bool CheckPaths();
    bool DeleteDroppedFiles();
    bool CopyNewFiles(int& count, int total);
    bool TryDelete(const QString& path);
    bool CopyFolder(const QString& fromDir, const QString& toDir, bool overwrite, int& count, int total);
    int CountTotal(const QString& updaterSource) const;
    void RemoveDownloadArea();
    bool Fail(const QString& errString);

    Morvantix::ManifestFileMap oldFiles;
    Morvantix::ManifestFileMap newFiles;
    QString m_errString;
};
