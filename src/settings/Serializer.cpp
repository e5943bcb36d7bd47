#include "settings/Serializer.h"

#include "core/Constants.h"
#include "files/QFileUtils.h"
#include "log/Logger.h"

#include <QCoreApplication>

using namespace Morvantix;

namespace {

QString key(const char* name)
{
    return QString::fromLatin1(name);
}

void applyDerivedPaths(UpdateSetting& s)
{
    s.cachePath = QFileUtils::CombinePath(s.installPath, key(Const::CacheFolderName));
    s.unZipPath = QFileUtils::CombinePath(s.cachePath, key(Const::UnZipFolder));
    s.tempMergePath = QFileUtils::CombinePath(s.cachePath, key(Const::TempMergeFolderName));
}

QString& configFolder()
{
    static QString folder;
    return folder;
}

} // namespace

void Serializer::SetConfigFolder(const QString& folder)
{
    configFolder() = folder;
}

Serializer::Serializer()
{
    InitConfig();
}

void Serializer::InitConfig()
{
    const QString folder = configFolder().isEmpty() ? QCoreApplication::applicationDirPath() : configFolder();
    const QString path = QFileUtils::CombinePath(folder, key(Const::ConfigFileName));
    Logger::LogInfo(QStringLiteral("Serializer"), QStringLiteral("IniPath is %1").arg(path));
    m_ini = std::make_shared<QSettings>(path, QSettings::IniFormat);
    // Install folders often carry non-ASCII names; without this Qt 5 writes them as escapes.
    m_ini->setIniCodec("UTF-8");
}

QString Serializer::FilePath() const
{
    return m_ini ? m_ini->fileName() : QString();
}

QString Serializer::GetValueByKey(const QString& key)
{
    if (!m_ini)
        Logger::LogFatal(QString::fromLatin1(Const::SerializerTag),
            QStringLiteral("you must init m_ini before GetValueByKey"));
    const QVariant value = m_ini->value(key);
    if (value.type() == QVariant::String)
        return value.toString();
    return value.canConvert<QString>() ? value.toString() : QString();
}

bool Serializer::SetValueByKey(const QString& key, const QString& value)
{
    if (!m_ini)
        Logger::LogFatal(QString::fromLatin1(Const::SerializerTag),
            QStringLiteral("you must init m_ini before SetValueByKey"));
    m_ini->setValue(key, value);
    // Written through at once: a launcher killed mid-update must not lose its stage or versions.
    m_ini->sync();
    Logger::LogInfo(QString::fromLatin1(Const::SerializerTag),
        QStringLiteral("save key is %1, value is %2").arg(key, value));
    return m_ini->status() == QSettings::NoError;
}

void Serializer::WriteDefault(const char* name, const QVariant& value)
{
    m_ini->setValue(key(name), value);
}

bool Serializer::ReadBool(const char* name, bool defaultValue)
{
    if (GetValueByKey(key(name)).isEmpty()) {
        WriteDefault(name, defaultValue);
        return defaultValue;
    }
    return m_ini->value(key(name)).toBool();
}

int Serializer::ReadInt(const char* name, int defaultValue)
{
    if (GetValueByKey(key(name)).isEmpty()) {
        WriteDefault(name, defaultValue);
        return defaultValue;
    }
    return m_ini->value(key(name)).toInt();
}

int Serializer::ReadLimitSpeed()
{
    const QString text = GetValueByKey(key(Const::LimitSpeed));
    if (text.isEmpty()) {
        WriteDefault(Const::LimitSpeed, -1);
        return -1;
    }
    bool isNumber = false;
    const int limit = text.trimmed().toInt(&isNumber);
    if (isNumber && (limit > 0 || limit == -1))
        return limit;
    // A limit of 0 holds every download for good; a mangled value reads as 0. Neither is what the
    // player chose.
    Logger::LogInfo(
        QString::fromLatin1(Const::SerializerTag), QStringLiteral("LimitSpeed \"%1\" is no limit").arg(text));
    return -1;
}

