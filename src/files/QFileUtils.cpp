#include "files/QFileUtils.h"
#include "files/Md5Hasher.h"

#include <QDebug>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <zlib.h>

#include <exception>
#include <memory>
#include <vector>

#ifdef Q_OS_WIN
#include <windows.h>
#else
#include <errno.h>
#include <fcntl.h>
#include <unistd.h>
#endif

namespace QFileUtils {

namespace {

// Paths arrive with either separator from the launcher and from manifests on every platform.
QString toSlashes(const QString& path)
{
    QString result = path;
    return result.replace(QLatin1Char('\\'), QLatin1Char('/'));
}

bool isSeparator(QChar c)
{
    return c == QLatin1Char('/') || c == QLatin1Char('\\');
}

const QDir::Filters kEntryFilter = QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot;

// Walks never enter a link to a folder: two links back to a parent make a walk exponential, and a link
// may lead out of the folder being walked. Such a link is copied or moved as a link.
bool isFolderLink(const QFileInfo& entry)
{
    return entry.isDir() && (entry.isSymLink() || entry.isJunction());
}

bool copyEntry(const QString& from, const QString& to)
{
    const QFileInfo info(from);
    return isFolderLink(info) ? QFile::link(info.symLinkTarget(), to) : QFile::copy(from, to);
}

template <typename Transfer>
bool transferOneFile(const char* name, const QString& fromPath, const QString& toPath, Transfer transfer)
{
    const QString from = toSlashes(fromPath);
    const QString to = toSlashes(toPath);
    const bool isCopy = qstrcmp(name, "CopyOneFile") == 0;
    qDebug() << name << from << " To " << to;
    if (from == to) {
        if (isCopy)
            qDebug() << "from is same as to";
        return true;
    }
    if (!QFile::exists(from)) {
        if (isCopy)
            qDebug() << from << " is not exists !";
        return false;
    }
    if (QFile::exists(to) && !QFile::remove(to))
        qDebug() << "remove " << to << "failure";
    const QString parent = GetParentPath(to);
    if (!QDir(parent).exists() && !QDir().mkpath(parent))
        qDebug() << "makepath " << parent << "failure";
    const bool ok = transfer(from, to);
    if (!ok) {
        if (isCopy)
            qDebug() << "copy " << from << "to " << to << "failure";
        else
            qDebug() << "rename failure";
    }
    return ok;
}

template <typename Transfer>
bool transferTree(bool isCopy, const QString& fromDir, const QString& toDir, Transfer transfer)
{
    QDir target(toDir);
    if (!target.exists() && !QDir().mkdir(target.absolutePath())) {
        if (isCopy)
            qDebug() << "CopyMultiFiles" << toDir << "not is exist and  cannot create path";
        else
            qDebug() << toDir << "not exist or  cannot mkdir ";
        return false;
    }
    const QFileInfoList entries
        = QDir(fromDir).entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo& entry : entries) {
        const QString targetPath = target.filePath(entry.fileName());
        if (entry.isDir() && !isFolderLink(entry)) {
            if (!transferTree(isCopy, entry.filePath(), targetPath, transfer))
                return false;
            continue;
        }
        if (target.exists(entry.fileName()))
            target.remove(entry.fileName());
        if (!transfer(entry.filePath(), targetPath)) {
            if (isCopy)
                qDebug() << "CopyMultiFiles copy" << entry.filePath() << "to" << targetPath;
            return false;
        }
    }
    return true;
}

#ifdef Q_OS_WIN
// A read-write open that shares nothing is refused with a sharing violation while any other process
// holds the file, whatever sharing that process allowed (QFile would share reads and writes and so
// miss a holder that does the same). The Linux branch asks the same question with a write lease.
bool isHeldByAnotherProcess(const QString& path)
{
    const QString native = QDir::toNativeSeparators(path);
    const HANDLE handle = ::CreateFileW(reinterpret_cast<const wchar_t*>(native.utf16()),
        GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        return true; // held elsewhere, or not writable at all: either way it cannot be replaced
    ::CloseHandle(handle);
    return false;
}
#else
// Opens never fail for sharing reasons here. A write lease can only be granted while no other
// descriptor is open on the file: the question the exclusive open of the Windows branch asks, answered
// in constant time per file without walking the process table.
bool isHeldByAnotherProcess(const QString& path)
{
    {
        QFile probe(path);
        if (!probe.open(QIODevice::ReadWrite))
            return true;
    }
    const QByteArray native = QFile::encodeName(path);
    const int fd = ::open(native.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return errno == EWOULDBLOCK; // a lease broken by someone else is being released
    bool held = false;
    if (::fcntl(fd, F_SETLEASE, F_WRLCK) == 0)
        ::fcntl(fd, F_SETLEASE, F_UNLCK);
    else
        held = (errno == EAGAIN || errno == EBUSY);
    ::close(fd);
    return held;
}
#endif

} // namespace

QString CombinePath(const QString& a, const QString& b)
{
    QString result = toSlashes(a);
    if (!result.endsWith(QLatin1Char('/')))
        result += QLatin1Char('/');
    QString tail = toSlashes(b);
    if (tail.startsWith(QLatin1Char('/')))
        tail.remove(0, 1);
    return result + tail;
}

QString AbsoluteToRelativePath(const QString& base, const QString& path)
{
    const QString normalised = toSlashes(path);
    if (base.isEmpty())
        return normalised;
    const int at = normalised.lastIndexOf(base);
    if (at < 0)
        return normalised;
    QString rest = normalised.mid(at + base.size());
    if (rest.startsWith(QLatin1Char('/')))
        rest.remove(0, 1);
    return rest;
}

QString GetParentPath(const QString& path)
{
    QString stripped = path;
    while (!stripped.isEmpty() && isSeparator(stripped.back()))
        stripped.chop(1);
    const int cut = qMax(stripped.lastIndexOf(QLatin1Char('/')), stripped.lastIndexOf(QLatin1Char('\\')));
    if (cut < 0)
        return stripped;
    return stripped.left(cut + 1);
}

bool IsFileExist(const QString& path)
{
    return !path.isEmpty() && QFileInfo(path).isFile();
}

bool IsDirExist(const QString& path)
{
    return !path.isEmpty() && QFileInfo(path).isDir();
}

bool IsDirEmpty(const QString& path)
{
    const QDir dir(path);
    if (path.isEmpty() || !dir.exists())
        return true;
    return dir.entryList(kEntryFilter).isEmpty();
}

qint64 GetFileSize(const QString& path)
{
    const QFileInfo info(path);
    return !path.isEmpty() && info.isFile() ? info.size() : 0;
}

bool CreateFolder(const QString& path)
{
    if (QDir(path).exists()) {
        qDebug() << path << "exists";
        return false;
    }
    if (!QDir().mkpath(path))
        qDebug() << path << "mkpath failure";
    return true;
}

bool DeleteFileOrFolder(const QString& path)
{
    const QFileInfo info(path);
    if (path.isEmpty() || !info.exists()) {
        qDebug() << "DeleteFileOrFolder path" << path << " is empty";
        return false;
    }
    if (info.isFile() || info.isSymLink()) {
        const bool ok = QFile::remove(path);
        qDebug() << "DeleteFileOrFolder file" << path << ok;
        return ok;
    }
    if (info.isDir()) {
        const bool ok = QDir(path).removeRecursively();
        qDebug() << "DeleteFileOrFolder dir" << path << ok;
        return ok;
    }
    return false;
}

bool DeleteFileOrFolder(const QString& path, const QString& keepName)
{
    const QFileInfo info(path);
    if (path.isEmpty() || !info.exists()) {
        qDebug() << "DeleteFileOrFolder path" << path << " is empty";
        return false;
    }
    if (!info.isDir())
        return DeleteFileOrFolder(path);
    if (keepName.isEmpty())
        return QDir(path).removeRecursively();
    bool ok = true;
    const QFileInfoList entries
        = QDir(path).entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo& entry : entries) {
        if (entry.fileName() != keepName)
            ok = DeleteFileOrFolder(entry.filePath()) && ok;
    }
    return ok;
}

bool CopyOneFile(const QString& from, const QString& to)
{
    return transferOneFile(
        "CopyOneFile", from, to, [](const QString& f, const QString& t) { return QFile::copy(f, t); });
}

bool MoveOneFile(const QString& from, const QString& to)
{
    return transferOneFile(
        "MoveOneFile", from, to, [](const QString& f, const QString& t) { return QFile::rename(f, t); });
}

bool CopyMultiFiles(const QString& fromDir, const QString& toDir)
{
    return transferTree(true, fromDir, toDir, copyEntry);
}

bool MoveMultiFiles(const QString& fromDir, const QString& toDir)
{
    return transferTree(
        false, fromDir, toDir, [](const QString& f, const QString& t) { return QFile::rename(f, t); });
}

bool FileIsUsing(const QString& path)
{
    if (!IsFileExist(path) || !isHeldByAnotherProcess(path)) {
        qDebug() << path << " is not using";
        return false;
    }
    qDebug() << path << " is using";
    return true;
}

bool IsIgnoreFile(const QString& path, const QVector<QString>& suffixes)
{
    if (suffixes.isEmpty())
        return false;
    return suffixes.contains(QFileInfo(path).suffix());
}

unsigned int GetFileCRC32(const QString& path)
{
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return 0;
    constexpr qint64 kBlock = 1048576;
    std::vector<char> block(kBlock);
    uLong crc = crc32(0L, Z_NULL, 0);
    for (;;) {
        const qint64 n = file.read(block.data(), kBlock);
        if (n <= 0)
            break;
        crc = crc32(crc, reinterpret_cast<const Bytef*>(block.data()), static_cast<uInt>(n));
    }
    return static_cast<unsigned int>(crc);
}

QString GetFileMD5(const QString& path)
{
    // Large enough that a big file costs few system calls, small enough to stay in the CPU's cache.
    QByteArray block(65536, Qt::Uninitialized);
    const QString digest = Md5Hasher::hexDigestOfFile(path, block);
    if (digest.isEmpty())
        qDebug() << path << " open error.";
    return digest;
}

QByteArray ReadBytes(const QString& path)
{
    try {
        QFile file(path);
        if (path.isEmpty() || !QFileInfo(path).isFile())
            return QByteArray();
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    } catch (const std::exception&) {
        qFatal("ReadBytes(), open file error.");
    }
}

QString ReadText(const QString& path)
{
    const QByteArray bytes = ReadBytes(path);
    if (bytes.isEmpty())
        return QStringLiteral("");
    return QString::fromUtf8(bytes);
}

bool WriteBytes(const QString& path, const QByteArray& data)
{
    if (path.isEmpty())
        return false;
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    file.write(data);
    file.flush();
    file.close();
    return true;
}

void WriteText(const QString& path, const QString& text)
{
    if (text.isEmpty())
        return;
    WriteBytes(path, text.toUtf8());
}

void WriteUTF8(const QString& path, const QString& text, bool withBom)
{
    if (text.isEmpty() || path.isEmpty())
        return;
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return;
    QTextStream stream(&file);
    stream.setCodec("utf-8");
    stream.setGenerateByteOrderMark(withBom);
    stream << text;
    stream.flush();
    file.close();
}

void getFileListUnderDir(const QString& dir, QStringList& out)
{
    if (dir.isEmpty())
        return;
    const QFileInfoList entries = QDir(dir).entryInfoList(kEntryFilter);
    for (const QFileInfo& entry : entries) {
        if (isFolderLink(entry))
            continue;
        if (entry.isDir())
            getFileListUnderDir(entry.absoluteFilePath(), out);
        else
            out.append(entry.absoluteFilePath());
    }
}

void Test() { }

} // namespace QFileUtils
