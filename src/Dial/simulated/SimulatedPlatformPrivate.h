#pragma once

// The in-memory objects of the simulated machine, shared by the files that implement
// SimulatedPlatform (the configuration store and the connections).

#include "SimulatedPlatform.h"
#include "Util/ThreadHandoff.h"

#include <QObject>
#include <QTimer>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <thread>
#include <vector>

namespace SimulatedObjects {
struct SimInterface : PlatformObject
{
    QString type;
    QString bsdName;
    QString displayName;
    QString macAddress;
    std::shared_ptr<SimInterface> child; // the interface under a PPP layer
    std::optional<QVariantMap> config;
};

struct SimConnection;

// The state of the PPP link of one service; every connection object made for the service
// sees it and is told of its changes.
struct SimLink
{
    int status = NetworkConnectionDisconnected;
    qint64 connectTime = 0;
    quint64 attempt = 0;
    LinkEnd end;                        // why the link last went down
    std::unique_ptr<QObject> timerHost; // lives on the thread that started the link
    std::vector<std::weak_ptr<SimConnection>> watchers;
};

struct SimService : PlatformObject
{
    QString id;
    QString name;
    bool enabled = true;
    bool inSet = false;
    bool pendingRemoval = false; // removed in the session, gone from the store at the next commit
    std::shared_ptr<SimInterface> iface;
    std::shared_ptr<SimLink> link = std::make_shared<SimLink>();
};

struct SimPrefs : PlatformObject
{
    PPPoEPlatform::PreferencesCallback callback;
    bool scheduled = false;
    bool locked = false;
};

struct SimSet : PlatformObject
{
};

struct SimStore : PlatformObject
{
};

struct SimConnection : PlatformObject
{
    QString serviceID;
    std::shared_ptr<SimLink> link;
    PPPoEPlatform::ConnectionCallback callback;
    std::unique_ptr<QObject> deliverHost; // lives on the thread that scheduled the connection
};

} // namespace SimulatedObjects

using namespace SimulatedObjects;

struct SimulatedPlatform::State
{
    SimulatedConfig config;
    std::vector<std::shared_ptr<SimService>> deviceServices;
    std::vector<std::shared_ptr<SimService>> services;
    std::vector<std::shared_ptr<SimService>> retired; // removed by a commit
    std::map<QString, bool> linkActive;
    int lastError = PlatformStatus::Ok;
    int nextId = 1;

    // Blocks the calling thread for the configured call delay.
    void blockLikeTheSystem() const
    {
        if (config.callDelayMs > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(config.callDelayMs));
    }

    bool fail(int code)
    {
        lastError = code;
        return false;
    }

    std::shared_ptr<SimService> serviceWithID(const QString &id) const
    {
        for (const auto &s : services) {
            if (s->id == id)
                return s;
        }
        return nullptr;
    }

    // Reports a status change to every connection of the link: delivered later, on the
    // thread that scheduled each one, if it is still scheduled then.
    void setStatus(const std::shared_ptr<SimLink> &link, int status)
    {
        link->status = status;
        if (status == NetworkConnectionConnected)
            link->connectTime = config.clock->monotonicMs() / 1000;
        for (const auto &weak : link->watchers) {
            const auto conn = weak.lock();
            if (!conn || !conn->deliverHost || !conn->callback)
                continue;
            ThreadHandoff::post(conn->deliverHost.get(), [weak, status] {
                const auto c = weak.lock();
                if (c && c->deliverHost && c->callback)
                    c->callback(c, status);
            });
        }
    }

    // Runs `step` after the step delay unless the link was restarted or stopped meanwhile.
    void later(const std::shared_ptr<SimLink> &link, quint64 attempt,
               std::function<void(const std::shared_ptr<SimLink> &)> step)
    {
        std::weak_ptr<SimLink> weak = link;
        QTimer::singleShot(config.stepDelayMs, link->timerHost.get(), [weak, attempt, step] {
            const auto l = weak.lock();
            if (l && l->attempt == attempt)
                step(l);
        });
    }

    void dropLink(const std::shared_ptr<SimLink> &link,
                  LinkEnd why = {LinkEndCause::Dropped, QStringLiteral("the peer hung up")})
    {
        if (link->status == NetworkConnectionDisconnected)
            return;
        ++link->attempt;
        endLink(link, std::move(why));
    }

    void endLink(const std::shared_ptr<SimLink> &link, LinkEnd why)
    {
        link->end = std::move(why);
        setStatus(link, NetworkConnectionDisconnected);
    }
};
