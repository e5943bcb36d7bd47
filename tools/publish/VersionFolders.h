#pragma once

#include "Outcome.h"

#include <QString>
#include <QStringList>
#include <QVector>

namespace Publish {

// One file of a version folder, by its "/"-separated path inside the folder.
struct SourceFile
{
    QString rel;
    QString path;
    qint64 size = 0;
    bool bExecutable = false;
};

// One version folder with its files in path order (the order of the library's file maps).
struct VersionSource
{
    QString text; // canonical: "1.0.0.2" for a folder named "1.0.0.02"
    QString folderName;
    QString folder;
    QVector<SourceFile> files;
    QStringList emptyFolders; // "/"-separated paths of folders that hold nothing at all
};

// The canonical version text a folder name stands for, or "" when the name is no version, or one
// whose parts would spill into each other in the launcher's version order.
QString VersionTextOf(const QString& folderName);

// Why the launcher could not take rel as a file name ("" when it can): the file lists, the patch
// packages and Windows each rule out some names.
QString FileNameProblem(const QString& rel);

// The "/"-separated paths of the folders under folder that hold nothing at all, sorted; links are not
// followed.
QStringList EmptyFoldersIn(const QString& folder);

// Every subfolder of root as a version, oldest first. Refuses folders that are no version, two folders
// of one version, links, special files, unreadable files and names the launcher cannot take.
Outcome ScanVersions(const QString& root, QVector<VersionSource>& versions);

} // namespace Publish
