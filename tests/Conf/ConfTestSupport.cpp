#include "ConfTestSupport.h"

#include <QFile>
#include <QSettings>

namespace ConfTest {

const std::vector<std::string> kAllPaths = {
    "app.taskBarName",
    "app.weichatPic",
    "app.website.name",
    "app.website.host",
    "app.password.name",
    "app.password.host",
    "heart.interval",
    "heart.negotiateurl",
    "heart.hearbeaturl",
    "heart.key",
    "heart.client_id",
    "heart.request_timeout",
    "heart.response_timeout",
    "accountrule.order",
    "accountrule.timepin-psk",
    "accountrule.timepin-prefix",
    "accountrule.suffix",
    "logo.image",
    "tab.url",
    "update.host",
    "route.version",
    "business.host",
    "token.host",
    "token.path",
    "token.user",
    "token.pwd",
    "token.key",
    "login.isDynamic",
    "login.isQrcodeEnable",
    "login.ifQrCodeOnly",
    "qrcode.host",
    "qrcode.decodekey",
    "qrcode.hash_key",
    "qrcode.timepin_prefix",
    "dynmicpwd.host",
    "dynmicpwd.decodeKey",
    "dynmicpwd.encodeKey",
    "sms.host",
    "sms.shareKey",
    "sms.timeout",
};

namespace {
std::vector<std::string> split(const std::string &path)
{
    std::vector<std::string> keys;
    size_t start = 0;
    for (size_t dot; (dot = path.find('.', start)) != std::string::npos; start = dot + 1)
        keys.push_back(path.substr(start, dot - start));
    keys.push_back(path.substr(start));
    return keys;
}

} // namespace

ordered_json completeConfig()
{
    ordered_json root = ordered_json::object();
    for (const std::string &path : kAllPaths)
        setPath(root, path, {{"default", path}});
    setPath(root, "accountrule.order", {{"default", {"prefix"}}});
    setPath(root, "login.isDynamic", {{"default", false}});
    setPath(root, "login.isQrcodeEnable", {{"default", false}});
    setPath(root, "login.ifQrCodeOnly", {{"default", false}});
    setPath(root, "sms.timeout", {{"default", "60"}});
    return root;
}

void setPath(ordered_json &root, const std::string &path, ordered_json value)
{
    ordered_json *node = &root;
    for (const std::string &key : split(path))
        node = &(*node)[key];
    *node = std::move(value);
}

void erasePath(ordered_json &root, const std::string &path)
{
    std::vector<std::string> keys = split(path);
    const std::string last = keys.back();
    keys.pop_back();
    ordered_json *node = &root;
    for (const std::string &key : keys)
        node = &node->at(key);
    node->erase(last);
}

std::unique_ptr<Conf> load(const ordered_json &root)
{
    return Conf::fromJson(QByteArray::fromStdString(root.dump()));
}

ordered_json shippedSource()
{
    QFile file(QStringLiteral(DORVIK_SYSTEM_JSON_SOURCE));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray text = file.readAll();
    return ordered_json::parse(text.constBegin(), text.constEnd());
}

void resetPreferences()
{
    QSettings s(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("dorvik"), QStringLiteral("dorvik"));
    s.clear();
    s.sync();
}

} // namespace ConfTest
