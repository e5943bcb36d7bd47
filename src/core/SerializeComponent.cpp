#include "core/SerializeComponent.h"

namespace Morvantix {

void SerializeComponent::SaveSetting(UpdateSetting& setting)
{
    m_serializer.SaveSetting(setting);
}

void SerializeComponent::ReadSetting(UpdateSetting& setting)
{
    m_serializer.ReadSetting(setting);
}

void SerializeComponent::SetValueByKey(QString key, QString value)
{
    m_serializer.SetValueByKey(key, value);
}

QString SerializeComponent::GetValueByKey(QString key)
{
    return m_serializer.GetValueByKey(key);
}

} // namespace Morvantix
