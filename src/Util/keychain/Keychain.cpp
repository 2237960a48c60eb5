#include "Keychain.h"

#if defined(DORVIK_HAVE_LIBSECRET)
#include "secretservice/SecretServiceKeychain.h"
#endif

namespace {
bool unsupported(DVError *error)
{
    setError(error, DVError(KeychainError::Domain, KeychainError::Unsupported, KeychainError::UnavailableText,
                            QStringLiteral("this build has no keychain")));
    return false;
}
} // namespace

std::shared_ptr<Keychain> Keychain::platform()
{
#if defined(DORVIK_HAVE_LIBSECRET)
    static const std::shared_ptr<Keychain> store = std::make_shared<SecretServiceKeychain>();
#else
    static const std::shared_ptr<Keychain> store = std::make_shared<NullKeychain>();
#endif
    return store;
}

std::optional<QStringList> NullKeychain::accounts(const QString &, DVError *error)
{
    unsupported(error);
    return std::nullopt;
}

std::optional<QString> NullKeychain::password(const QString &, const QString &, DVError *error)
{
    unsupported(error);
    return std::nullopt;
}

bool NullKeychain::save(const QString &, const QString &, const QString &, DVError *error)
{
    return unsupported(error);
}

bool NullKeychain::remove(const QString &, const QString &, DVError *error)
{
    return unsupported(error);
}
