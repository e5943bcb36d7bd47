#include "InterruptWatcher.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <QSocketNotifier>

#ifdef Q_OS_WIN
#include <windows.h>
#else
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace {

QPointer<InterruptWatcher> s_watcher;

#ifdef Q_OS_WIN
BOOL WINAPI onConsoleEvent(DWORD)
{
    if (s_watcher)
        QMetaObject::invokeMethod(s_watcher.data(), "interrupted", Qt::QueuedConnection);
    return TRUE;
}
#else
// A signal handler may only write to a descriptor; the event loop reads the other end.
int s_signalPipe[2] = { -1, -1 };

void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(s_signalPipe[0], &byte, 1);
}
#endif

} // namespace

InterruptWatcher::InterruptWatcher(QObject* parent)
    : QObject(parent)
{
    s_watcher = this;
#ifdef Q_OS_WIN
    SetConsoleCtrlHandler(onConsoleEvent, TRUE);
#else
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, s_signalPipe) != 0)
        return;
    m_notifier = new QSocketNotifier(s_signalPipe[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &InterruptWatcher::onSignalled);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
#endif
}

InterruptWatcher::~InterruptWatcher()
{
#ifdef Q_OS_WIN
    SetConsoleCtrlHandler(onConsoleEvent, FALSE);
#else
    ::signal(SIGINT, SIG_DFL);
    ::signal(SIGTERM, SIG_DFL);
    if (s_signalPipe[0] >= 0) {
        ::close(s_signalPipe[0]);
        ::close(s_signalPipe[1]);
        s_signalPipe[0] = s_signalPipe[1] = -1;
    }
#endif
}

void InterruptWatcher::onSignalled()
{
#ifndef Q_OS_WIN
    char byte = 0;
    [[maybe_unused]] const ssize_t got = ::read(s_signalPipe[1], &byte, 1);
#endif
    emit interrupted();
}
