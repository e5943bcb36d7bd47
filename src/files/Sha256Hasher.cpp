#include "Sha256Hasher.h"

#include "FileBlockReader.h"

#include <limits>

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
    // One byte past the limit is enough to know the file is too long.
    const qint64 limit = qBound<qint64>(0, maxBytes, std::numeric_limits<qint64>::max() - 1) + 1;
    Sha256Hasher hasher;
    QByteArray buffer(int(kReadSize), Qt::Uninitialized);
    const FileBlockReader::Result read = FileBlockReader::Read(
        path, buffer, limit, nullptr, [&hasher](const char* data, qint64 n) { hasher.addData(data, n); });
    size = read.bytes;
    if (read.end != FileBlockReader::End::Read || size > maxBytes)
        return false;
    hex = hasher.hexResult();
    return true;
}
