#include "TrustGate.h"

#include "CappedFetch.h"

#include "core/ComponentAccessors.h"
#include "core/SerializeComponent.h"
#include "files/QFileUtils.h"
#include "files/Sha256Hasher.h"

#include <QDateTime>
#include <QFile>
#include <QThread>
#include <QTimer>

#include <memory>

using Morvantix::ChannelTrust;
using Morvantix::DownloadFileInfo;

namespace {

// A key file is one short line; reading stops well before anything much longer.
constexpr qint64 kMaxKeyFileBytes = 1024;

// The part's path under the channel root, as the signed list names it.
QString pathUnderRoot(const QString& serverUrl, const QString& url)
{
    const QString prefix = serverUrl + QLatin1Char('/');
    return url.startsWith(prefix) ? url.mid(prefix.size()) : url;
}

PackageCheck hashParts(
    const ChannelTrust& trust, const QVector<DownloadFileInfo>& files, const QStringList& paths)
{
    PackageCheck check;
    for (int i = 0; i < files.size(); ++i) {
        const qint64 listed = trust.listedSize(paths.at(i));
        QString sha256;
        qint64 size = 0;
        const bool bRead
            = listed >= 0 && Sha256Hasher::HexDigestOfFile(files.at(i).localPath, listed, sha256, size);
        if (bRead && trust.matchesDigest(paths.at(i), size, sha256))
            continue;
        check.failedPaths << files.at(i).localPath;
        if (check.text.isEmpty())
            check.text = listed < 0 ? QStringLiteral("%1 is not in the signed list").arg(paths.at(i))
                                    : QStringLiteral("%1 is not as the studio signed it").arg(paths.at(i));
    }
    return check;
}

} // namespace

TrustGate::TrustGate(QObject* parent)
    : QObject(parent)
    , m_trust(QByteArray())
    , m_fetch(new CappedFetch(this))
{ }

bool TrustGate::load(const QString& keyFile, bool bSettings, QString& error)
{
    m_bSettings = bSettings;
    auto serializer = Morvantix::GetSerializeComponent();
    QByteArray text;
    if (!keyFile.isEmpty()) {
        QFile file(keyFile);
        if (!file.open(QIODevice::ReadOnly)) {
            error = QStringLiteral("cannot read the key %1: %2").arg(keyFile, file.errorString());
            return false;
        }
        text = file.read(kMaxKeyFileBytes);
    } else if (bSettings) {
        text = serializer->GetValueByKey(ChannelTrust::PublicKeyKey()).toLatin1();
    }
    if (bSettings)
        m_lastSerial = serializer->GetValueByKey(ChannelTrust::SerialKey()).toULongLong();
    if (text.isEmpty())
        return true;
    m_key = ChannelTrust::ReadPublicKey(text);
    if (m_key.isEmpty()) {
        error = keyFile.isEmpty()
            ? QStringLiteral("the settings' %1 is no public key").arg(ChannelTrust::PublicKeyKey())
            : QStringLiteral("%1 holds no public key written by core-publish --generate-key").arg(keyFile);
        return false;
    }
    m_trust = ChannelTrust(m_key);
    return true;
}

void TrustGate::open(const QString& serverUrl, std::function<void(bool, const QString&)> done)
{
    m_fetch->fetch(QFileUtils::CombinePath(serverUrl, ChannelTrust::DocumentName()),
        ChannelTrust::kMaxDocumentBytes,
        [this, serverUrl, done](
            CappedFetch::Result result, const QByteArray& document, const QString& error) {
            if (result == CappedFetch::Result::NetworkFailed)
                return done(true, error);
            if (result == CappedFetch::Result::Missing)
                return done(false, QStringLiteral("the channel is not signed: %1").arg(error));
            // Too large goes through the check, which refuses it by its size and names the cap.
            fetchSignature(serverUrl, document, done);
        });
}

void TrustGate::fetchSignature(
    const QString& serverUrl, const QByteArray& document, std::function<void(bool, const QString&)> done)
{
    m_fetch->fetch(QFileUtils::CombinePath(serverUrl, ChannelTrust::SignatureName()),
        ChannelTrust::kMaxSignatureBytes,
        [this, document, done](
            CappedFetch::Result result, const QByteArray& signature, const QString& error) {
            if (result == CappedFetch::Result::NetworkFailed)
                return done(true, error);
            // A missing or oversized signature is no signature; the check says so.
            m_trust.check(document, signature, QDateTime::currentDateTimeUtc(), m_lastSerial);
            done(false, m_trust.failureText());
        });
}

QString TrustGate::admitDocument(const QString& path, const QString& text) const
{
    if (!isActive() || m_trust.matches(path, text.toUtf8()))
        return QString();
    return m_trust.listedSize(path) < 0 ? QStringLiteral("%1 is not in the signed list").arg(path)
                                        : QStringLiteral("%1 is not as the studio signed it").arg(path);
}

TrustGate::~TrustGate()
{
    waitForHashing();
}

void TrustGate::waitForHashing()
{
    if (!m_hashing)
        return;
    m_hashing->wait();
    delete m_hashing;
    m_hashing = nullptr;
}

void TrustGate::checkPackages(const QString& serverUrl, const QVector<DownloadFileInfo>& files)
{
    waitForHashing();
    m_packageCheck = PackageCheck();
    if (!isActive())
        return;
    QStringList paths;
    for (const DownloadFileInfo& file : files)
        paths << pathUnderRoot(serverUrl, file.url);
    const ChannelTrust trust = m_trust;
    m_hashing
        = QThread::create([this, trust, files, paths] { m_packageCheck = hashParts(trust, files, paths); });
    m_hashing->start();
}

void TrustGate::whenPackagesChecked(std::function<void(const PackageCheck&)> done)
{
    auto delivered = std::make_shared<bool>(false);
    auto deliver = [this, done, delivered] {
        if (*delivered)
            return;
        *delivered = true;
        QTimer::singleShot(0, this, [this, done] { done(m_packageCheck); });
    };
    // Connected before asking, so an end between the two is not missed.
    if (m_hashing)
        connect(m_hashing, &QThread::finished, this, deliver);
    if (!m_hashing || m_hashing->isFinished())
        deliver();
}

void TrustGate::recordSuccess()
{
    if (!isActive() || !m_trust.isTrusted())
        return;
    auto serializer = Morvantix::GetSerializeComponent();
    serializer->SetValueByKey(ChannelTrust::SerialKey(), QString::number(m_trust.document().serial));
    serializer->SetValueByKey(
        ChannelTrust::PublicKeyKey(), QString::fromLatin1(ChannelTrust::PublicKeyText(m_key).trimmed()));
}
