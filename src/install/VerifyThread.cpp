#include "install/VerifyThread.h"

#include "files/Md5Hasher.h"
#include "files/QFileUtils.h"
#include "files/SafePath.h"
#include "install/DigestQueue.h"
#include "log/Logger.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <memory>

using Morvantix::ManifestFileInfo;
using Morvantix::ManifestFileMap;

namespace {

const QString kTag = QStringLiteral("VerifyThread");

// One read of an archive: large enough to keep system calls rare, small enough that a
// multi-gigabyte archive is never held in memory.
constexpr qint64 kZipReadSize = 409600;

// Progress inside one archive moves only by more than this, so a big archive does not flood the
// caller with reports.
constexpr float kProgressStep = 0.01f;

const QString kPakFolder = QStringLiteral("KX/Content/Paks");

// The name under which a pak file is compared with the manifest: absolute, cleaned, "/" separated
// and upper case, so letter case and separators never make a listed pak look unknown.
QString pakKey(QString path)
{
    path.replace(QLatin1Char('\\'), QLatin1Char('/'));
    return QDir::cleanPath(QFileInfo(path).absoluteFilePath()).toUpper();
}

// A folder linked into the pak folder can lead the listing anywhere; only files whose own folder
// really lies below the pak folder may be deleted.
bool liesInPakFolder(const QString& canonicalPakFolder, const QString& file)
{
    const QString parent = QFileInfo(QFileInfo(file).absolutePath()).canonicalFilePath();
    return !canonicalPakFolder.isEmpty() && SafePath::IsInsideFolder(canonicalPakFolder, parent);
}

} // namespace

VerifyThread::VerifyThread(QObject* parent)
    : QThread(parent)
{
    connect(this, &QThread::finished, this, &VerifyThread::finishedThread);
}

void VerifyThread::finishedThread()
{
    emit VerifyComplete(m_bError, m_bZip);
}

void VerifyThread::run()
{
    if (!m_bZip) {
        Logger::LogInfo(kTag, QStringLiteral("verify folder is %1").arg(m_verifyFolder));
        VerifyManifest(m_manifestMap, m_verifyFolder);
        return;
    }
    for (int i = 0; i < m_hashList.size(); ++i)
        Logger::LogInfo(
            kTag, QStringLiteral("Md5 is %1, file is %2").arg(m_hashList.at(i), m_zipList.value(i)));
    VerifyZipList();
}

void VerifyThread::VerifyZipList()
{
    qDebug() << "begin to verify zip file";
    const int count = m_zipList.size();
    if (count == 0) {
        emit VerifyProgress(1.0f);
        m_bError = false;
        return;
    }
    int passed = 0;
    for (int i = 0; i < count; ++i) {
        if (isInterruptionRequested()) {
            m_bError = true;
            return;
        }
        const QString& zip = m_zipList.at(i);
        bool failed = true;
        if (i < m_hashList.size())
            failed = VerifyZipFile(zip, m_hashList.at(i));
        else
            Logger::LogInfo(kTag, QStringLiteral("verify zip file is %1, it has no md5, failed !").arg(zip));
        if (!failed)
            ++passed;
        // The index before it advances: the first report is 0.0 and the last (n-1)/n.
        emit VerifyProgress(float(i) / float(count));
    }
    if (passed != count) {
        m_bError = true;
        return;
    }
    emit VerifyProgress(1.0f);
    m_bError = false;
}

bool VerifyThread::VerifyZipFile(const QString& path, const QString& expectedMd5)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        Logger::LogInfo(kTag, QStringLiteral("manifest File %1 cannot open, please check!").arg(path));
        m_bError = true;
        return true;
    }
    const qint64 size = file.size();
    Logger::LogInfo(kTag, QStringLiteral("begin verify zipfile, the totalBytes of files is %1").arg(size));

    const bool reportInside = m_zipList.size() == 1;
    Md5Hasher hash;
    QByteArray chunk(int(kZipReadSize), Qt::Uninitialized);
    qint64 bytesRead = 0;
    float lastReported = 0.0f;
    while (bytesRead < size) {
        const qint64 n = file.read(chunk.data(), qMin(size - bytesRead, kZipReadSize));
        if (n <= 0 || isInterruptionRequested()) {
            // A failing disk or a file cut short under us: the archive is not known to be wrong,
            // so it is kept and only counted as failed.
            Logger::LogInfo(kTag,
                QStringLiteral("read zip file %1 stopped at %2 of %3 bytes, failed !")
                    .arg(path)
                    .arg(bytesRead)
                    .arg(size));
            return true;
        }
        hash.addData(chunk.constData(), n);
        bytesRead += n;
        const float fraction = float(bytesRead) / float(size);
        if (fraction - lastReported > kProgressStep) {
            lastReported = fraction;
            if (reportInside)
                emit VerifyProgress(fraction);
        }
    }
    file.close();

    const QString digest = QString::fromLatin1(hash.result().toHex());
    qDebug().noquote().nospace() << "md5Str : " << digest;
    Logger::LogInfo(kTag,
        QStringLiteral("verify zip file is %1, md5 is %2 calculate md5 is %3")
            .arg(path, expectedMd5, digest));
    // Exact text compare: the hashes of the plan are lower case, and anything else is a bad plan.
    if (expectedMd5 == digest) {
        Logger::LogInfo(kTag, QStringLiteral("verify zipfile is success !"));
        return false;
    }
    Logger::LogInfo(kTag, QStringLiteral("verify zipfile is failed !"));
    // A wrong archive is removed so that the next download fetches it whole again.
    QFileUtils::DeleteFileOrFolder(path);
    return true;
}

