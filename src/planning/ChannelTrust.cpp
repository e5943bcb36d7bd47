#include "ChannelTrust.h"

#include "files/Sha256Hasher.h"

#include <sodium.h>

namespace Morvantix {

QString ChannelTrust::DocumentName()
{
    return QStringLiteral("channel.json");
}

QString ChannelTrust::SignatureName()
{
    return QStringLiteral("channel.json.sig");
}

QString ChannelTrust::SerialKey()
{
    return QStringLiteral("ChannelSerial");
}

QString ChannelTrust::PublicKeyKey()
{
    return QStringLiteral("ChannelPublicKey");
}

QByteArray ChannelTrust::ReadPublicKey(const QByteArray& text)
{
    const QByteArray line = text.trimmed();
    const auto decoded = QByteArray::fromBase64Encoding(line, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || decoded.decoded.size() != int(crypto_sign_PUBLICKEYBYTES) || line.contains('\n'))
        return QByteArray();
    return decoded.decoded;
}

QByteArray ChannelTrust::PublicKeyText(const QByteArray& key)
{
    return key.toBase64() + '\n';
}

ChannelTrust::ChannelTrust(const QByteArray& publicKey)
    : m_publicKey(publicKey)
{ }

ChannelTrust::Verdict ChannelTrust::refuse(Verdict verdict, const QString& text)
{
    m_bTrusted = false;
    m_document = ChannelDocument();
    m_failure = text;
    return verdict;
}

ChannelTrust::Verdict ChannelTrust::check(
    const QByteArray& document, const QByteArray& signature, const QDateTime& now, quint64 lastSerial)
{
    if (sodium_init() < 0 || m_publicKey.size() != int(crypto_sign_PUBLICKEYBYTES))
        return refuse(Verdict::NoKey, QStringLiteral("the trusted key is no Ed25519 public key"));
    if (document.size() > kMaxDocumentBytes)
        return refuse(Verdict::TooLarge,
            QStringLiteral("%1 is larger than %2 bytes").arg(DocumentName()).arg(kMaxDocumentBytes));
    const auto decoded
        = QByteArray::fromBase64Encoding(signature.trimmed(), QByteArray::AbortOnBase64DecodingErrors);
    if (signature.size() > kMaxSignatureBytes || !decoded || decoded.decoded.size() != int(crypto_sign_BYTES))
        return refuse(
            Verdict::NoSignature, QStringLiteral("%1 is missing or holds no signature").arg(SignatureName()));
    if (crypto_sign_verify_detached(reinterpret_cast<const unsigned char*>(decoded.decoded.constData()),
            reinterpret_cast<const unsigned char*>(document.constData()),
            static_cast<unsigned long long>(document.size()),
            reinterpret_cast<const unsigned char*>(m_publicKey.constData()))
        != 0)
        return refuse(
            Verdict::BadSignature, QStringLiteral("%1 is not signed by the trusted key").arg(DocumentName()));
    ChannelDocument read;
    if (!ReadChannelDocument(document, read))
        return refuse(Verdict::Unreadable, QStringLiteral("%1 is signed but unreadable").arg(DocumentName()));
    if (now.toUTC() >= read.expires)
        return refuse(Verdict::Expired,
            QStringLiteral("%1 expired at %2").arg(DocumentName(), read.expires.toString(Qt::ISODate)));
    if (read.serial < lastSerial)
        return refuse(Verdict::RolledBack,
            QStringLiteral("%1 has serial %2, older than the %3 already accepted")
                .arg(DocumentName())
                .arg(read.serial)
                .arg(lastSerial));
    m_document = read;
    m_failure.clear();
    m_bTrusted = true;
    return Verdict::Trusted;
}

qint64 ChannelTrust::listedSize(const QString& path) const
{
    const auto it = m_document.files.constFind(path);
    return m_bTrusted && it != m_document.files.constEnd() ? it->size : -1;
}

bool ChannelTrust::matches(const QString& path, const QByteArray& bytes) const
{
    return matchesDigest(path, bytes.size(), Sha256Hasher::HexDigest(bytes));
}

bool ChannelTrust::matchesDigest(const QString& path, qint64 size, const QString& sha256) const
{
    const auto it = m_document.files.constFind(path);
    return m_bTrusted && it != m_document.files.constEnd() && it->size == size && it->sha256 == sha256;
}

} // namespace Morvantix
