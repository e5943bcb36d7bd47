#pragma once

#include "core/CoreExport.h"
#include "core/GameUpdateContext.h"
#include "core/RemoteInfo.h"

#include <QJsonObject>
#include <QString>
#include <QVector>

namespace Morvantix {

// Reads the server's remote information document into ctx.m_remoteInfo. A text that is not a JSON
// object leaves every list and text empty and every switch off; only the carousel period survives.
CORE_EXPORT void SolveRemoteInfo(const QString& json, GameUpdateContext& ctx);

// The document SolveRemoteInfo reads back into the same record, every key present. Indented JSON with
// the keys in sorted order, so the same record always gives the same bytes.
CORE_EXPORT QString WriteRemoteInfo(const RemoteInfo& info);

// Replace list with the array member key of object; a member that is not an array gives no items.
CORE_EXPORT void ReadNoticeItems(QVector<NoticeItem>& list, const QString& key, const QJsonObject& object);
CORE_EXPORT void ReadCarouselItems(
    QVector<CarouselItem>& list, const QString& key, const QJsonObject& object);

} // namespace Morvantix
