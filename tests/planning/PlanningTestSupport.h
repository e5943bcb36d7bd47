#pragma once

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QStringList>
#include <QtGlobal>

// Collects every message ("category: text") while alive, so tests can look for the planner's lines
// and keep thousands of them off the console; the previous handler comes back afterwards.
class LogCapture
{
public:
    LogCapture() { m_previous = qInstallMessageHandler(&LogCapture::collect); }
    ~LogCapture()
    {
        qInstallMessageHandler(m_previous);
        lines().clear();
    }
    bool contains(const QString& line) const { return lines().contains(line); }

    static QStringList& lines()
    {
        static QStringList collected;
        return collected;
    }

private:
    static void collect(QtMsgType, const QMessageLogContext& context, const QString& text)
    {
        lines().append(QStringLiteral("%1: %2").arg(QLatin1String(context.category), text));
    }

    QtMessageHandler m_previous = nullptr;
};

// Settings saves land in config.ini beside the test program; the file goes once the test is done.
class ConfigFileGuard
{
public:
    ~ConfigFileGuard() { QFile::remove(path()); }
    static QString path()
    {
        return QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("config.ini"));
    }
};

// A guide manifest text from package lines and a newest version, with the line ends Windows servers use.
inline QString manifestText(const QStringList& packages, const QString& newest)
{
    return QStringLiteral("--download_version--\r\n%1\r\n--last_version--\r\n%2\r\n")
        .arg(packages.join(QStringLiteral("\r\n")), newest);
}

// A channel's manifest as published: three patches, an older full pack, and (separately) the
// newest version's full pack in two volumes.
inline QStringList publishedPatches()
{
    return { "1.0.0.1->1.0.0.2|patch/1.0.0.2/patch_1.0.0.1.7z|d41d8cd98f00b204e9800998ecf8427e|300",
        "1.0.0.2->1.0.0.3|patch/1.0.0.3/patch_1.0.0.2.7z|9e107d9d372bb6826bd81d3542a419d6|400",
        "1.0.0.1->1.0.0.3|patch/1.0.0.3/patch_1.0.0.1.7z|e4d909c290d0fb1ca068ffaddf22cbd0|900",
        "1.0.0.2->1.0.0.2|full/1.0.0.2/full_1.0.0.2.7z.001|c3fcd3d76192e4007dfb496cca67e13b|4000" };
}

inline QStringList newestFullPack()
{
    return { "1.0.0.3->1.0.0.3|full/1.0.0.3/full_1.0.0.3.7z.001|0cc175b9c0f1b6a831c399e269772661|5000",
        "1.0.0.3->1.0.0.3|full/1.0.0.3/full_1.0.0.3.7z.002|92eb5ffee6ae2fec3ad71c777531578f|2000" };
}

// A remote information document with every key the launcher reads, each with its own value.
constexpr char kRemoteInfoDocument[] = R"({
  "activity": [{"title": "Spring", "time": "03-01", "link": "a1"}, {"title": "Summer"}],
  "announcement": [{"title": "Patch", "time": "03-02", "link": "n1"}],
  "infomation": [{"title": "Info", "time": "03-03", "link": "i1"}],
  "extra": [{"title": "Extra", "time": "03-04", "link": "e1"}],
  "carousel": [{"url": "c.png", "link": "c1", "md5": "cafe"}],
  "bg": {"url": "bg.png", "md5": "beef"}, "hot_dot": "7",
  "reparing": true, "reparing_tip": "down", "zm_url": "zm", "agree_url": "agree",
  "privacy_url": "privacy", "kefu_url": "kefu", "infoswitch": true, "carousel_time": 4500,
  "activity_name": "Events", "announcement_name": "News", "infomation_name": "Notes", "extra_name": "More",
  "maintain_start": "02:00", "maintain_content": "upgrade", "maintain_link": "m1", "bmovie": true
})";
