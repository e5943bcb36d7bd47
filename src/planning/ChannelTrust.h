#pragma once

#include "core/CoreExport.h"
#include "planning/ChannelDocument.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

namespace Morvantix {

// Trust in a channel root, for any launcher: given the studio's pinned public key, it checks the
// signed list "channel.json" against its detached signature "channel.json.sig", the clock and the
// serial recorded after the last success, and then answers whether a document or package part has
// the bytes the studio published. Until a check has passed, nothing matches.
class CORE_EXPORT ChannelTrust
{
public:
    enum class Verdict
    {
        Trusted,
        NoKey, // the pinned key is not an Ed25519 public key
        TooLarge, // the list is larger than kMaxDocumentBytes
        NoSignature, // the signature is missing, truncated or not base64
        BadSignature, // not signed by the pinned key, or changed after signing
        Unreadable, // signed, but not a list this class reads
        Expired, // the list's time is over: a server frozen on an old channel
        RolledBack, // its serial is lower than the one already accepted
    };

    // An honest list stays far below this (some 150 bytes for each file of the channel); anything
    // larger is refused unread, so a hostile server cannot fill the player's memory.
    static constexpr qint64 kMaxDocumentBytes = 8 * 1024 * 1024;
    // A base64 signature with a line end; a few bytes of slack for other line ends.
    static constexpr qint64 kMaxSignatureBytes = 128;

    static QString DocumentName(); // "channel.json"
    static QString SignatureName(); // "channel.json.sig"
    // Settings keys: the serial of the last list accepted, and the pinned key as its text.
    static QString SerialKey(); // "ChannelSerial"
    static QString PublicKeyKey(); // "ChannelPublicKey"

    // A public key file's text: one line, the 32 key bytes in base64. Empty for anything else.
    static QByteArray ReadPublicKey(const QByteArray& text);
    // The line a public key file holds.
    static QByteArray PublicKeyText(const QByteArray& key);

    explicit ChannelTrust(const QByteArray& publicKey);

    // The list's bytes and its signature file's bytes as fetched; now, the clock; lastSerial, the
    // serial recorded after the last success (0 for none).
    Verdict check(
        const QByteArray& document, const QByteArray& signature, const QDateTime& now, quint64 lastSerial);
    // What the last check found, for the player and the log.
    QString failureText() const { return m_failure; }
    bool isTrusted() const { return m_bTrusted; }
    const ChannelDocument& document() const { return m_document; }

    // The size the list gives the path under the channel root; -1 when it lists no such path.
    qint64 listedSize(const QString& path) const;
    // Whether the bytes are those the list gives the path.
    bool matches(const QString& path, const QByteArray& bytes) const;
    // Whether a size and a lower-case hexadecimal SHA-256 are those the list gives the path.
    bool matchesDigest(const QString& path, qint64 size, const QString& sha256) const;

private:
    Verdict refuse(Verdict verdict, const QString& text);

    QByteArray m_publicKey;
    ChannelDocument m_document;
    QString m_failure;
    bool m_bTrusted = false;
};

} // namespace Morvantix
