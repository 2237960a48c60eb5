#pragma once

#include "support/LogCapture.h"

#include "SimHost.h"
#include "services/BusinessServer.h"
#include "support/TestData.h"

#include "Conf/Conf.h"
#include "Util/Crypto.h"
#include "Util/DVNotification.h"
#include "Util/OperationQueue.h"

#include <QFile>
#include <QStringList>

#include <gtest/gtest.h>

#include <mutex>
#include <vector>

namespace BizTest {

using TestData::demoConfig;

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

// Starts the simulated `service` on an ephemeral port, in `scenario` if one is named; null
// when it did not start.
template<typename Server>
Server *startService(SimHost &host, const ordered_json &config, const QString &service, const QString &scenario = {})
{
    SimOptions options;
    options.config = config;
    options.ephemeralPorts = true;
    options.accounts[QStringLiteral("demo")] = QStringLiteral("demo123");
    if (!scenario.isEmpty())
        options.scenarios[service] = scenario;
    return host.start(options, {service}) ? static_cast<Server *>(host.service(service)) : nullptr;
}

inline QString md5Hex(const QString &text)
{
    return QString::fromLatin1(Crypto::md5(text.toUtf8()).toHex());
}

inline QString local(quint16 port, const QString &path = {})
{
    return QStringLiteral("http://127.0.0.1:%1%2").arg(port).arg(path);
}

// Runs `op` as the controller does, on a work queue, to its end.
inline void runToEnd(const std::shared_ptr<Operation> &op)
{
    auto queue = OperationQueue::create();
    queue->addOperation(op);
    ASSERT_TRUE(TestSupport::spinUntil([&] { return queue->operationCount() == 0; }, 15000));
}

// The demo configuration, area 1001, with its business server simulated on a free port.
class BusinessServerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        config = demoConfig();
        server = startService<BusinessServer>(host, config, QStringLiteral("business"));
        ASSERT_TRUE(server);
        base = local(server->port());
        setDefault(config, "business", "host", base);
        useConfig(config);
        Conf::setArea(QStringLiteral("1001"));
    }

    SimHost host;
    BusinessServer *server = nullptr;
    ordered_json config;
    QString base;
};

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
