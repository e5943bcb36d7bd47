#include "TestRegistry.h"

#include "core/CheckComponent.h"
#include "core/ComponentAccessors.h"
#include "core/CoreSystem.h"
#include "core/SerializeComponent.h"

#include <QtTest>

using namespace Morvantix;

namespace {

class StubComponent : public ICoreComponent
{
public:
    void Setup(EComponentType) override { }
};

} // namespace

class TestCoreSystem : public QObject
{
    Q_OBJECT
private slots:
    void freshContextDefaults();
    void contextIsShared();
    void unregisteredTypesGiveEmptyPointers_data();
    void unregisteredTypesGiveEmptyPointers();
    void firstRegistrationWins();
    void typedAccessorRejectsOtherClass();
};

void TestCoreSystem::freshContextDefaults()
{
    const GameUpdateContext ctx;
    QCOMPARE(ctx.m_serverUrl, QStringLiteral("http://127.0.0.1:9601"));
    QVERIFY(ctx.m_backupServerUrl.endsWith(QLatin1String(":8000")));
    QCOMPARE(ctx.m_hostText9, QStringLiteral("0"));
    QCOMPARE(ctx.m_hostFloat, 1.0f);
    QCOMPARE(ctx.m_remoteInfo.m_carouselTime, 2000);
    QVERIFY(!ctx.m_updateSetting.musicLanguage.isNull());
    QVERIFY(ctx.m_updateSetting.musicLanguage.isEmpty());
    QVERIFY(!ctx.m_updateSetting.loginServer.isNull());
    QVERIFY(ctx.m_updateSetting.installPath.isNull());
    QCOMPARE(ctx.m_updateSetting.limitSpeed, 0);
    QVERIFY(!ctx.m_installPath.isNull());
    QVERIFY(ctx.m_updateInstallRoot.isNull());
    QVERIFY(!ctx.m_bLimitSpeed);
    QCOMPARE(ctx.m_solveResult, 0);
}

void TestCoreSystem::contextIsShared()
{
    auto core = CoreSystem::GetCoreSystemInst();
    QCOMPARE(core, GetCoreSystemInstance());
    auto a = core->GetCurGameUpdateContext();
    auto b = GetCoreSystemInstance()->GetCurGameUpdateContext();
    QVERIFY(a);
    QCOMPARE(a.get(), b.get());
    a->m_checkPath = QStringLiteral("shared-marker");
    QCOMPARE(b->m_checkPath, QStringLiteral("shared-marker"));
    a->m_checkPath = QStringLiteral("");
}

void TestCoreSystem::unregisteredTypesGiveEmptyPointers_data()
{
    QTest::addColumn<int>("type");
    for (int type : { 0, 1, 4, 5, 7, 11 })
        QTest::addRow("type %d", type) << type;
}

void TestCoreSystem::unregisteredTypesGiveEmptyPointers()
{
    QFETCH(int, type);
    QVERIFY(!CoreSystem::GetCoreSystemInst()->GetComponent(static_cast<EComponentType>(type)));
}

void TestCoreSystem::firstRegistrationWins()
{
    auto core = CoreSystem::GetCoreSystemInst();
    const auto first = GetCheckComponent();
    QVERIFY(first);
    core->RegistComponent(EComponentType::Check, std::make_shared<CheckComponent>());
    QCOMPARE(GetCheckComponent(), first);
    QCOMPARE(core->GetComponent(EComponentType::Check), std::static_pointer_cast<ICoreComponent>(first));
}

void TestCoreSystem::typedAccessorRejectsOtherClass()
{
    // A registry of our own, so the process-wide one keeps its real components.
    CoreSystem core;
    core.RegistComponent(EComponentType::Patch, std::make_shared<StubComponent>());
    QVERIFY(core.GetComponent(EComponentType::Patch));
    QVERIFY(!std::dynamic_pointer_cast<CheckComponent>(core.GetComponent(EComponentType::Patch)));
    QVERIFY(GetSerializeComponent());
}

CORE_TEST_CLASS(TestCoreSystem)
#include "tst_coresystem.moc"
