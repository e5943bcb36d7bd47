#include "ChannelDocument.h"

#include "files/SafePath.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace Morvantix {

namespace {

const QString kSerial = QStringLiteral("serial");
const QString kExpires = QStringLiteral("expires");
const QString kFiles = QStringLiteral("files");
const QString kSize = QStringLiteral("size");
const QString kSha256 = QStringLiteral("sha256");

// JSON numbers are doubles: whole numbers stay exact up to 2^53.
constexpr double kLargestExactNumber = 9007199254740992.0;

bool readWholeNumber(const QJsonValue& value, double& out)
{
    if (!value.isDouble())
        return false;
    out = value.toDouble();
    return out >= 0 && out <= kLargestExactNumber && out == double(qint64(out));
}

bool readEntry(const QJsonValue& value, ChannelEntry& entry)
{
    static const QRegularExpression hex(QStringLiteral("^[0-9a-f]{64}$"));
    const QJsonObject object = value.toObject();
    double size = 0;
    if (!value.isObject() || !readWholeNumber(object.value(kSize), size))
        return false;
    entry.size = qint64(size);
    entry.sha256 = object.value(kSha256).toString();
    return hex.match(entry.sha256).hasMatch();
}

} // namespace

bool ReadChannelDocument(const QByteArray& bytes, ChannelDocument& document)
{
    QJsonParseError error;
    const QJsonDocument json = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !json.isObject())
        return false;
    const QJsonObject root = json.object();
    double serial = 0;
    if (!readWholeNumber(root.value(kSerial), serial))
        return false;
    document.serial = quint64(serial);
    document.expires = QDateTime::fromString(root.value(kExpires).toString(), Qt::ISODate);
    if (!document.expires.isValid() || !root.value(kFiles).isObject())
        return false;
    document.expires = document.expires.toUTC();
    document.files.clear();
    const QJsonObject files = root.value(kFiles).toObject();
    for (auto it = files.begin(); it != files.end(); ++it) {
        ChannelEntry entry;
        if (!SafePath::IsSafeRelativePath(it.key()) || !readEntry(it.value(), entry))
            return false;
        document.files.insert(it.key(), entry);
    }
    return true;
}

QByteArray WriteChannelDocument(const ChannelDocument& document)
{
    QJsonObject files;
    for (auto it = document.files.begin(); it != document.files.end(); ++it)
        files.insert(it.key(), QJsonObject { { kSize, double(it->size) }, { kSha256, it->sha256 } });
    const QJsonObject root { { kSerial, double(document.serial) },
        { kExpires, document.expires.toUTC().toString(Qt::ISODate) }, { kFiles, files } };
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

} // namespace Morvantix
