#pragma once

#include "Util/DVError.h"

#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

// The platform's store of generic passwords, one item per (service, account) pair with the
// password as its secret. Every operation is synchronous. A store that cannot be reached
// (no session, locked or missing keyring) fails with a DVError in the "Keychain" domain, so
// the caller can tell "nothing stored" from "could not look".
class Keychain
{
public:
    virtual ~Keychain() = default;

    // Whether this build has a real store at all.
    virtual bool isAvailable() const = 0;

    // Account names stored under the service, in the order the store returns them; an empty
    // list when there are none, nullopt on failure.
    virtual std::optional<QStringList> accounts(const QString &service, DVError *error) = 0;
    // The password of one account; nullopt when there is no such item (error untouched) or
    // on failure (error set).
    virtual std::optional<QString> password(const QString &service, const QString &account, DVError *error) = 0;
    // Creates the item or replaces the password of an existing one.
    virtual bool save(const QString &service, const QString &account, const QString &password, DVError *error) = 0;
    // Deletes the item; deleting an item that does not exist succeeds.
    virtual bool remove(const QString &service, const QString &account, DVError *error) = 0;

    // The store of this platform, or a do-nothing store where there is none.
    static std::shared_ptr<Keychain> platform();
};

namespace KeychainError {
inline const QString Domain = QStringLiteral("Keychain");
enum Code : qint64 {
    Unavailable = 1, // no session, no service, locked or missing keyring
    Failed = 2,      // the store answered but refused the operation
    Unsupported = 3, // this build has no keychain
};
// What the user reads when the store cannot be used.
inline const QString UnavailableText = QStringLiteral("钥匙串不可用");
inline const QString FailedText = QStringLiteral("钥匙串操作失败");
} // namespace KeychainError

// The store of a build without a keychain: every operation fails with
// KeychainError::Unsupported, so nothing is ever silently dropped.
class NullKeychain : public Keychain
{
public:
    bool isAvailable() const override { return false; }
    std::optional<QStringList> accounts(const QString &service, DVError *error) override;
    std::optional<QString> password(const QString &service, const QString &account, DVError *error) override;
    bool save(const QString &service, const QString &account, const QString &password, DVError *error) override;
    bool remove(const QString &service, const QString &account, DVError *error) override;
};
