#pragma once

#include "core/CoreExport.h"

#include <QByteArray>
#include <QString>

#include <memory>

// SHA-256 over a stream of bytes, for the signed channel's digests (the publisher writes them, the
// host compares against them). The state lives behind a pointer so that users need no crypto headers.
class CORE_EXPORT Sha256Hasher
{
public:
    Sha256Hasher();
    ~Sha256Hasher();
    Sha256Hasher(const Sha256Hasher&) = delete;
    Sha256Hasher& operator=(const Sha256Hasher&) = delete;

    void addData(const char* data, qint64 size);
    // The lower-case hexadecimal digest; the hasher is spent afterwards.
    QString hexResult();

    static QString HexDigest(const QByteArray& bytes);
    // The digest of a regular file and its size; false when it cannot be read whole. No more than
    // maxBytes are read: a longer file fails (size says how far it went), so an endless file costs
    // no more than the size it should have.
    static bool HexDigestOfFile(const QString& path, qint64 maxBytes, QString& hex, qint64& size);

private:
    struct State;
    std::unique_ptr<State> m_state;
};
