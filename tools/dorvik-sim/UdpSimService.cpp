#include "UdpSimService.h"

#include <cstdio>

bool UdpSimService::listen(const char *name, quint16 port)
{
    if (!_socket.bind(QHostAddress::LocalHost, port)) {
        std::fprintf(stderr, "%s: cannot listen on 127.0.0.1:%u: %s\n", name, port,
                     qUtf8Printable(_socket.errorString()));
        return false;
    }
    connect(&_socket, &QUdpSocket::readyRead, this, &UdpSimService::readPending);
    return true;
}

void UdpSimService::readPending()
{
    while (_socket.hasPendingDatagrams()) {
        QByteArray datagram(static_cast<qsizetype>(qMax<qint64>(0, _socket.pendingDatagramSize())), '\0');
        QHostAddress from;
        quint16 fromPort = 0;
        const qint64 n = _socket.readDatagram(datagram.data(), datagram.size(), &from, &fromPort);
        if (n < 0)
            continue;
        datagram.truncate(n);
        const QByteArray reply = answer(datagram);
        if (!reply.isEmpty() && _socket.writeDatagram(reply, from, fromPort) == reply.size())
            ++_replies;
    }
}
