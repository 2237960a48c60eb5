#pragma once

#include "Util/OperationQueue.h"

#include <nlohmann/json.hpp>

#include <QByteArray>
#include <QString>

#include <optional>

class PPPoE;

// What the registration report tells about the link: its address and the card it runs on.
struct RegisterLinkFacts
{
    std::optional<QString> clientIp; // absent: no "Infos" at all
    QString netcardType;             // display name of the dialled interface, "" when unknown
    QString netcardMac;              // its MAC address, "" when unknown
};

// Reports the machine and the previous connection to the business server after a connection
// comes up, and keeps the server's answer ("infos") as the current area's received
// configuration. Fire and forget: every failure is one log line.
class Register : public Operation
{
public:
    // `host` is the business host; "/register.action" is appended as it stands. The link facts
    // are read from `pppoe` here, on the thread that owns it (the controller's), not later on
    // the worker thread: the PPPoE manager is not shared between threads.
    Register(const QString &host, PPPoE *pppoe, const std::optional<QString> &username, quint64 index);
    // The same with the link facts given.
    Register(const QString &host, RegisterLinkFacts link, const std::optional<QString> &username);

    void main() override;

    // The machine facts, or nullopt when the link has no IP address.
    std::optional<nlohmann::ordered_json> getInfo() const;
    std::optional<QByteArray> makeParam() const;
    void request();
    void handleResponseData(const std::optional<QByteArray> &data);

    void setClientVersion(const std::optional<QString> &version) { _version = version; }
    const QString &host() const { return _host; }

    static RegisterLinkFacts linkFactsOf(PPPoE *pppoe, quint64 index);

private:
    const QString _host;
    const RegisterLinkFacts _link;
    const std::optional<QString> _username;
    std::optional<QString> _version;
};
