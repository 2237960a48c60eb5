#include "NMSecretAgent.h"

#include "Util/Log.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>

NMSecretAgent::NMSecretAgent(QObject *parent)
    : QObject(parent)
{
    NMBus::registerTypes();
}

NMSecretAgent::~NMSecretAgent()
{
    _password.fill(QLatin1Char('\0'));
    if (!_registeredWith.isEmpty())
        NMBus::call(NMBus::AgentManagerPath, NMBus::AgentManagerInterface, QStringLiteral("Unregister"), {}, 2000);
    if (_exported)
        QDBusConnection::systemBus().unregisterObject(objectPath());
}

bool NMSecretAgent::ensureRegistered(QString *why)
{
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!_exported) {
        if (!bus.registerObject(objectPath(), this, QDBusConnection::ExportAllSlots)) {
            if (why)
                *why = QStringLiteral("the secret agent could not be exported: %1").arg(bus.lastError().message());
            return false;
        }
        _exported = true;
    }
    const QString owner = bus.interface()->serviceOwner(NMBus::Service).value();
    if (!owner.isEmpty() && owner == _registeredWith)
        return true;
    const NMBus::Reply r =
        NMBus::call(NMBus::AgentManagerPath, NMBus::AgentManagerInterface, QStringLiteral("Register"), {identifier()});
    if (!r.ok()) {
        if (why)
            *why = QStringLiteral("NetworkManager refused our secret agent: %1").arg(r.errorText());
        return false;
    }
    _registeredWith = owner;
    return true;
}

void NMSecretAgent::offer(const QString &uuid, const QString &password)
{
    _password.fill(QLatin1Char('\0'));
    _uuid = uuid;
    _password = password;
}

void NMSecretAgent::forget(const QString &uuid)
{
    if (_uuid != uuid)
        return;
    _password.fill(QLatin1Char('\0'));
    _password.clear();
    _uuid.clear();
}

bool NMSecretAgent::fromNetworkManager()
{
    if (!calledFromDBus())
        return false;
    const QString owner = connection().interface()->serviceOwner(NMBus::Service).value();
    return !owner.isEmpty() && message().service() == owner;
}

NMSettingsMap NMSecretAgent::GetSecrets(const NMSettingsMap &conn, const QDBusObjectPath &connectionPath,
                                        const QString &settingName, const QStringList &, uint)
{
    const QString uuid = conn.value(QStringLiteral("connection")).value(QStringLiteral("uuid")).toString();
    if (!fromNetworkManager() || settingName != QLatin1String("pppoe") || !holds(uuid)) {
        // Not ours to answer: NetworkManager asks the next agent.
        sendErrorReply(QStringLiteral("org.freedesktop.NetworkManager.SecretAgent.NoSecrets"),
                       QStringLiteral("no secrets for this connection"));
        return {};
    }
    DVLOG() << "secret agent: answering NetworkManager for " << connectionPath.path() << " (" << settingName << ")";
    NMSettingsMap secrets;
    secrets[settingName].insert(QStringLiteral("password"), _password);
    return secrets;
}

void NMSecretAgent::CancelGetSecrets(const QDBusObjectPath &, const QString &) {}

// Nothing is ever stored: the profile does not keep its password.
void NMSecretAgent::SaveSecrets(const NMSettingsMap &, const QDBusObjectPath &) {}

void NMSecretAgent::DeleteSecrets(const NMSettingsMap &, const QDBusObjectPath &) {}
