#pragma once

#include <QString>

// Where the settings ("config.ini") and the log ("log/") live: beside the program, as the library
// keeps them, when the program's folder can be written; otherwise in the install folder, so a
// program installed read-only still keeps its state.
namespace SettingsPlacement {

QString Folder(const QString& programFolder, const QString& installFolder);

bool IsWritableFolder(const QString& folder);

} // namespace SettingsPlacement
