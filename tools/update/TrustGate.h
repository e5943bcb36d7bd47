#pragma once

#include "core/DownloadFileInfo.h"
#include "planning/ChannelTrust.h"

#include <QObject>
#include <QStringList>
#include <QVector>

#include <functional>

class CappedFetch;
class QThread;

// What the package check found: empty text when every part is as signed; else what failed and the
// cached parts that are not the studio's bytes.
struct PackageCheck
{
    QString text;
    QStringList failedPaths;
};

// The host's side of the signed channel. With the studio's key (from --trust, else the one recorded
// in the settings) it fetches and checks the signed list before anything else, then every document
// is held against it before it is parsed and every package before it is unpacked. The serial and the
// key are recorded only after a run that succeeded. Without a key it lets everything through.
class TrustGate : public QObject
{
    Q_OBJECT
public:
    explicit TrustGate(QObject* parent = nullptr);
    ~TrustGate() override;

    // keyFile: --trust; bSettings: whether the settings may be read (a first dry run has none).
    // False with error when the key file cannot be read or holds no key.
    bool load(const QString& keyFile, bool bSettings, QString& error);
    bool isActive() const { return !m_key.isEmpty(); }

    // Fetches the list and its signature and checks them; done(bNetwork, error), error empty when the
    // channel is trusted; bNetwork when the server could not be reached at all.
    void open(const QString& serverUrl, std::function<void(bool bNetwork, const QString& error)> done);
    // Empty when the text is what the list gives path; else what failed.
    QString admitDocument(const QString& path, const QString& text) const;

    // Starts hashing the downloaded parts on a worker thread, beside the stage that reads them too.
    void checkPackages(const QString& serverUrl, const QVector<Morvantix::DownloadFileInfo>& files);
    // done, from the event loop, once the hashing started last has ended.
    void whenPackagesChecked(std::function<void(const PackageCheck& check)> done);

    void recordSuccess();

private:
    void waitForHashing();
    void fetchSignature(
        const QString& serverUrl, const QByteArray& document, std::function<void(bool, const QString&)> done);

    Morvantix::ChannelTrust m_trust;
    QByteArray m_key;
    bool m_bSettings = false;
    quint64 m_lastSerial = 0;
    CappedFetch* m_fetch;
    QThread* m_hashing = nullptr; // owned; writes m_packageCheck, read once it has finished
    PackageCheck m_packageCheck;
};
