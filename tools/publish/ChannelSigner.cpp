#include "ChannelSigner.h"

#include "FileStaging.h"
#include "files/QFileUtils.h"
#include "files/Sha256Hasher.h"
#include "planning/ChannelDocument.h"
#include "planning/ChannelTrust.h"

#include <QDir>

#include <limits>

#include <sodium.h>

using Morvantix::ChannelDocument;
using Morvantix::ChannelTrust;

namespace Publish {

ChannelSigner::ChannelSigner(const QByteArray& secretKey, int expiresDays)
    : m_secretKey(secretKey)
    , m_expiresDays(expiresDays)
{ }

ChannelSigner::~ChannelSigner()
{
    sodium_memzero(m_secretKey.data(), size_t(m_secretKey.size()));
}

QStringList ChannelSigner::SignedPaths(const Morvantix::GuideManifestInfo& guide, const QStringList& versions)
{
    QStringList paths { QStringLiteral("info.json"), QStringLiteral("manifest.txt") };
    for (const QString& version : versions)
        paths << version + QStringLiteral("/manifest.txt");
    for (const Morvantix::PatchEntry& entry : guide.patchList) {
        for (const Morvantix::PatchFileInfo& file : entry.files)
            paths << file.path;
    }
    return paths;
}

quint64 ChannelSigner::PublishedSerial(const QString& root)
{
    ChannelDocument published;
    const QByteArray bytes = QFileUtils::ReadBytes(QDir(root).filePath(ChannelTrust::DocumentName()));
    return Morvantix::ReadChannelDocument(bytes, published) ? published.serial : 0;
}

Outcome ChannelSigner::sign(
    const QString& root, const QStringList& paths, quint64 publishedSerial, const QDateTime& now)
{
    ChannelDocument document;
    // One above the last, and never below the clock's seconds: a channel root published afresh (the
    // old one lost) must still rank above what launchers accepted before.
    document.serial = qMax(publishedSerial + 1, quint64(now.toSecsSinceEpoch()));
    document.expires = now.toUTC().addDays(m_expiresDays);
    for (const QString& path : paths) {
        Morvantix::ChannelEntry entry;
        if (!Sha256Hasher::HexDigestOfFile(
                QDir(root).filePath(path), std::numeric_limits<qint64>::max(), entry.sha256, entry.size))
            return Outcome::Failure(
                ExitCode::OutputFailed, QStringLiteral("cannot read %1 to sign it").arg(path));
        document.files.insert(path, entry);
    }
    const QByteArray bytes = Morvantix::WriteChannelDocument(document);
    if (bytes.size() > ChannelTrust::kMaxDocumentBytes)
        return Outcome::Failure(ExitCode::BadInput,
            QStringLiteral("%1 would be %2 bytes, more than launchers accept (%3)")
                .arg(ChannelTrust::DocumentName())
                .arg(bytes.size())
                .arg(ChannelTrust::kMaxDocumentBytes));
    QByteArray signature(int(crypto_sign_BYTES), Qt::Uninitialized);
    crypto_sign_detached(reinterpret_cast<unsigned char*>(signature.data()), nullptr,
        reinterpret_cast<const unsigned char*>(bytes.constData()),
        static_cast<unsigned long long>(bytes.size()),
        reinterpret_cast<const unsigned char*>(m_secretKey.constData()));
    const Outcome outcome = FileStaging::WriteTextFile(
        QDir(root).filePath(ChannelTrust::DocumentName()), QString::fromUtf8(bytes));
    if (!outcome.ok())
        return outcome;
    return FileStaging::WriteTextFile(
        QDir(root).filePath(ChannelTrust::SignatureName()), QString::fromLatin1(signature.toBase64() + '\n'));
}

} // namespace Publish
