#include "planning/RemoteInfoReader.h"

#include <QDebug>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>

namespace Morvantix {

namespace {

QString textOf(const QJsonObject& object, const char* key)
{
    return object.value(QLatin1String(key)).toString();
}

// Both item lists are arrays of objects with three text members; anything else reads as empty.
template <typename Item>
void readItems(QVector<Item>& list, const QString& key, const QJsonObject& object, const char* first,
    const char* second, const char* third)
{
    const QJsonArray items = object.value(key).toArray();
    list.clear();
    list.reserve(items.size());
    for (const QJsonValue& value : items) {
        const QJsonObject item = value.toObject();
        list.append({ textOf(item, first), textOf(item, second), textOf(item, third) });
    }
}

bool switchOf(const QJsonObject& object, const char* key)
{
    return object.value(QLatin1String(key)).toBool(false);
}

void readTexts(RemoteInfo& info, const QJsonObject& root)
{
    const QJsonObject background = root.value(QLatin1String("bg")).toObject();
    info.m_bgUrl = textOf(background, "url");
    info.m_bgMd5 = textOf(background, "md5");
    info.m_hotDot = textOf(root, "hot_dot");
    info.m_bReparing = switchOf(root, "reparing");
    info.m_reparingTip = textOf(root, "reparing_tip");
    info.m_zmUrl = textOf(root, "zm_url");
    info.m_agreeUrl = textOf(root, "agree_url");
    info.m_privacyUrl = textOf(root, "privacy_url");
    info.m_kefuUrl = textOf(root, "kefu_url");
    info.m_bInfoSwitch = switchOf(root, "infoswitch");

    // A server that leaves the period out, or sends 0, must not stop the carousel: keep the last one.
    const int carouselTime = root.value(QLatin1String("carousel_time")).toInt();
    if (carouselTime != 0)
        info.m_carouselTime = carouselTime;

    info.m_activityName = textOf(root, "activity_name");
    info.m_announcementName = textOf(root, "announcement_name");
    info.m_infomationName = textOf(root, "infomation_name");
    info.m_extraName = textOf(root, "extra_name");
    info.m_maintainStart = textOf(root, "maintain_start");
    info.m_maintainContent = textOf(root, "maintain_content");
    info.m_maintainLink = textOf(root, "maintain_link");
    info.m_bMovie = switchOf(root, "bmovie");
}

QJsonArray noticeArray(const QVector<NoticeItem>& list)
{
    QJsonArray items;
    for (const NoticeItem& item : list)
        items.append(QJsonObject { { "title", item.title }, { "time", item.time }, { "link", item.link } });
    return items;
}

QJsonArray carouselArray(const QVector<CarouselItem>& list)
{
    QJsonArray items;
    for (const CarouselItem& item : list)
        items.append(QJsonObject { { "url", item.url }, { "link", item.link }, { "md5", item.md5 } });
    return items;
}

} // namespace

void SolveRemoteInfo(const QString& json, GameUpdateContext& ctx)
{
    const QJsonObject root = QJsonDocument::fromJson(json.toUtf8()).object();
    RemoteInfo& info = ctx.m_remoteInfo;
    info.m_activityList.clear();
    info.m_announcementList.clear();
    info.m_infomationList.clear();
    info.m_carouselList.clear();

    ReadNoticeItems(info.m_activityList, QStringLiteral("activity"), root);
    ReadNoticeItems(info.m_announcementList, QStringLiteral("announcement"), root);
    ReadNoticeItems(info.m_infomationList, QStringLiteral("infomation"), root);
    ReadNoticeItems(info.m_extraList, QStringLiteral("extra"), root);
    ReadCarouselItems(info.m_carouselList, QStringLiteral("carousel"), root);
    readTexts(info, root);

    qDebug().nospace() << "m_bMovie: " << info.m_bMovie;
}

void ReadNoticeItems(QVector<NoticeItem>& list, const QString& key, const QJsonObject& object)
{
    readItems(list, key, object, "title", "time", "link");
}

void ReadCarouselItems(QVector<CarouselItem>& list, const QString& key, const QJsonObject& object)
{
    readItems(list, key, object, "url", "link", "md5");
}

QString WriteRemoteInfo(const RemoteInfo& info)
{
    const QJsonObject root {
        { "activity", noticeArray(info.m_activityList) },
        { "announcement", noticeArray(info.m_announcementList) },
        { "infomation", noticeArray(info.m_infomationList) },
        { "extra", noticeArray(info.m_extraList) },
        { "carousel", carouselArray(info.m_carouselList) },
        { "bg", QJsonObject { { "url", info.m_bgUrl }, { "md5", info.m_bgMd5 } } },
        { "hot_dot", info.m_hotDot },
        { "reparing", info.m_bReparing },
        { "reparing_tip", info.m_reparingTip },
        { "zm_url", info.m_zmUrl },
        { "agree_url", info.m_agreeUrl },
        { "privacy_url", info.m_privacyUrl },
        { "kefu_url", info.m_kefuUrl },
        { "infoswitch", info.m_bInfoSwitch },
        { "carousel_time", info.m_carouselTime },
        { "activity_name", info.m_activityName },
        { "announcement_name", info.m_announcementName },
        { "infomation_name", info.m_infomationName },
        { "extra_name", info.m_extraName },
        { "maintain_start", info.m_maintainStart },
        { "maintain_content", info.m_maintainContent },
        { "maintain_link", info.m_maintainLink },
        { "bmovie", info.m_bMovie },
    };
    return QString::fromUtf8(QJsonDocument(root).toJson(QJsonDocument::Indented));
}

} // namespace Morvantix
