#pragma once

#include "core/CoreExport.h"
#include "core/UpdateSetting.h"

#include <QSettings>
#include <QString>

#include <memory>

// The launcher's settings in "config.ini" beside the program. Copies share one settings object.
class CORE_EXPORT Serializer
{
public:
    Serializer();

    void ReadSetting(Morvantix::UpdateSetting& setting);
    // False when the file could not be written (read-only, a folder in its place, a full disk); the
    // file then keeps what it held. Qt writes the whole file to a QSaveFile and renames it into place,
    // so a kill or a full disk never leaves half a file.
    bool SaveSetting(Morvantix::UpdateSetting& setting);
    QString GetValueByKey(const QString& key);
    // False when the file could not be written.
    bool SetValueByKey(const QString& key, const QString& value);

    // The file the settings live in.
    QString FilePath() const;

    // Folder of "config.ini" for hosts whose own folder cannot hold it (a program installed
    // read-only); empty restores the application's folder. Takes effect for Serializers created
    // afterwards, so a host calls it before the core system exists.
    static void SetConfigFolder(const QString& folder);

private:
    void InitConfig();
    void WriteDefault(const char* key, const QVariant& value);
    bool ReadBool(const char* key, bool defaultValue);
    int ReadInt(const char* key, int defaultValue);
    int ReadLimitSpeed();
    QString ReadString(const char* key, const QString& defaultValue);

    std::shared_ptr<QSettings> m_ini;
};
