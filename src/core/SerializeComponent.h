#pragma once

#include "core/CoreExport.h"
#include "core/ICoreComponent.h"
#include "core/UpdateSetting.h"
#include "settings/Serializer.h"

#include <QString>

namespace Morvantix {

class CORE_EXPORT SerializeComponent : public ICoreComponent
{
public:
    SerializeComponent() = default;

    void Setup(EComponentType) override { }
    // False when config.ini could not be written.
    virtual bool SaveSetting(UpdateSetting& setting);
    virtual void ReadSetting(UpdateSetting& setting);
    virtual bool SetValueByKey(QString key, QString value);
    virtual QString GetValueByKey(QString key);

private:
    Serializer m_serializer;
};

} // namespace Morvantix
