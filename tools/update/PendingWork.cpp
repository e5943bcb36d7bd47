#include "PendingWork.h"

#include "core/SerializeComponent.h"

namespace {

const QString kKey = QStringLiteral("PendingWork");
const QString kSwap = QStringLiteral("swap");
const QString kVerify = QStringLiteral("verify");

} // namespace

PendingWork ReadPendingWork(Morvantix::SerializeComponent& settings)
{
    const QString text = settings.GetValueByKey(kKey);
    if (text == kSwap)
        return PendingWork::Swap;
    if (text == kVerify)
        return PendingWork::Verify;
    return PendingWork::None;
}

bool WritePendingWork(Morvantix::SerializeComponent& settings, PendingWork work)
{
    switch (work) {
    case PendingWork::None:
        return settings.SetValueByKey(kKey, QString());
    case PendingWork::Swap:
        return settings.SetValueByKey(kKey, kSwap);
    case PendingWork::Verify:
        return settings.SetValueByKey(kKey, kVerify);
    }
    return false;
}
