#pragma once

#include "core/CoreExport.h"

#include <QString>

// The launch-channel argument file: "channel.ini" beside the program, written by a channel's
// installer so that one build of the launcher serves every channel. UTF-8 (a byte-order mark is
// accepted), one "key=value" per line, spaces around key and value ignored, blank lines and lines
// starting with "#" or ";" skipped. The keys "Channel", "Host", "HostAndChannel" and
// "LauncherChannel" set the Global::Var members of the same names; other keys and empty values are
// ignored, and a missing file changes nothing. The launcher applies it as soon as its application
// object exists, before it uses the library.
class CORE_EXPORT LaunchArguments
{
public:
    static QString DefaultFilePath();
    // Returns how many members were set.
    static int Apply(const QString& filePath = DefaultFilePath());
};
