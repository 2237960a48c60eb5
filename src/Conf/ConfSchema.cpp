// The file's schema: which JSON key holds which setting, and the rules a file must follow
// to be accepted at all.
#include "Conf.h"
#include "ConfJson.h"

#include "Util/Log.h"

#include <vector>

namespace {

struct Field
{
    // Dotted JSON path: section key, then the keys inside it ("app.website.host").
    const char *path;
    AreaValue &(*member)(Conf &);
};

#define DORVIK_FIELD(jsonPath, expr)                                                                                   \
    Field                                                                                                              \
    {                                                                                                                  \
        jsonPath, [](Conf &c) -> AreaValue & { return c.expr; }                                                        \
    }

// Every required setting, section by section. The JSON keys equal the field names except in
// the account rule, whose keys are hyphenated ("timepin-psk"), while the QR-code section keeps
// the underscore ("timepin_prefix"); the two sections differ on purpose.
const std::vector<Field> &fields()
{
    static const std::vector<Field> all = {
        DORVIK_FIELD("app.taskBarName", app.taskBarName),
        DORVIK_FIELD("app.weichatPic", app.weichatPic),
        DORVIK_FIELD("app.website.name", app.website.name),
        DORVIK_FIELD("app.website.host", app.website.host),
        DORVIK_FIELD("app.password.name", app.password.name),
        DORVIK_FIELD("app.password.host", app.password.host),
        DORVIK_FIELD("heart.interval", heart.interval),
        DORVIK_FIELD("heart.negotiateurl", heart.negotiateurl),
        DORVIK_FIELD("heart.hearbeaturl", heart.hearbeaturl),
        DORVIK_FIELD("heart.key", heart.key),
        DORVIK_FIELD("heart.client_id", heart.client_id),
        DORVIK_FIELD("heart.request_timeout", heart.request_timeout),
        DORVIK_FIELD("heart.response_timeout", heart.response_timeout),
        DORVIK_FIELD("accountrule.order", accountrule.order),
        DORVIK_FIELD("accountrule.timepin-psk", accountrule.timepin_psk),
        DORVIK_FIELD("accountrule.timepin-prefix", accountrule.timepin_prefix),
        DORVIK_FIELD("accountrule.suffix", accountrule.suffix),
        DORVIK_FIELD("logo.image", logo.image),
        DORVIK_FIELD("tab.url", tab.url),
        DORVIK_FIELD("update.host", update.host),
        DORVIK_FIELD("route.version", route.version),
        DORVIK_FIELD("business.host", business.host),
        DORVIK_FIELD("token.host", token.host),
        DORVIK_FIELD("token.path", token.path),
        DORVIK_FIELD("token.user", token.user),
        DORVIK_FIELD("token.pwd", token.pwd),
        DORVIK_FIELD("token.key", token.key),
        DORVIK_FIELD("login.isDynamic", login.isDynamic),
        DORVIK_FIELD("login.isQrcodeEnable", login.isQrcodeEnable),
        DORVIK_FIELD("login.ifQrCodeOnly", login.ifQrCodeOnly),
        DORVIK_FIELD("qrcode.host", qrcode.host),
        DORVIK_FIELD("qrcode.decodekey", qrcode.decodekey),
        DORVIK_FIELD("qrcode.hash_key", qrcode.hash_key),
        DORVIK_FIELD("qrcode.timepin_prefix", qrcode.timepin_prefix),
        DORVIK_FIELD("dynmicpwd.host", dynmicpwd.host),
        DORVIK_FIELD("dynmicpwd.decodeKey", dynmicpwd.decodeKey),
        DORVIK_FIELD("dynmicpwd.encodeKey", dynmicpwd.encodeKey),
        DORVIK_FIELD("sms.host", sms.host),
        DORVIK_FIELD("sms.shareKey", sms.shareKey),
        DORVIK_FIELD("sms.timeout", sms.timeout),
    };
    return all;
}

#undef DORVIK_FIELD

const char *kindName(const ordered_json &v)
{
    switch (v.type()) {
    case ordered_json::value_t::null:
        return "null";
    case ordered_json::value_t::object:
        return "an object";
    case ordered_json::value_t::array:
        return "an array";
    case ordered_json::value_t::string:
        return "a string";
    case ordered_json::value_t::boolean:
        return "a boolean";
    case ordered_json::value_t::binary:
        return "binary data";
    case ordered_json::value_t::discarded:
        return "invalid";
    default:
        return "a number";
    }
}

// Walks one dotted path. Every step must be an object: sections, the link sections inside
// "app", and the area-keyed value at the end. On failure `error` names the first offending
// step, so a file with several faults reports the first one in file order.
const ordered_json *walk(const ordered_json &root, const QString &path, QString *error)
{
    const ordered_json *node = &root;
    QString walked;
    const QStringList keys = path.split(QLatin1Char('.'));
    for (const QString &key : keys) {
        walked = walked.isEmpty() ? key : walked + QLatin1Char('.') + key;
        const auto it = node->find(key.toStdString());
        if (it == node->end()) {
            *error = QStringLiteral("required key \"%1\" is missing").arg(walked);
            return nullptr;
        }
        if (!it->is_object()) {
            *error = QStringLiteral("\"%1\" is %2, an object is expected").arg(walked, QLatin1String(kindName(*it)));
            return nullptr;
        }
        node = &*it;
    }
    return node;
}

} // namespace

const QStringList &Conf::fieldPaths()
{
    static const QStringList paths = [] {
        QStringList list;
        for (const Field &f : fields())
            list << QLatin1String(f.path);
        return list;
    }();
    return paths;
}

const AreaValue *Conf::valueAt(const QString &path) const
{
    for (const Field &f : fields())
        if (path == QLatin1String(f.path))
            return &f.member(const_cast<Conf &>(*this));
    return nullptr;
}

std::unique_ptr<Conf> Conf::fromJson(const QByteArray &plaintext, QString *error)
{
    auto fail = [&](const QString &reason) -> std::unique_ptr<Conf> {
        const QString description = QStringLiteral("configuration rejected: %1").arg(reason);
        if (error)
            *error = description;
        else
            DVLOG() << description;
        return nullptr;
    };

    QString syntaxError;
    const std::optional<ordered_json> parsed = parseOrderedJson(plaintext, &syntaxError);
    if (!parsed)
        return fail(QStringLiteral("the text is not valid JSON (%1)").arg(syntaxError));
    const ordered_json &root = *parsed;
    if (!root.is_object())
        return fail(QStringLiteral("the document is %1, an object is expected").arg(QLatin1String(kindName(root))));

    auto conf = std::make_unique<Conf>();
    for (const Field &f : fields()) {
        QString reason;
        const ordered_json *value = walk(root, QLatin1String(f.path), &reason);
        if (!value)
            return fail(reason);
        f.member(*conf) = AreaValue(*value);
    }
    // The user section is never read from the file: it lives in the preferences.
    conf->user = UserConf();
    return conf;
}
