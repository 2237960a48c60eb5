#include "NMSecretAgent.h"

#include "Util/Log.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>

namespace {

// Overwrites the characters of `text` where they are stored, for every copy that shares that
// storage, then empties it. QString::fill() would not do: on a shared string it first makes a
// private copy and zeroes only that, leaving the password in the buffer the copies share.
void wipe(QString &text)
{
    if (text.data_ptr().isMutable()) {
        auto *chars = const_cast<QChar *>(text.constData());
        volatile char16_t *p = reinterpret_cast<volatile char16_t *>(chars);
        for (qsizetype i = 0; i < text.size(); ++i)
            p[i] = 0;
    }
    text = QString();
}

} // namespace

NMSecretAgent::NMSecretAgent(QObject *parent)
    : QObject(parent)
{
    NMBus::registerTypes();
}

NMSecretAgent::~NMSecretAgent()
{
    wipe(_password);
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
    wipe(_password);
    _uuid = uuid;
    // A buffer of our own (not shared with the caller's string), so that the wipe reaches
    // every copy handed out from it and no other.
    _password = QString(password.constData(), password.size());
}

void NMSecretAgent::forget(const QString &uuid)
{
    if (_uuid != uuid)
        return;
    wipe(_password);
    _uuid.clear();
}

NMSettingsMap NMSecretAgent::secretsFor(const QString &uuid, const QString &settingName) const
{
    NMSettingsMap secrets;
    if (settingName == QLatin1String("pppoe") && holds(uuid))
        secrets[settingName].insert(QStringLiteral("password"), _password);
    return secrets;
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
    NMSettingsMap secrets = fromNetworkManager() ? secretsFor(uuid, settingName) : NMSettingsMap();
    if (secrets.isEmpty()) {
        // Not ours to answer: NetworkManager asks the next agent.
        sendErrorReply(QStringLiteral("org.freedesktop.NetworkManager.SecretAgent.NoSecrets"),
                       QStringLiteral("no secrets for this connection"));
        return {};
    }
    DVLOG() << "secret agent: answering NetworkManager for " << connectionPath.path() << " (" << settingName << ")";
    return secrets;
}

void NMSecretAgent::CancelGetSecrets(const QDBusObjectPath &, const QString &) {}

// Nothing is ever stored: the profile does not keep its password.
void NMSecretAgent::SaveSecrets(const NMSettingsMap &, const QDBusObjectPath &) {}

void NMSecretAgent::DeleteSecrets(const NMSettingsMap &, const QDBusObjectPath &) {}
