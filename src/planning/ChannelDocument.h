#pragma once

#include "core/CoreExport.h"

#include <QByteArray>
#include <QDateTime>
#include <QMap>
#include <QString>

namespace Morvantix {

// What the signed list says of one document or package part of the channel.
struct ChannelEntry
{
    qint64 size = 0;
    QString sha256; // lower-case hexadecimal
};

// "channel.json", the signed list of a channel root: its serial, which grows with every publish, the
// moment it stops being good, and every document and package part by its path under the root.
struct ChannelDocument
{
    quint64 serial = 0;
    QDateTime expires; // UTC
    QMap<QString, ChannelEntry> files;
};

// The JSON WriteChannelDocument writes; false for anything else (a missing or malformed field, a size
// below zero, a digest that is no SHA-256 in lower-case hexadecimal, a path that is not relative).
CORE_EXPORT bool ReadChannelDocument(const QByteArray& bytes, ChannelDocument& document);
// Indented JSON with the files in path order, so two publishes of one channel differ only where it did.
CORE_EXPORT QByteArray WriteChannelDocument(const ChannelDocument& document);

} // namespace Morvantix
