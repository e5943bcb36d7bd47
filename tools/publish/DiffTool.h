#pragma once

#include "Outcome.h"

#include <QString>

namespace Publish {

// The binary diff in the format the launcher's diff tool applies on this system: xdelta3's.
class DiffTool
{
public:
    explicit DiffTool(const QString& program);

    // xdelta3 on the search path, or "".
    static QString Locate();

    Outcome encode(const QString& oldFile, const QString& newFile, const QString& diffFile) const;
    Outcome decode(const QString& oldFile, const QString& diffFile, const QString& outFile) const;

private:
    Outcome run(const QString& what, const QStringList& arguments) const;

    QString m_program;
};

} // namespace Publish