void VerifyThread::VerifyManifest(const ManifestFileMap& map, const QString& folder)
{
    const int total = map.size();
    Logger::LogInfo(kTag, QStringLiteral("begin verify manifest,the number of files is %1").arg(total));
    m_bError = false;
    const QStringList paths = FullPaths(map, folder);
    // The repair kinds must find every damaged file, which a size check alone would miss.
    std::unique_ptr<DigestQueue> digests;
    if (m_bCollectAll || m_bMd5)
        digests.reset(new DigestQueue(paths));
    int checked = 0;
    for (const ManifestFileInfo& entry : map) {
        if (isInterruptionRequested()) {
            m_bError = true;
            return;
        }
        const bool ok = VerifyManifestEntry(folder, entry, paths.at(checked), digests.get());
        ++checked;
        if (!ok) {
            m_bError = true;
            // Only the repair kinds need the whole list; every other job stops at the first.
            if (!m_bCollectAll)
                break;
            m_failedList.append(entry.path);
            continue;
        }
        emit VerifyProgress(float(checked) / float(total));
    }
    if (m_bError) {
        Logger::LogInfo(kTag, QStringLiteral("verify manifest is failed !"));
        return;
    }
    if (!map.isEmpty())
        CleanPakFolder(map, folder);
    Logger::LogInfo(kTag, QStringLiteral("verify manifest is success !"));
}

QStringList VerifyThread::FullPaths(const ManifestFileMap& map, const QString& folder)
{
    QStringList paths;
    paths.reserve(map.size());
    for (const ManifestFileInfo& entry : map) {
        // The manifest comes from the server: a name that leaves the folder is never opened.
        const bool safe = !SafePath::ResolveUnder(folder, entry.path).isEmpty();
        paths.append(safe ? QFileUtils::CombinePath(folder, entry.path) : QString());
    }
    return paths;
}

bool VerifyThread::VerifyManifestEntry(
    const QString& folder, const ManifestFileInfo& entry, const QString& full, DigestQueue* digests)
{
    // Taken for a refused name as well, so that the digests stay in step with the entries.
    const QString calc = digests ? digests->takeNext() : QString();
    if (full.isEmpty()) {
        Logger::LogInfo(kTag,
            QStringLiteral("verify file is %1, the path leaves the folder %2, failed !")
                .arg(entry.path, folder));
        return false;
    }
    if (digests) {
        Logger::LogInfo(kTag,
            QStringLiteral("verify file is %1,caculate md5 is %2, manifest md5 is %3 ")
                .arg(full, calc, entry.md5));
        return calc == entry.md5;
    }
    const qint64 onDisk = QFileUtils::GetFileSize(full);
    qDebug() << full << ">>" << onDisk << "<<==>>" << entry.size;
    return quint64(onDisk) == entry.size;
}

void VerifyThread::CleanPakFolder(const ManifestFileMap& map, const QString& folder)
{
    const QString pakFolder = QFileUtils::CombinePath(folder, kPakFolder);
    QStringList files;
    QFileUtils::getFileListUnderDir(pakFolder, files);
    if (files.isEmpty())
        return;
    const QString canonicalPakFolder = QFileInfo(pakFolder).canonicalFilePath();
    QSet<QString> known;
    known.reserve(map.size());
    bool bListsPak = false;
    for (const ManifestFileInfo& entry : map) {
        const QString full = QFileUtils::CombinePath(folder, entry.path);
        known.insert(pakKey(full));
        bListsPak = bListsPak || liesInPakFolder(canonicalPakFolder, full);
    }
    // A list that names no pak at all is not this game's list (a truncated or foreign document), and
    // would make every pak of the game look unlisted.
    if (!bListsPak) {
        Logger::LogInfo(
            kTag, QStringLiteral("the manifest names no pak; nothing deleted in %1").arg(pakFolder));
        return;
    }
    for (const QString& file : files) {
        if (known.contains(pakKey(file)) || !liesInPakFolder(canonicalPakFolder, file))
            continue;
        qDebug().noquote().nospace() << "delete " << file;
        QFileUtils::DeleteFileOrFolder(file);
    }
}
