#pragma once

#include "LogLines.h"

#include <QStringList>

// A guide manifest as a channel publishes it, with Windows line ends. Without packages of its own it
// is the channel's real one: three patches, an older full pack and the newest full pack in two volumes.
inline QString manifestText(const QString& newest, QStringList packages = {})
{
    if (packages.isEmpty())
        packages = QStringList { "1.0.0.1->1.0.0.2|patch/1.0.0.2/p12.7z|d41d8cd98f00b204e9800998ecf8427e|300",
            "1.0.0.2->1.0.0.3|patch/1.0.0.3/p23.7z|9e107d9d372bb6826bd81d3542a419d6|400",
            "1.0.0.1->1.0.0.3|patch/1.0.0.3/p13.7z|e4d909c290d0fb1ca068ffaddf22cbd0|900",
            "1.0.0.2->1.0.0.2|full/1.0.0.2/full.7z.001|c3fcd3d76192e4007dfb496cca67e13b|4000",
            "1.0.0.3->1.0.0.3|full/1.0.0.3/full.7z.001|0cc175b9c0f1b6a831c399e269772661|5000",
            "1.0.0.3->1.0.0.3|full/1.0.0.3/full.7z.002|92eb5ffee6ae2fec3ad71c777531578f|2000" };
    return QStringLiteral("--download_version--\r\n%1\r\n--last_version--\r\n%2\r\n")
        .arg(packages.join(QStringLiteral("\r\n")), newest);
}

// A remote information document with every key the launcher reads, each with a value of its own.
constexpr char kRemoteInfoDocument[]
    = R"({"activity": [{"title": "Spring", "time": "03-01", "link": "a1"}, {}],
  "announcement": [{"title": "Patch", "link": "n1"}], "infomation": [{"time": "03-03"}], "extra": [{"link": "e1"}],
  "carousel": [{"url": "c.png", "link": "c1", "md5": "cafe"}], "bg": {"url": "bg.png", "md5": "beef"},
  "hot_dot": "7", "reparing": true, "reparing_tip": "down", "zm_url": "zm", "agree_url": "agree",
  "privacy_url": "privacy", "kefu_url": "kefu", "infoswitch": true, "carousel_time": 4500, "activity_name": "Events",
  "announcement_name": "News", "infomation_name": "Notes", "extra_name": "More", "maintain_start": "02:00",
  "maintain_content": "upgrade", "maintain_link": "m1", "bmovie": true})";
