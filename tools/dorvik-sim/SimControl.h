#pragma once

#include <QHttpServer>

class SimHost;

// Lets a test or a long run steer a running simulator over HTTP on 127.0.0.1:
//   GET  /sim/stats     what every service saw so far (the same object as the exit line)
//   POST /sim/scenario  {"service": "heart", "scenario": "nak-storm"} switches a service's fault
//                       scenario ("" for normal service); 400 when the service cannot.
class SimControl
{
public:
    explicit SimControl(SimHost &host);

    // Listens on `port` (0: one the system picks). False when it cannot.
    bool start(quint16 port);
    quint16 port() const { return _port; }

private:
    SimHost &_host;
    QHttpServer _http;
    quint16 _port = 0;
};
