#pragma once

#include "Outcome.h"

#include <QString>

namespace Publish {

// Binary diffs in the format the merge stage's hpatchz applies, made and applied in this process by
// the diff engine.
class DiffTool
{
public:
    // memoryBudget: what one diff may take.
    explicit DiffTool(qint64 memoryBudget);
    virtual ~DiffTool() = default;

    virtual Outcome encode(const QString& oldFile, const QString& newFile, const QString& diffFile) const;
    Outcome decode(const QString& oldFile, const QString& diffFile, const QString& outFile) const;

private:
    qint64 m_memoryBudget;
};

} // namespace Publish
