#include "TestRegistry.h"

#include <QApplication>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cstdio>
#include <memory>

std::vector<TestRegistry::Factory>& TestRegistry::factories()
{
    static std::vector<Factory> list;
    return list;
}

namespace {

// QtTest on Windows sends a log meant for standard output to the debugger whenever no console is
// attached, which is the case under CTest and under Wine: without "-o", each class writes its log to
// a file that goes to standard output when the class ends.
int execute(QObject* test, std::vector<char*> args)
{
#ifdef Q_OS_WIN
    const bool ownOutput
        = std::any_of(args.begin(), args.end(), [](const char* arg) { return QByteArray(arg) == "-o"; });
    QTemporaryDir dir;
    if (!ownOutput && dir.isValid()) {
        QByteArray output = QFile::encodeName(dir.filePath("log.txt")) + ",txt";
        QByteArray option("-o");
        args.push_back(option.data());
        args.push_back(output.data());
        const int failures = QTest::qExec(test, int(args.size()), args.data());
        QFile log(dir.filePath("log.txt"));
        if (log.open(QIODevice::ReadOnly)) {
            const QByteArray text = log.readAll();
            std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
            std::fflush(stdout);
        }
        return failures;
    }
#endif
    return QTest::qExec(test, int(args.size()), args.data());
}

} // namespace

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
            failures += execute(test.get(), args);
    }
    return failures == 0 ? 0 : 1;
}
