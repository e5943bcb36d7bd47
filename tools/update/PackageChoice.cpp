#include "PackageChoice.h"

#include <limits>

bool IsFullPackageSmaller(const QVector<qint64>& chainStepBytes, qint64 fullPackageBytes)
{
    if (fullPackageBytes <= 0)
        return false;
    qint64 chain = 0;
    for (const qint64 bytes : chainStepBytes) {
        if (bytes > 0)
            chain = bytes > std::numeric_limits<qint64>::max() - chain ? std::numeric_limits<qint64>::max()
                                                                       : chain + bytes;
    }
    return chain >= fullPackageBytes;
}
