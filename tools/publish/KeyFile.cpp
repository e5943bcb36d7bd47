#include "KeyFile.h"

#include "planning/ChannelTrust.h"

#include <QFile>
#include <QFileInfo>

#include <sodium.h>

#ifndef Q_OS_WIN
#include <fcntl.h>
#include <unistd.h>
#endif

namespace Publish {

namespace KeyFile {

namespace {

Outcome keyFailure(const QString& path, const QString& why)
{
    return Outcome::Failure(ExitCode::BadInput, QStringLiteral("%1: %2").arg(path, why));
}

// Created for its owner alone from the first byte on, so the secret is never readable by others,
// not even for a moment.
bool writePrivateFile(const QString& path, const QByteArray& bytes)
{
#ifdef Q_OS_WIN
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly))
        return false;
    const bool bWritten = file.write(bytes) == bytes.size() && file.flush();
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
    return bWritten;
#else
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (fd < 0)
        return false;
    const bool bWritten
        = ::write(fd, bytes.constData(), size_t(bytes.size())) == ssize_t(bytes.size()) && ::fsync(fd) == 0;
    return ::close(fd) == 0 && bWritten;
#endif
}

} // namespace

QString PublicKeyPath(const QString& path)
{
    return path + QStringLiteral(".pub");
}

Outcome Generate(const QString& path)
{
    const QString publicPath = PublicKeyPath(path);
    for (const QString& taken : { path, publicPath }) {
        if (QFileInfo::exists(taken))
            return keyFailure(taken, QStringLiteral("exists already and is not replaced"));
    }
    if (sodium_init() < 0)
        return keyFailure(path, QStringLiteral("the crypto library cannot start"));
    QByteArray publicKey(int(crypto_sign_PUBLICKEYBYTES), Qt::Uninitialized);
    QByteArray secretKey(int(crypto_sign_SECRETKEYBYTES), Qt::Uninitialized);
    crypto_sign_keypair(reinterpret_cast<unsigned char*>(publicKey.data()),
        reinterpret_cast<unsigned char*>(secretKey.data()));
    QByteArray secretText = secretKey.toBase64() + '\n';
    const bool bWritten = writePrivateFile(path, secretText);
    sodium_memzero(secretKey.data(), size_t(secretKey.size()));
    sodium_memzero(secretText.data(), size_t(secretText.size()));
    if (!bWritten)
        return Outcome::Failure(ExitCode::OutputFailed, QStringLiteral("cannot write %1").arg(path));
    QFile file(publicPath);
    const QByteArray line = Morvantix::ChannelTrust::PublicKeyText(publicKey);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly) || file.write(line) != line.size()
        || !file.flush())
        return Outcome::Failure(ExitCode::OutputFailed, QStringLiteral("cannot write %1").arg(publicPath));
    return {};
}

Outcome ReadSecretKey(const QString& path, QByteArray& secretKey)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return keyFailure(path, file.errorString());
    // A key file is one short line; anything long is some other file.
    const QByteArray text = file.read(1024).trimmed();
    const auto decoded = QByteArray::fromBase64Encoding(text, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || decoded.decoded.size() != int(crypto_sign_SECRETKEYBYTES))
        return keyFailure(path, QStringLiteral("is no signing key written by --generate-key"));
    secretKey = decoded.decoded;
    return {};
}

} // namespace KeyFile

} // namespace Publish
