#pragma once

#include "core/DownloadFileInfo.h"

#include <QString>
#include <QVector>

// The folder a job downloads into and what its files already hold there. The list comes from the
// server, so where its files may go is checked here before anything is written or wiped.
class DownloadFolder
{
public:
    struct Holdings
    {
        qint64 totalBytes = 0; // the listed sizes
        qint64 onDiskBytes = 0; // what the partial files kept hold of them
    };

    struct Prepared
    {
        QString refused; // the first path outside the cache; empty when the run may go on
        Holdings holdings;
    };

    // Readies the folder of the list's files for a run: a list with a path outside `cache` is refused
    // before anything is touched; a fresh run wipes the folder when it is the cache; the folder is
    // created when missing, and what its partial files hold is measured.
    static Prepared Prepare(
        const QVector<Morvantix::DownloadFileInfo>& files, const QString& cache, bool bFresh);

    // The first listed path that is not a file inside `cache` (the cache itself is refused too: its
    // parent would become the download folder); empty when every path is.
    static QString FirstOutsideCache(const QVector<Morvantix::DownloadFileInfo>& files, const QString& cache);
    // The folder of the first listed file that has one; empty for an empty list.
    static QString FolderOf(const QVector<Morvantix::DownloadFileInfo>& files);
    // Whether `folder` is the cache folder the settings name, and no root: only that may be wiped.
    static bool IsCacheFolder(const QString& folder, const QString& cache);
    // A partial file longer than the server's is no prefix of it, and resuming would only append
    // to garbage: it is deleted, and the others are counted up.
    static Holdings Measure(const QVector<Morvantix::DownloadFileInfo>& files);
};
