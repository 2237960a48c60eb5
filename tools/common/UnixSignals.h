#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <initializer_list>

// Turns SIGINT/SIGTERM into a Qt signal on the main thread (self-pipe), so that a tool can
// hang up and print its last lines before it exits.
class UnixSignals : public QObject
{
    Q_OBJECT
public:
    explicit UnixSignals(std::initializer_list<int> signals, QObject *parent = nullptr);
    ~UnixSignals() override;

Q_SIGNALS:
    void received(int signal);

private:
    QSocketNotifier *_notifier = nullptr;
};
