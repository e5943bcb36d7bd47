#pragma once

#include <QString>
#include <QVector>

namespace Morvantix {

struct NoticeItem
{
    QString title;
    QString time;
    QString link;
};

struct CarouselItem
{
    QString url;
    QString link;
    QString md5;
};

// What the launcher's pages show from the server's remote information document.
struct RemoteInfo
{
    QVector<NoticeItem> m_activityList;
    QVector<NoticeItem> m_announcementList;
    QVector<NoticeItem> m_infomationList;
    QVector<NoticeItem> m_extraList;
    QString m_activityName;
    QString m_announcementName;
    QString m_infomationName;
    QString m_extraName;
    QString m_bgUrl;
    QString m_bgMd5;
    QString m_hotDot;
    QVector<CarouselItem> m_carouselList;
    alignas(8) bool m_bReparing = false;
    QString m_reparingTip;
    QString m_zmUrl;
    QString m_agreeUrl;
    QString m_privacyUrl;
    QString m_kefuUrl;
    QString m_maintainStart = QStringLiteral("");
    QString m_maintainContent = QStringLiteral("");
    QString m_maintainLink = QStringLiteral("");
    int m_carouselTime = 2000; // carousel period in milliseconds
    bool m_bInfoSwitch = false;
    bool m_bMovie = false;
};

} // namespace Morvantix
