#pragma once

#include "SimHost.h"
#include "Util/Crypto.h"
#include "services/DynPwdServer.h"

#include <QStringList>
#include <QtGlobal>

#include <mutex>

// Collects every log line written while it exists (from any thread).
class LogCapture
{
public:
    LogCapture()
    {
        std::lock_guard<std::mutex> lock(mutex());
        lines().clear();
        _previous = qInstallMessageHandler(&LogCapture::handle);
    }
    ~LogCapture() { qInstallMessageHandler(_previous); }

    QStringList all() const
    {
        std::lock_guard<std::mutex> lock(mutex());
        return lines();
    }
    int count(const QString &text) const
    {
        int n = 0;
        for (const auto &line : all())
            n += line.contains(text) ? 1 : 0;
        return n;
    }

private:
    static void handle(QtMsgType, const QMessageLogContext &, const QString &message)
    {
        std::lock_guard<std::mutex> lock(mutex());
        lines() << message;
    }
    static std::mutex &mutex()
    {
        static std::mutex m;
        return m;
    }
    static QStringList &lines()
    {
        static QStringList l;
        return l;
    }
    QtMessageHandler _previous = nullptr;
};

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
