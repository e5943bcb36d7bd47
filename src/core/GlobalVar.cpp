#include "core/GlobalVar.h"

namespace Global {

bool Var::bCheckLauncherUpdate = false;
bool Var::bTest = false;
bool Var::bLog = false;
bool Var::hideInfo = false;

QString Var::FullZipPrefix = QStringLiteral("full_zip");
QString Var::Launcher = QStringLiteral("Launcher");
QString Var::ImageCache = QStringLiteral("ImageCache");
QString Var::Channel = QStringLiteral("IOS");
QString Var::Updater = QStringLiteral("Updater");
QString Var::BuildStr = QStringLiteral("Release");
QString Var::fakeLauncherManifestPath = QStringLiteral("");
QString Var::lastVersionFileName = QStringLiteral("manifest.txt");
QString Var::lastLauncherVersionFileName = QStringLiteral("manifest.txt");
QString Var::fakeGameManifestPath = QStringLiteral("");
QString Var::PatchManifestName = QStringLiteral("manifest.txt");
// A test server on the local network; the launcher replaces it with its channel's host.
QString Var::Host = QStringLiteral("http://127.0.0.1:9099");
QString Var::FullZipManifestName = QStringLiteral("manifest.txt");
QString Var::UpdateGUI = QStringLiteral("UpdateGUI");
QString Var::ZMImageCache = QStringLiteral("ZMImageCache");
QString Var::InfoName = QStringLiteral("info.json");
QString Var::UpdateGUITemp = QStringLiteral("UpdateGUITemp");
QString Var::GuideManifestName = QStringLiteral("manifest.txt");
QString Var::UpdateGUIExe = QStringLiteral("UpdateGUI.exe");
QString Var::FullPackManifestName = QStringLiteral("manifest.txt");
QString Var::StartBat = QStringLiteral("autostart.bat");
QString Var::HostAndChannel = QStringLiteral("");
QString Var::GameName = QStringLiteral("Morvantix.exe");
QString Var::LauncherChannel = QStringLiteral("Launcher");
QString Var::LauncherGUIExe = QStringLiteral("MorvanTix.exe");

} // namespace Global
