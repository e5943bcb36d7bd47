#include "TestRegistry.h"

#include <QApplication>
#include <QLoggingCategory>
#include <QTest>

#include <memory>

std::vector<TestRegistry::Factory>& TestRegistry::factories()
{
    static std::vector<Factory> list;
    return list;
}

// Function names on the command line ("name" or "name:tag") select test functions. QtTest stops the
// process on a name its class does not have, so each class gets only its own names, and a class
// that none of the names is for does not run.
int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    // Under CTest the library's trace lines would bury the one line that says what failed (a log
    // shown in part may end before it); run a test program by hand to see them. LogLines turns them
    // back on while it collects.
    if (!qEnvironmentVariableIsEmpty("CORE_TEST_QUIET"))
        QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, false);
    const QByteArrayList optionsWithValue { "-o", "-maxwarnings", "-eventdelay", "-keydelay", "-mousedelay",
        "-seed", "-platform" };
    int failures = 0;
    for (const auto& factory : TestRegistry::factories()) {
        std::unique_ptr<QObject> test(factory());
        std::vector<char*> args { argv[0] };
        bool anyName = false, selected = false;
        for (int i = 1; i < argc; ++i) {
            const QByteArray arg(argv[i]);
            const bool option = arg.startsWith('-');
            const bool ours = !option && test->metaObject()->indexOfSlot(arg.split(':').first() + "()") >= 0;
            anyName = anyName || !option;
            selected = selected || ours;
            if (option || ours)
                args.push_back(argv[i]);
            if (option && optionsWithValue.contains(arg) && i + 1 < argc)
                args.push_back(argv[++i]);
        }
        if (selected || !anyName)
            failures += QTest::qExec(test.get(), int(args.size()), args.data());
    }
    return failures == 0 ? 0 : 1;
}
