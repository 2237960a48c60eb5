#pragma once

#include <QDBusMessage>
#include <QObject>

#include <functional>

// Receives D-Bus signals on the thread it lives on and hands each message to a function.
class NMSignalRelay : public QObject
{
    Q_OBJECT

public:
    explicit NMSignalRelay(std::function<void(const QDBusMessage &)> onMessage, QObject *parent = nullptr)
        : QObject(parent)
        , _onMessage(std::move(onMessage))
    {}

public Q_SLOTS:
    void relay(const QDBusMessage &message)
    {
        if (_onMessage)
            _onMessage(message);
    }

private:
    std::function<void(const QDBusMessage &)> _onMessage;
};
