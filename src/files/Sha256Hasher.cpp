#include "Sha256Hasher.h"

#include <QFile>
#include <QFileInfo>

#include <sodium.h>

namespace {

constexpr qint64 kReadSize = 1 << 20;

} // namespace

struct Sha256Hasher::State
{
    crypto_hash_sha256_state sha;
};

Sha256Hasher::Sha256Hasher()
    : m_state(std::make_unique<State>())
{
    crypto_hash_sha256_init(&m_state->sha);
}

Sha256Hasher::~Sha256Hasher() = default;

void Sha256Hasher::addData(const char* data, qint64 size)
{
    crypto_hash_sha256_update(
        &m_state->sha, reinterpret_cast<const unsigned char*>(data), static_cast<unsigned long long>(size));
}

QString Sha256Hasher::hexResult()
{
    unsigned char digest[crypto_hash_sha256_BYTES];
    crypto_hash_sha256_final(&m_state->sha, digest);
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(digest), sizeof digest).toHex());
}

QString Sha256Hasher::HexDigest(const QByteArray& bytes)
{
    Sha256Hasher hasher;
    hasher.addData(bytes.constData(), bytes.size());
    return hasher.hexResult();
}

bool Sha256Hasher::HexDigestOfFile(const QString& path, qint64 maxBytes, QString& hex, qint64& size)
{
    size = 0;
    // As the MD5 reader does: a pipe or a device is never opened (a pipe would block), and blocks go
    // straight from the system into the hash.
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return false;
    Sha256Hasher hasher;
    QByteArray buffer(int(kReadSize), Qt::Uninitialized);
    for (;;) {
        // One byte past the limit is enough to know the file is too long.
        const qint64 room = maxBytes - size;
        const qint64 wanted = room >= buffer.size() ? buffer.size() : room + 1;
        const qint64 n = file.read(buffer.data(), wanted);
        if (n < 0)
            return false;
        if (n == 0)
            break;
        size += n;
        if (size > maxBytes)
            return false;
        hasher.addData(buffer.constData(), n);
    }
    hex = hasher.hexResult();
    return true;
}
