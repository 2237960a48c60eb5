// libsecret first: its GLib headers must not see Qt's keyword macros.
#include <libsecret/secret.h>

#include "SecretServiceKeychain.h"

#include "Util/Log.h"

#include <memory>

namespace {

const char *const kServiceAttribute = "service";
const char *const kAccountAttribute = "account";

const SecretSchema *schema()
{
    static const SecretSchema s = {
        "org.dorvik.GenericPassword",
        SECRET_SCHEMA_NONE,
        {
            {kServiceAttribute, SECRET_SCHEMA_ATTRIBUTE_STRING},
            {kAccountAttribute, SECRET_SCHEMA_ATTRIBUTE_STRING},
            {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING},
        },
        0,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
        nullptr,
    };
    return &s;
}

struct GErrorDeleter
{
    void operator()(GError *e) const { g_error_free(e); }
};
using GErrorPtr = std::unique_ptr<GError, GErrorDeleter>;

struct HashTableDeleter
{
    void operator()(GHashTable *t) const { g_hash_table_unref(t); }
};
using HashTablePtr = std::unique_ptr<GHashTable, HashTableDeleter>;

// Attribute table with copies of the texts; the table owns them.
HashTablePtr attributes(const QString &service, const std::optional<QString> &account = std::nullopt)
{
    HashTablePtr table(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free));
    g_hash_table_insert(table.get(), g_strdup(kServiceAttribute), g_strdup(service.toUtf8().constData()));
    if (account)
        g_hash_table_insert(table.get(), g_strdup(kAccountAttribute), g_strdup(account->toUtf8().constData()));
    return table;
}

// Every failure of the store reaches the caller: without a session bus, with the service
// missing, or with a locked or missing keyring the password would otherwise be lost unseen.
void fail(const char *what, GErrorPtr err, DVError *error)
{
    const QString message = err ? QString::fromUtf8(err->message) : QStringLiteral("unknown failure");
    DVLOG() << "keychain " << what << " failed: " << message;
    QVariantMap info;
    if (err) {
        info.insert(QStringLiteral("GErrorDomain"), QString::fromUtf8(g_quark_to_string(err->domain)));
        info.insert(QStringLiteral("GErrorCode"), err->code);
    }
    setError(error,
             DVError(KeychainError::Domain, KeychainError::Unavailable, KeychainError::UnavailableText, message, info));
}

} // namespace

std::optional<QStringList> SecretServiceKeychain::accounts(const QString &service, DVError *error)
{
    GError *raw = nullptr;
    const HashTablePtr attrs = attributes(service);
    // ALL: every match, not only the first; UNLOCK: a locked item is unlocked (or the
    // attempt fails) instead of being listed without its secret.
    GList *items = secret_password_searchv_sync(
        schema(), attrs.get(), static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | SECRET_SEARCH_UNLOCK), nullptr, &raw);
    if (raw) {
        g_list_free_full(items, g_object_unref);
        fail("search", GErrorPtr(raw), error);
        return std::nullopt;
    }
    QStringList names;
    for (GList *l = items; l; l = l->next) {
        HashTablePtr found(secret_retrievable_get_attributes(SECRET_RETRIEVABLE(l->data)));
        if (!found)
            continue;
        const auto *account = static_cast<const char *>(g_hash_table_lookup(found.get(), kAccountAttribute));
        if (account)
            names.append(QString::fromUtf8(account));
    }
    g_list_free_full(items, g_object_unref);
    return names;
}

std::optional<QString> SecretServiceKeychain::password(const QString &service, const QString &account, DVError *error)
{
    GError *raw = nullptr;
    const HashTablePtr attrs = attributes(service, account);
    gchar *secret = secret_password_lookupv_sync(schema(), attrs.get(), nullptr, &raw);
    if (raw) {
        secret_password_free(secret);
        fail("lookup", GErrorPtr(raw), error);
        return std::nullopt;
    }
    if (!secret)
        return std::nullopt;
    QString result = QString::fromUtf8(secret);
    secret_password_free(secret); // wipes the copy before freeing it
    return result;
}

bool SecretServiceKeychain::save(const QString &service, const QString &account, const QString &password,
                                 DVError *error)
{
    GError *raw = nullptr;
    const HashTablePtr attrs = attributes(service, account);
    const QByteArray label = QStringLiteral("%1 (%2)").arg(service, account).toUtf8();
    QByteArray secret = password.toUtf8();
    // Replaces an item with the same attributes, so a second save updates the password.
    const gboolean ok = secret_password_storev_sync(schema(), attrs.get(), SECRET_COLLECTION_DEFAULT, label.constData(),
                                                    secret.constData(), nullptr, &raw);
    secret.fill('\0');
    if (!ok || raw) {
        fail("store", GErrorPtr(raw), error);
        return false;
    }
    return true;
}

bool SecretServiceKeychain::remove(const QString &service, const QString &account, DVError *error)
{
    GError *raw = nullptr;
    const HashTablePtr attrs = attributes(service, account);
    // False without an error means there was nothing to delete, which is not a failure.
    secret_password_clearv_sync(schema(), attrs.get(), nullptr, &raw);
    if (raw) {
        fail("delete", GErrorPtr(raw), error);
        return false;
    }
    return true;
}
