#pragma once

#include "Outcome.h"
#include "planning/GuideManifestInfo.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>

namespace Publish {

// Signs a channel root: writes "channel.json", the size and SHA-256 of every document and package
// part with a serial above the last one published and an expiry, and "channel.json.sig", its detached
// Ed25519 signature in base64.
class ChannelSigner
{
public:
    ChannelSigner(const QByteArray& secretKey, int expiresDays);
    ~ChannelSigner();

    // The paths under the root a launcher fetches: the remote information, the guide manifest, each
    // version's file list and every part of every package.
    static QStringList SignedPaths(const Morvantix::GuideManifestInfo& guide, const QStringList& versions);
    // The serial of the list already in root, 0 for none. Read unchecked: it is the operator's own.
    static quint64 PublishedSerial(const QString& root);

    Outcome sign(
        const QString& root, const QStringList& paths, quint64 publishedSerial, const QDateTime& now);

private:
    QByteArray m_secretKey;
    int m_expiresDays;
};

} // namespace Publish
