#include "TestRegistry.h"

#include <QApplication>
#include <QMetaMethod>
#include <QTest>

#include <memory>
#include <vector>

std::vector<TestRegistry::Factory>& TestRegistry::factories()
{
    static std::vector<Factory> list;
    return list;
}

namespace {

bool hasTestFunction(const QObject* test, const QByteArray& name)
{
    const QMetaObject* meta = test->metaObject();
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        if (meta->method(i).name() == name)
            return true;
    }
    return false;
}

// Function names on the command line ("name" or "name:tag") select test functions; QtTest stops
// the process on a name its class does not have, so each class gets only the names it knows.
std::vector<char*> argumentsFor(const QObject* test, int argc, char** argv, bool& selected)
{
    static const QByteArrayList optionsWithValue { "-o", "-maxwarnings", "-eventdelay", "-keydelay",
        "-mousedelay", "-seed", "-platform" };
    std::vector<char*> args { argv[0] };
    bool anyName = false;
    selected = false;
    for (int i = 1; i < argc; ++i) {
        const QByteArray arg(argv[i]);
        if (arg.startsWith('-')) {
            args.push_back(argv[i]);
            if (optionsWithValue.contains(arg) && i + 1 < argc)
                args.push_back(argv[++i]);
            continue;
        }
        anyName = true;
        if (hasTestFunction(test, arg.split(':').first())) {
            args.push_back(argv[i]);
            selected = true;
        }
    }
    selected = selected || !anyName;
    return args;
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    int failures = 0;
    for (const auto& factory : TestRegistry::factories()) {
        std::unique_ptr<QObject> test(factory());
        bool selected = false;
        std::vector<char*> args = argumentsFor(test.get(), argc, argv, selected);
        if (selected)
            failures += QTest::qExec(test.get(), int(args.size()), args.data());
    }
    return failures == 0 ? 0 : 1;
}
