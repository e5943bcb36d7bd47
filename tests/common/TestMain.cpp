#include "TestRegistry.h"

#include <QApplication>
#include <QTest>

#include <memory>

std::vector<TestRegistry::Factory>& TestRegistry::factories()
{
    static std::vector<Factory> list;
    return list;
}

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM",
        qgetenv("QT_QPA_PLATFORM").isEmpty() ? QByteArray("offscreen") : qgetenv("QT_QPA_PLATFORM"));
    QApplication app(argc, argv);
    int failures = 0;
    for (const auto& factory : TestRegistry::factories()) {
        std::unique_ptr<QObject> test(factory());
        failures += QTest::qExec(test.get(), argc, argv);
    }
    return failures == 0 ? 0 : 1;
}
