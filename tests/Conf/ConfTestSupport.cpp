#include "ConfTestSupport.h"

#include <QFile>
#include <QSettings>

namespace ConfTest {

ordered_json completeConfig()
{
    ordered_json root = ordered_json::object();
    for (const QString &path : Conf::fieldPaths())
        setPath(root, path.toStdString(), {{"default", path.toStdString()}});
    setPath(root, "accountrule.order", {{"default", {"prefix"}}});
    for (const char *path : {"login.isDynamic", "login.isQrcodeEnable", "login.ifQrCodeOnly"})
        setPath(root, path, {{"default", false}});
    setPath(root, "sms.timeout", {{"default", "60"}});
    return root;
}

void setPath(ordered_json &root, const std::string &path, ordered_json value)
{
    ordered_json *node = &root;
    for (const QString &key : QString::fromStdString(path).split(QLatin1Char('.')))
        node = &(*node)[key.toStdString()];
    *node = std::move(value);
}

void erasePath(ordered_json &root, const std::string &path)
{
    const size_t dot = path.rfind('.');
    ordered_json *node = &root;
    if (dot != std::string::npos) {
        for (const QString &key : QString::fromStdString(path.substr(0, dot)).split(QLatin1Char('.')))
            node = &node->at(key.toStdString());
    }
    node->erase(dot == std::string::npos ? path : path.substr(dot + 1));
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
