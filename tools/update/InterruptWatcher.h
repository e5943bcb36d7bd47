#pragma once

#include <QObject>

class QSocketNotifier;

// Turns Ctrl-C (SIGINT, SIGTERM; the console's Ctrl-C and close events on Windows) into a signal
// delivered on the event loop, where the job can pause its download and leave cleanly.
class InterruptWatcher : public QObject
{
    Q_OBJECT
public:
    explicit InterruptWatcher(QObject* parent = nullptr);
    ~InterruptWatcher() override;

signals:
    void interrupted();

private:
    void onSignalled();

    QSocketNotifier* m_notifier = nullptr;
};
