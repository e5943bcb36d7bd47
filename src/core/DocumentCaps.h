#pragma once

#include <QtGlobal>

namespace Morvantix {

// The largest server document of each kind that is read. A fetch stops as soon as more has arrived,
// so a broken or hostile server cannot make the launcher hold or parse a document without end. Each
// cap leaves room many times over for a real game.
namespace DocumentCaps {

constexpr qint64 kMiB = 1024 * 1024;

// "info.json": news, links and notices; a few kilobytes in practice.
constexpr qint64 RemoteInfoBytes = 1 * kMiB;
// The guide manifest: one line per package, under 200 bytes each; 16 MiB is some 80,000 packages.
constexpr qint64 GuideManifestBytes = 16 * kMiB;
// A version's file list: one line per file, path, MD5 and size; 128 MiB holds 500,000 files with
// paths of 200 characters.
constexpr qint64 FileListBytes = 128 * kMiB;

// A server text shown to the player (a notice, a message) is cut after this many characters.
constexpr int ShownTextChars = 2000;

} // namespace DocumentCaps
} // namespace Morvantix
