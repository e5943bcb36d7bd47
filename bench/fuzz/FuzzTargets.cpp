// To fuzz another reader, add one line to the table in fuzzTargets(): its name, a seed text and a
// call of the reader on the input.
#include "FuzzTargets.h"

#include "core/GameUpdateContext.h"
#include "planning/GuideManifestSolver.h"
#include "planning/RemoteInfoReader.h"
#include "planning/VersionUtil.h"
#include "settings/Serializer.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QGuiApplication>
#include <QLoggingCategory>

#include <cstdlib>
#include <memory>

using namespace Morvantix;

namespace {

constexpr char kGuideManifest[]
    = "--download_version--\n"
      "1.0.0.1->1.0.0.2|patch/1.0.0.2/p12.7z|d41d8cd98f00b204e9800998ecf8427e|300\n"
      "1.0.0.2->1.0.0.3|patch/1.0.0.3/p23.7z|9e107d9d372bb6826bd81d3542a419d6|400\r\n"
      "1.0.0.1->1.0.0.3|patch/1.0.0.3/p13.7z|e4d909c290d0fb1ca068ffaddf22cbd0|900\n"
      "1.0.0.3->1.0.0.3|full/1.0.0.3/full.7z.001|0cc175b9c0f1b6a831c399e269772661|5000\n"
      "1.0.0.3->1.0.0.3|full/1.0.0.3/full.7z.002|92eb5ffee6ae2fec3ad71c777531578f|2000\n"
      "--last_version--\n1.0.0.3\n";

constexpr char kRemoteInfo[]
    = R"({"activity": [{"title": "Spring", "time": "03-01", "link": "a1"}], "announcement": [{"title": "P"}],
"infomation": [], "extra": [{"link": "e1"}], "carousel": [{"url": "c.png", "link": "c1", "md5": "cafe"}],
"bg": {"url": "bg.png", "md5": "beef"}, "hot_dot": "7", "reparing": true, "carousel_time": 4500,
"activity_name": "Events", "maintain_start": "02:00", "bmovie": false})";

constexpr char kSettings[]
    = "[General]\nInstallPath=/games/\xe6\xb7\xb1\nGamePath=\nCurrentGameVersion=1.0.0.1\n"
      "TransitionGameVersion=1.0.0.2\nTargetGameVersion=1.0.0.3\nCurrentStage=PATCHSTAGE\n"
      "bPatchFinished=true\nIsAutoStart=false\nLimitSpeed=10240\nMusicVolume=50\n"
      "MusicLanguage=chinese\nLoginServer=\"a, b\"\nGuideServer=@Variant(\\0\\0\\0\\x7f)\n";

QString* s_configPath = nullptr; // left alive on purpose: removed after everything else at exit

void planGuideManifest(const QByteArray& data)
{
    GameUpdateContext ctx; // no target recorded: the decision never wipes or saves anything
    ctx.m_updateSetting.currentGameVersion = QStringLiteral("1.0.0.1");
    ctx.m_updateSetting.cachePath = QStringLiteral("/cache");
    SolveGuideManifest(QString::fromUtf8(data), ctx);
}

void readRemoteInfo(const QByteArray& data)
{
    GameUpdateContext ctx;
    SolveRemoteInfo(QString::fromUtf8(data), ctx);
}

void readVersionText(const QByteArray& data)
{
    Version version;
    GetVersionByString(QString::fromUtf8(data), version);
    Version again;
    GetVersionByString(VersionToString(version), again);
    if (VersionOrderKey(again) != VersionOrderKey(version))
        std::abort();
}

// The settings file is read from beside the program, so each input is written there first.
void readSettingsFile(const QByteArray& data)
{
    static qint64 tick = 0;
    QFile file(*s_configPath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        std::abort();
    file.write(data);
    // QSettings keeps a parsed file while its size and time stay the same: every input gets a time.
    file.setFileTime(QDateTime::fromMSecsSinceEpoch(++tick * 1000), QFileDevice::FileModificationTime);
    file.close();
    UpdateSetting setting;
    Serializer().ReadSetting(setting);
}

void discardMessages(QtMsgType, const QMessageLogContext&, const QString&) { }

} // namespace

// Qt 5.15's JSON parser loses a few dozen bytes on some malformed documents, and the offscreen
// platform keeps its screen to the end. That is Qt's, not the readers', and a few bytes per broken
// document is no threat; every other leak still fails the run. Qt is built without frame pointers,
// so only the slow unwinder sees these in a leak's stack.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:QJsonDocument::fromJson\nleak:libqoffscreen.so\n";
}

extern "C" const char* __asan_default_options()
{
    return "fast_unwind_on_malloc=0";
}

const std::vector<FuzzTarget>& fuzzTargets()
{
    static const std::vector<FuzzTarget> targets {
        { "guide_manifest", kGuideManifest, planGuideManifest },
        { "remote_info", kRemoteInfo, readRemoteInfo },
        { "version_text", "1.2.3.4", readVersionText },
        { "settings_file", kSettings, readSettingsFile },
    };
    return targets;
}

const FuzzTarget* findFuzzTarget(const QByteArray& name)
{
    for (const FuzzTarget& target : fuzzTargets()) {
        if (name == target.name)
            return &target;
    }
    return nullptr;
}

void prepareFuzzing(int argc, char** argv)
{
    // As in the launcher, which always runs a window: "@Variant(...)" settings values can hold GUI
    // types, and Qt ends a program without a GUI application that reads one.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static int appArgc = argc;
    static std::unique_ptr<QGuiApplication> app(new QGuiApplication(appArgc, argv));
    // The readers and the planner log every line they see; the console would dominate the run.
    QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
    qInstallMessageHandler(discardMessages);
    s_configPath = new QString(QCoreApplication::applicationDirPath() + QStringLiteral("/config.ini"));
    std::atexit([] { QFile::remove(*s_configPath); });
}
