#pragma once

#include "support/LogCapture.h"

#include "SimHost.h"
#include "support/TestSupport.h"

#include "Conf/Conf.h"
#include "Util/DVNotification.h"

#include <QFile>
#include <QStringList>

#include <gtest/gtest.h>

#include <mutex>
#include <vector>

namespace BizTest {

// The demo deployment's configuration as shipped (plain source).
inline ordered_json demoConfig()
{
    QFile f(TestSupport::sourceTestsDir() + QStringLiteral("/../resources/demo/system.json"));
    if (!f.open(QIODevice::ReadOnly))
        return ordered_json::object();
    const QByteArray bytes = f.readAll();
    return ordered_json::parse(bytes.constBegin(), bytes.constEnd());
}

inline void setDefault(ordered_json &config, const char *section, const char *key, const QString &value)
{
    config[section][key] = ordered_json{{"default", value.toStdString()}};
}

// Makes `config` the client's configuration.
inline void useConfig(const ordered_json &config)
{
    QString error;
    auto conf = Conf::fromJson(QByteArray::fromStdString(config.dump()), &error);
    ASSERT_TRUE(conf) << error.toStdString();
    Conf::setShared(std::move(conf));
}

// Starts simulated services on ephemeral ports.
inline bool startServices(SimHost &host, const ordered_json &config, const QStringList &services,
                          std::map<QString, QString> scenarios = {})
{
    SimOptions options;
    options.config = config;
    options.ephemeralPorts = true;
    options.accounts[QStringLiteral("demo")] = QStringLiteral("demo123");
    options.scenarios = std::move(scenarios);
    return host.start(options, services);
}

inline QString local(quint16 port, const QString &path = {})
{
    return QStringLiteral("http://127.0.0.1:%1%2").arg(port).arg(path);
}

// Collects the notifications of one name, delivered on whatever thread posts them.
class Observed
{
public:
    explicit Observed(const QString &name)
    {
        _token = DVNotificationCenter::defaultCenter().addObserverForName(name, nullptr,
                                                                          [this](const DVNotificationMessage &m) {
                                                                              std::lock_guard<std::mutex> lock(_mutex);
                                                                              _messages.push_back(m);
                                                                          });
    }
    ~Observed() { DVNotificationCenter::defaultCenter().removeObserver(_token); }
    Observed(const Observed &) = delete;
    Observed &operator=(const Observed &) = delete;

    size_t count() const
    {
        std::lock_guard<std::mutex> lock(_mutex);
        return _messages.size();
    }
    // A copy of the payload of the i-th notification under `key`, if it has one of type T.
    template<typename T> std::optional<T> payload(size_t i, const QString &key) const
    {
        std::lock_guard<std::mutex> lock(_mutex);
        const T *p = _messages.at(i).payload<T>(key);
        return p ? std::optional<T>(*p) : std::nullopt;
    }
    bool waitFor(size_t n, int ms = 10000) const
    {
        return TestSupport::spinUntil([&] { return count() >= n; }, ms);
    }

private:
    DVNotificationCenter::Token _token = 0;
    mutable std::mutex _mutex;
    std::vector<DVNotificationMessage> _messages;
};

} // namespace BizTest
