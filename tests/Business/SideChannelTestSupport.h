#pragma once

#include "support/LogCapture.h"

#include "SimHost.h"
#include "Util/Crypto.h"
#include "services/DynPwdServer.h"

#include <QStringList>
#include <QtGlobal>

#include <mutex>

namespace SideChannelTest {

inline const QString kShareKey = QStringLiteral("8e4b1d7a2c9f0635");
inline const QString kDecodeKey = QStringLiteral("6b2e9f4a1c8d0357");
inline const QString kEncodeKey = QStringLiteral("d05a7c3e9b1f4862");

// The two UDP servers' part of a deployment's configuration.
inline nlohmann::ordered_json config()
{
    return nlohmann::ordered_json::parse(R"({
      "dynmicpwd": {
        "host": { "default": "127.0.0.1:18086" },
        "decodeKey": { "default": "6b2e9f4a1c8d0357" },
        "encodeKey": { "default": "d05a7c3e9b1f4862" }
      },
      "sms": {
        "host": { "default": "127.0.0.1:18085" },
        "shareKey": { "default": "8e4b1d7a2c9f0635" },
        "timeout": { "default": "60" }
      }
    })");
}

// Starts one simulated service on an ephemeral port with a scenario.
inline bool startService(SimHost &host, const QString &service, const QString &scenario,
                         std::map<QString, QString> accounts = {})
{
    SimOptions options;
    options.config = config();
    options.ephemeralPorts = true;
    options.accounts = std::move(accounts);
    if (!scenario.isEmpty())
        options.scenarios[service] = scenario;
    return host.start(options, {service});
}

inline QString md5Hex(const QString &text)
{
    return QString::fromLatin1(Crypto::md5(text.toUtf8()).toHex());
}

} // namespace SideChannelTest
