#include "InfoDocument.h"

#include "core/GameUpdateContext.h"
#include "planning/RemoteInfoReader.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

namespace Publish {

namespace InfoDocument {

QString DefaultTemplate()
{
    return Morvantix::WriteRemoteInfo(Morvantix::RemoteInfo());
}

Outcome FromTemplate(const QString& templateText, QString& json, QStringList& ignoredKeys)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(templateText.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        const QString reason = error.error != QJsonParseError::NoError
            ? QStringLiteral("%1 at offset %2").arg(error.errorString()).arg(error.offset)
            : QStringLiteral("it is not an object");
        return Outcome::Failure(
            ExitCode::BadInput, QStringLiteral("the info template is no JSON object: %1").arg(reason));
    }
    Morvantix::GameUpdateContext ctx;
    Morvantix::SolveRemoteInfo(templateText, ctx);
    json = Morvantix::WriteRemoteInfo(ctx.m_remoteInfo);
    const QJsonObject known = QJsonDocument::fromJson(json.toUtf8()).object();
    ignoredKeys.clear();
    for (const QString& key : document.object().keys()) {
        if (!known.contains(key))
            ignoredKeys << key;
    }
    return {};
}

} // namespace InfoDocument

} // namespace Publish
