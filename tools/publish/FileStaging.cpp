#include "FileStaging.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#ifdef Q_OS_WIN
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace Publish {

namespace FileStaging {

namespace {

constexpr qint64 kChunk = 1 << 20;

Outcome readFailure(const QFile& file)
{
    return Outcome::Failure(
        ExitCode::BadInput, QStringLiteral("cannot read %1: %2").arg(file.fileName(), file.errorString()));
}

// A write cut short by a full disk need not set an error on the file.
QString fileError(const QFile& file)
{
    return file.error() != QFileDevice::NoError ? file.errorString() : QStringLiteral("the disk is full");
}

Outcome writeFailure(const QString& path, const QString& reason)
{
    return Outcome::Failure(ExitCode::OutputFailed, QStringLiteral("cannot write %1: %2").arg(path, reason));
}

// Reads the whole file through the hash, handing every chunk to sink; false from sink stops it.
Outcome readThrough(const QString& path, QString& md5, const ByteCounter& onBytes,
    const std::function<bool(const char*, qint64)>& sink)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return readFailure(file);
    QCryptographicHash hash(QCryptographicHash::Md5);
    QByteArray buffer(int(kChunk), Qt::Uninitialized);
    for (;;) {
        const qint64 got = file.read(buffer.data(), kChunk);
        if (got < 0)
            return readFailure(file);
        if (got == 0)
            break;
        hash.addData(buffer.constData(), int(got));
        if (sink && !sink(buffer.constData(), got))
            return {};
        if (onBytes)
            onBytes(got);
    }
    md5 = QString::fromLatin1(hash.result().toHex());
    return {};
}

} // namespace

Outcome Md5Of(const QString& path, QString& md5, const ByteCounter& onBytes)
{
    return readThrough(path, md5, onBytes, {});
}

Outcome CopyWithMd5(
    const QString& from, const QString& to, bool bExecutable, QString& md5, const ByteCounter& onBytes)
{
    if (!QDir().mkpath(QFileInfo(to).absolutePath()))
        return writeFailure(to, QStringLiteral("cannot create its folder"));
    QFile out(to);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return writeFailure(to, out.errorString());
    bool bWritten = true;
    const Outcome read = readThrough(from, md5, onBytes, [&out, &bWritten](const char* data, qint64 size) {
        return bWritten = out.write(data, size) == size;
    });
    if (!read.ok())
        return read;
    const bool bFlushed = bWritten && out.flush();
    out.close();
    if (!bFlushed || out.error() != QFileDevice::NoError)
        return writeFailure(to, fileError(out));
    QFile::Permissions permissions
        = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther;
    if (bExecutable)
        permissions |= QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;
    if (!QFile::setPermissions(to, permissions))
        return writeFailure(to, QStringLiteral("cannot set its permissions"));
    return {};
}

Outcome LinkOrCopy(const QString& from, const QString& to)
{
    if (!QDir().mkpath(QFileInfo(to).absolutePath()))
        return writeFailure(to, QStringLiteral("cannot create its folder"));
#ifdef Q_OS_WIN
    const bool linked
        = CreateHardLinkW(reinterpret_cast<const wchar_t*>(QDir::toNativeSeparators(to).utf16()),
            reinterpret_cast<const wchar_t*>(QDir::toNativeSeparators(from).utf16()), nullptr);
#else
    const bool linked = ::link(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
#endif
    if (linked)
        return {};
    QFile source(from);
    if (!source.copy(to))
        return writeFailure(to, source.errorString());
    return {};
}

Outcome WriteTextFile(const QString& path, const QString& text)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return writeFailure(path, QStringLiteral("cannot create its folder"));
    QFile file(path);
    const QByteArray bytes = text.toUtf8();
    const bool bWritten = file.open(QIODevice::WriteOnly | QIODevice::Truncate)
        && file.write(bytes) == bytes.size() && file.flush();
    file.close();
    if (!bWritten || file.error() != QFileDevice::NoError)
        return writeFailure(path, fileError(file));
    return {};
}

QString FileListText(const Morvantix::ManifestFileMap& files)
{
    QString text;
    for (const Morvantix::ManifestFileInfo& info : files)
        text += Morvantix::FileListLine(info) + QLatin1Char('\n');
    return text;
}

} // namespace FileStaging

} // namespace Publish
