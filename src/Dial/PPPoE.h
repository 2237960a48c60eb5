#pragma once

#include "NetworkInterfaceInfo.h"
#include "PPPoEPlatform.h"

#include "Util/DVError.h"

#include <QString>
#include <QVariantMap>

#include <memory>
#include <optional>
#include <vector>

// Error domain of every dial failure shown to the user.
inline const QString PPPoEErrorDomain = QStringLiteral("PPPoE");

// The application's one PPPoE dial-up service: lists the interfaces a dial can run on,
// creates (or reuses) the service named "dorvik" on the chosen one, starts and stops the
// connection, and reports every status change of the connection on the event bus
// (DVEventIdDialStatus with a DVDialStatusEvent).
//
// All platform work goes through the PPPoEPlatform given at construction. Use the instance
// on one thread (the one with the Qt event loop that receives the status callbacks; the
// application's main thread).
//
// Operations that take `DVError *error` return false (or null) at once, doing nothing, when
// `error` is null: a caller that dials must look at the error.
class PPPoE
{
public:
    explicit PPPoE(std::unique_ptr<PPPoEPlatform> platform);
    ~PPPoE();
    PPPoE(const PPPoE &) = delete;
    PPPoE &operator=(const PPPoE &) = delete;

    // Rebuilds the interface list (wired and wireless interfaces of the current set, active
    // ones first) and keeps it: dial indexes refer to the last list.
    std::vector<NetworkInterfaceInfo> getInterfaceList();
    // Entry `index` of the last list, without reading the list again; nullopt past its end.
    std::optional<NetworkInterfaceInfo> interfaceAtIndex(quint64 index) const;
    std::optional<NetworkInterfaceInfo> getInterfaceInfoWithInterfaceRef(const NetworkInterfaceRef &interfaceRef);
    // Link state of an interface by kernel name.
    bool getStatusOfInterface(const QString &bsdName);

    // The whole dial, on entry `index` of the last list. The entry is taken once, at the
    // start: every later step works on that interface, whatever happens to the list meanwhile.
    // Note: when the start fails and the clean-up that follows succeeds, the result is true
    // with the start's error in `error`; callers look at the error and the status events, not
    // only at the result. A start that fails after the link had begun to come up keeps that
    // connection, so that stopConn() can hang it up.
    bool dialWithUserName(const QString &name, const QString &password, quint64 index, DVError *error);
    bool checkParm(const QString &name, const QString &password, quint64 index, DVError *error);
    NetworkServiceRef findPPPoEService(const PreferencesRef &prefs, DVError *error);
    bool checkStatusOfService(const NetworkServiceRef &service, quint64 index);
    bool removeService(const NetworkServiceRef &service, const PreferencesRef &prefs, DVError *error);
    NetworkServiceRef createPPPoEServiceWithIndex(quint64 index, const PreferencesRef &prefRef, DVError *error);
    bool setService(const NetworkServiceRef &service, const PreferencesRef &prefs, DVError *error);
    NetworkConnectionRef createConnWithService(const NetworkServiceRef &service, DVError *error);
    static QVariantMap createOptionsWithName(const QString &name, const QString &password);
    bool startConnection(const NetworkConnectionRef &connection, const QString &username, const QString &password,
                         DVError *error);

    // Hangs up the connection of the last successful dial; false without one.
    bool stopConn();
    // Whole seconds since the link came up; 0 without a connection.
    quint32 getConnTime();
    // Local IPv4 address(es) of the link, joined without separator; nullopt when unknown.
    std::optional<QString> getIP();
    // MAC text of the interface of the last successful dial.
    QString getMacAddress() const { return _macAddress; }
    // Why the interface at `index` of the last list may be down (a text for the user).
    QString getInterfaceErrorAtIndex(quint64 index);

    // Errors of the "PPPoE" domain: the table's message for `errorId`, with `info` appended
    // when present, and the given failure reason.
    static DVError createErrorWithID(qint64 errorId, const std::optional<QString> &info, const QString &failureReason);
    static DVError createErrorWithID(qint64 errorId, const std::optional<QString> &info);
    // The table's message for an ID; empty for IDs outside the table.
    static QString errorMessage(qint64 errorId);

    // Maps a platform connection status to the dial state of the event bus.
    static qint64 dialStateForStatus(int status);

    PPPoEPlatform &platform() { return *_platform; }

private:
    void connectionStatusChanged(const NetworkConnectionRef &connection, int status);
    bool canReuse(const NetworkServiceRef &service, const NetworkInterfaceInfo &chosen);
    NetworkServiceRef createServiceOn(const NetworkInterfaceInfo &chosen, const PreferencesRef &prefRef,
                                      DVError *error);
    void preferencesChanged(const PreferencesRef &prefs);

    std::unique_ptr<PPPoEPlatform> _platform;
    bool _needUnschedule = false;
    std::vector<NetworkInterfaceInfo> _interfaceInfoArray;
    const QString _connctionName;
    NetworkConnectionRef _connection;
    // Whether the last start reached the platform's start call (a link that was already up
    // before it is not ours to hang up).
    bool _startAttempted = false;
    QString _macAddress;
    PreferencesRef _prefs;
    // Why the preferences session could not be opened (the platform's text), for error 0.
    QString _prefsFailure;
};
