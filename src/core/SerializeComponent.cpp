#include "core/SerializeComponent.h"

namespace Morvantix {

bool SerializeComponent::SaveSetting(UpdateSetting& setting)
{
    return m_serializer.SaveSetting(setting);
}

void SerializeComponent::ReadSetting(UpdateSetting& setting)
{
    m_serializer.ReadSetting(setting);
}

bool SerializeComponent::SetValueByKey(QString key, QString value)
{
    return m_serializer.SetValueByKey(key, value);
}

QString SerializeComponent::GetValueByKey(QString key)
{
    return m_serializer.GetValueByKey(key);
}

} // namespace Morvantix