QString Serializer::ReadString(const char* name, const QString& defaultValue)
{
    const QString value = GetValueByKey(key(name));
    if (value.isEmpty()) {
        WriteDefault(name, defaultValue);
        return defaultValue;
    }
    return value;
}

void Serializer::ReadSetting(UpdateSetting& s)
{
    s.installPath = GetValueByKey(key(Const::InstallPath));
    if (s.installPath.isEmpty())
        s.installPath = QCoreApplication::applicationDirPath();
    s.gamePath = GetValueByKey(key(Const::GamePath));
    if (s.gamePath.isEmpty())
        s.gamePath = QFileUtils::CombinePath(s.installPath, key(Const::GameFolderName));
    applyDerivedPaths(s);

    s.currentGameVersion = GetValueByKey(key(Const::CurrentGameVersion));
    s.transitionGameVersion = GetValueByKey(key(Const::TransitionGameVersion));
    s.targetGameVersion = GetValueByKey(key(Const::TargetGameVersion));
    s.currentStage = GetValueByKey(key(Const::CurrentStage));
    if (s.currentStage.isEmpty())
        s.currentStage = key(Const::InitStage);

    s.bPatchFinished = m_ini->value(key(Const::PatchFinished)).toBool();

    s.isAutoStart = ReadBool(Const::IsAutoStart, false);
    s.isOpenBgMusic = ReadBool(Const::IsOpenBgMusic, true);
    s.isPopWhenQuitGame = ReadBool(Const::IsPopWhenQuitGame, false);
    s.isMinWhenCloseLauncher = ReadBool(Const::IsMinWhenCloseLauncher, false);
    s.limitSpeed = ReadLimitSpeed();
    s.musicVolume = ReadInt(Const::MusicVolume, 50);
    s.isSkipInstallPlugin = ReadBool(Const::IsSkipInstallPlugin, false);
    s.musicLanguage = ReadString(Const::MusicLanguage, QStringLiteral("chinese"));
    s.systemExplorer = ReadBool(Const::SystemExplorer, false);
    s.newAgreementCheckedFlag = ReadBool(Const::NewAgreementCheckedFlag, false);
    m_ini->sync();

    s.loginServer = GetValueByKey(key(Const::LoginServer));
    s.guideServer = GetValueByKey(key(Const::GuideServer));
}

bool Serializer::SaveSetting(UpdateSetting& s)
{
    SetValueByKey(key(Const::InstallPath), s.installPath);
    SetValueByKey(key(Const::CurrentGameVersion), s.currentGameVersion);
    SetValueByKey(key(Const::TransitionGameVersion), s.transitionGameVersion);
    SetValueByKey(key(Const::TargetGameVersion), s.targetGameVersion);
    SetValueByKey(key(Const::CurrentStage), s.currentStage);
    SetValueByKey(key(Const::GamePath), s.gamePath);

    applyDerivedPaths(s);

    WriteDefault(Const::PatchFinished, s.bPatchFinished);
    WriteDefault(Const::IsAutoStart, s.isAutoStart);
    WriteDefault(Const::IsPopWhenQuitGame, s.isPopWhenQuitGame);
    WriteDefault(Const::IsMinWhenCloseLauncher, s.isMinWhenCloseLauncher);
    WriteDefault(Const::LimitSpeed, s.limitSpeed);
    WriteDefault(Const::IsSkipInstallPlugin, s.isSkipInstallPlugin);
    WriteDefault(Const::IsOpenBgMusic, s.isOpenBgMusic);
    WriteDefault(Const::MusicVolume, s.musicVolume);
    WriteDefault(Const::MusicLanguage, s.musicLanguage);
    WriteDefault(Const::SystemExplorer, s.systemExplorer);
    WriteDefault(Const::NewAgreementCheckedFlag, s.newAgreementCheckedFlag);
    m_ini->sync();
    if (m_ini->status() == QSettings::NoError)
        return true;
    Logger::LogInfo(QString::fromLatin1(Const::SerializerTag),
        QStringLiteral("cannot write %1 (status %2)").arg(m_ini->fileName()).arg(int(m_ini->status())));
    return false;
}
