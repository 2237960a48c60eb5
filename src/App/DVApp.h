#pragma once

#include "App/RedialSupervisor.h"
#include "Bcom/BcomOperationData.h"
#include "Dial/PPPoE.h"
#include "Util/Clock.h"
#include "Util/DVError.h"
#include "Util/DVEvent.h"
#include "Util/OperationQueue.h"

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <nlohmann/json.hpp>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

class BubbleCenter;

// The one object that turns a request to connect into a running, supervised connection. It
// owns the PPPoE manager and the connection's work queue, learns of link changes only from
// the event bus (event 1, delivered on the main thread), starts the connection's tasks when
// the link comes up and cancels them all when it goes down.
//
// Call it on the main thread. The process uses one instance (shareInstance()); tests and tools
// may build their own with a chosen dialing back-end.
class DVApp : public QObject
{
    Q_OBJECT
public:
    // The "not found" interface index.
    static constexpr quint64 NotFound = 0x7FFFFFFFFFFFFFFFULL;

    struct Options
    {
        std::shared_ptr<Clock> clock = Clock::system();
        // Heartbeat pauses (tests shrink them); empty means real seconds.
        BcomWaitPolicy heartbeatWaits;
        // Told about every heartbeat exchange, on a worker thread.
        std::function<void(const BcomExchange &)> onHeartbeatExchange;
        // Where the configuration request shows its bubbles; null means the process's centre.
        BubbleCenter *bubbles = nullptr;
        // Automatic redial (off unless setRedialEnabled(true)): its pauses, its wait (empty: a
        // timer on the controller's thread), its jitter source and who hears what it does.
        RedialSupervisor::Policy redialPolicy;
        std::function<void(qint64 ms, std::function<void()> fire)> redialWait;
        std::function<double()> redialRandom;
        std::function<void(const RedialSupervisor::Report &)> onRedial;
    };

    explicit DVApp(std::unique_ptr<PPPoE> pppoe);
    DVApp(std::unique_ptr<PPPoE> pppoe, Options options);
    ~DVApp() override;

    // The process's controller, created on first use with the platform's dialing back-end
    // unless installShared() gave one before.
    static DVApp &shareInstance();
    static void installShared(std::unique_ptr<DVApp> app);

    // Dials `index` of the interface list the caller last saw (getInterfaceList() or
    // getLastInterfaceIndex()) with the dial name made from `name` by the account rule. The
    // interface is resolved once, here; dialInterface() names it afterwards. The password is
    // not kept alive here: the caller owns it. True means dialing started; the connected state
    // arrives later as an event.
    bool dialWithUserName(const QString &name, const std::shared_ptr<const QString> &password, quint64 index,
                          DVError *error);
    // Forgets the dial name and password and hangs up; the tasks end with the disconnected event.
    bool stopConn();

    // {"name": display name, "status": "已连接" | "未连接"} per interface, in list order.
    std::vector<QVariantMap> getInterfaceList();
    // Position of the remembered interface in the list, or NotFound.
    quint64 getLastInterfaceIndex();
    qint32 getConnTime();
    QString username() const;
    void requestToken();

    void onEventWithObject(const DVEventObjectPtr &object);
    void onConnected();
    void startTasks();
    void startHeart();

    // Automatic redial after a link the user did not hang up went down (off by default).
    void setRedialEnabled(bool enabled) { _redial->setEnabled(enabled); }
    const RedialSupervisor &redial() const { return *_redial; }
    // The token request with its outcome: `done` gets the parsed answer, or an error text, on
    // this thread. Needs a connection dialled by this controller (the password of the dial).
    void requestToken(std::function<void(nlohmann::ordered_json)> done);
    // Whether the current area's dial names depend on the time.
    static bool timeBasedRule();
    // What the last clock check found (ClockGuard), kept for the diagnostics.
    void setClockCheck(nlohmann::ordered_json check) { _clockCheck = std::move(check); }
    // The state of the connection as a JSON document for the diagnostics page and
    // `dorvik-cli status`. Holds no password, no SMS code, no dial name, no key.
    nlohmann::ordered_json diagnostics() const;
    // The interface a connection of this controller holds (dialling or up); empty when none.
    QString heldInterface() const;

    // Where the connection's bubbles go (shown only while connected).
    BubbleCenter *bubbleCenter() const;

    bool isConnected() const { return _isConntcted; }
    // The dial name of the last dial (empty after stopConn()).
    QString pin() const { return _pin; }
    qint64 dialTime() const { return _time; }
    PPPoE *pppoe() const { return _pppoe.get(); }
    // The interface of the last dial, as resolved when it started.
    const std::optional<NetworkInterfaceInfo> &dialInterface() const { return _dialInterface; }
    const std::shared_ptr<OperationQueue> &queue() const { return _queue; }

Q_SIGNALS:
    // Emitted on the main thread after the controller has handled a dial-status event.
    void dialStateChanged(qint64 dialState);

private:
    void setUsername(const QString &name);
    bool dialNow(const QString &name, const std::shared_ptr<const QString> &password, quint64 index, DVError *error);
    bool redialNow(DVError *error);
    void noteError(const DVError &error);
    void noteExchange(const BcomExchange &exchange, qint64 nextWaitMs);

    // Written on the controller's thread; read by the bubble center's predicate on the main
    // thread and by background tasks.
    std::atomic<bool> _isConntcted{false};
    std::unique_ptr<PPPoE> _pppoe;
    QString _pin;
    std::shared_ptr<OperationQueue> _queue;
    mutable std::mutex _usernameMutex; // background tasks read the account name
    QString _username;
    std::weak_ptr<const QString> _password;
    qint64 _time = 0;
    quint64 _index = 0;
    std::optional<NetworkInterfaceInfo> _dialInterface;
    Options _options;
    std::unique_ptr<RedialSupervisor> _redial;
    // For the diagnostics (read on this thread; the heartbeat part is written by workers).
    qint64 _dialState = DVDialStateDisconnected;
    QDateTime _connectedSince;
    QString _lastEndCause, _lastEndDetail;
    std::optional<DVError> _lastError;
    QDateTime _lastErrorAt;
    nlohmann::ordered_json _clockCheck;
    nlohmann::ordered_json _lastToken;
    mutable std::mutex _heartMutex;
    nlohmann::ordered_json _heart;
};
