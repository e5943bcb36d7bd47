#include "TestRegistry.h"

#include "core/CheckComponent.h"
#include "core/ComponentAccessors.h"
#include "core/CoreSystem.h"

#include <QtTest>

using namespace Morvantix;

class TestCoreSystem : public QObject
{
    Q_OBJECT
private slots:
    void freshContextDefaults()
    {
        const GameUpdateContext ctx;
        QCOMPARE(ctx.m_serverUrl, QStringLiteral("http://127.0.0.1:9601"));
        QVERIFY(ctx.m_backupServerUrl.endsWith(QLatin1String(":8000")));
        QCOMPARE(ctx.m_hostText9, QStringLiteral("0"));
        QCOMPARE(ctx.m_hostFloat, 1.0f);
        QCOMPARE(ctx.m_remoteInfo.m_carouselTime, 2000);
        QVERIFY(!ctx.m_updateSetting.musicLanguage.isNull() && ctx.m_updateSetting.musicLanguage.isEmpty());
    }

    void contextIsShared()
    {
        auto a = CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
        auto b = GetCoreSystemInstance()->GetCurGameUpdateContext();
        QVERIFY(a);
        a->m_checkPath = QStringLiteral("shared-marker");
        QCOMPARE(b->m_checkPath, QStringLiteral("shared-marker"));
        a->m_checkPath.clear();
    }

    void registry()
    {
        auto core = CoreSystem::GetCoreSystemInst();
        for (int unregistered : { 0, 1, 4, 5, 7, 11 })
            QVERIFY2(
                !core->GetComponent(EComponentType(unregistered)), qPrintable(QString::number(unregistered)));
        // Each accessor asks for its own type: a wrong number would fail the checked cast.
        QVERIFY(GetDownloadComponent() && GetUnZipComponent() && GetSerializeComponent()
            && GetVerifyComponent() && GetCheckComponent());

        const auto first = GetCheckComponent();
        core->RegistComponent(EComponentType::Check, std::make_shared<CheckComponent>());
        QCOMPARE(GetCheckComponent(), first);
    }
};

CORE_TEST_CLASS(TestCoreSystem)
#include "tst_coresystem.moc"
