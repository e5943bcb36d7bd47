#pragma once

#include "Outcome.h"

#include <QByteArray>
#include <QString>

namespace Publish {

// The studio's signing key pair on disk: the secret key in FILE, readable by its owner only, and the
// public key in FILE.pub, the line a launcher pins. Both hold one line of base64.
namespace KeyFile {

// Makes a new Ed25519 key pair. An existing FILE or FILE.pub is never replaced: a lost secret key
// would lock every installed launcher out of the channel.
Outcome Generate(const QString& path);

// The 64-byte libsodium secret key of FILE.
Outcome ReadSecretKey(const QString& path, QByteArray& secretKey);

QString PublicKeyPath(const QString& path);

} // namespace KeyFile

} // namespace Publish
