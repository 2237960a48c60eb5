#pragma once

#include "SimService.h"

#include <QUdpSocket>

// A simulated server that answers datagrams: one reply (or none) per request.
class UdpSimService : public SimService
{
    Q_OBJECT
public:
    using SimService::SimService;

    quint16 port() const override { return _socket.localPort(); }

protected:
    // Binds 127.0.0.1:`port` (0: any free port); false with the reason on stderr.
    bool listen(const char *name, quint16 port);
    // The reply to one datagram; empty for none.
    virtual QByteArray answer(const QByteArray &request) = 0;

    int _replies = 0;

private:
    void readPending();

    QUdpSocket _socket;
};
