#pragma once

#include "NMBus.h"

#include <QDBusContext>
#include <QObject>

// Our secret agent: hands NetworkManager the password of a dial when it asks for the secrets
// of our profile, so that the password never becomes part of a stored profile (the profile
// says "not saved"). The password lives here, in memory, from the start of a dial until the
// link is up or the attempt is over.
class NMSecretAgent : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.NetworkManager.SecretAgent")

public:
    explicit NMSecretAgent(QObject *parent = nullptr);
    ~NMSecretAgent() override;

    // Exports the agent and registers it with NetworkManager (again, if NetworkManager
    // restarted). False with `why` filled when that fails.
    bool ensureRegistered(QString *why);

    // The secret for the profile `uuid` during one dial, in a buffer the agent owns; forget()
    // (or the next offer) overwrites that buffer, including every copy handed out from it.
    void offer(const QString &uuid, const QString &password);
    void forget(const QString &uuid);
    // What GetSecrets answers for the profile and setting: empty when it is not ours.
    NMSettingsMap secretsFor(const QString &uuid, const QString &settingName) const;
    bool holds(const QString &uuid) const { return _uuid == uuid && !_password.isEmpty(); }

    static QString objectPath() { return QStringLiteral("/org/freedesktop/NetworkManager/SecretAgent"); }
    static QString identifier() { return QStringLiteral("org.dorvik.client"); }

public Q_SLOTS:
    NMSettingsMap GetSecrets(const NMSettingsMap &connection, const QDBusObjectPath &connectionPath,
                             const QString &settingName, const QStringList &hints, uint flags);
    void CancelGetSecrets(const QDBusObjectPath &connectionPath, const QString &settingName);
    void SaveSecrets(const NMSettingsMap &connection, const QDBusObjectPath &connectionPath);
    void DeleteSecrets(const NMSettingsMap &connection, const QDBusObjectPath &connectionPath);

private:
    bool fromNetworkManager();

    bool _exported = false;
    QString _registeredWith; // NetworkManager's unique bus name at registration
    QString _uuid;
    QString _password;
};
