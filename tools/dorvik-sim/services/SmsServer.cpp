#include "SmsServer.h"

#include "Util/Crypto.h"

#include <QRegularExpression>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <cstdio>

using ordered_json = nlohmann::ordered_json;

namespace {

QByteArray returnInfo(const std::vector<std::pair<QString, QString>> &attributes)
{
    QByteArray out;
    QXmlStreamWriter writer(&out);
    writer.writeStartDocument();
    writer.writeStartElement(QStringLiteral("op"));
    writer.writeEmptyElement(QStringLiteral("returnInfo"));
    for (const auto &[name, value] : attributes)
        writer.writeAttribute(name, value);
    writer.writeEndElement();
    writer.writeEndDocument();
    return out;
}

QString md5Hex(const QString &text)
{
    return QString::fromLatin1(Crypto::md5(text.toUtf8()).toHex());
}

} // namespace

bool SmsServer::start(const SimOptions &options)
{
    if (!setScenario(options.scenario(QStringLiteral("sms"))))
        std::fprintf(stderr, "sms: unknown scenario %s\n", qUtf8Printable(options.scenario(QStringLiteral("sms"))));
    _shareKey = options.setting("sms", "shareKey").value_or(QString());
    return listen("sms", options.listenPort(options.setting("sms", "host"), 0));
}

bool SmsServer::setScenario(const QString &name)
{
    // "code=<digits>" keeps the code out of the scenario's name, so that statistics never show it.
    if (name.startsWith(QStringLiteral("code="))) {
        _acceptedCode = name.mid(5);
        _scenario = QStringLiteral("code");
        return true;
    }
    static const QStringList known = {QString(),
                                      QStringLiteral("none"),
                                      QStringLiteral("code"),
                                      QStringLiteral("code-error"),
                                      QStringLiteral("silence"),
                                      QStringLiteral("garbage")};
    if (!known.contains(name))
        return false;
    _scenario = name;
    return true;
}

QByteArray SmsServer::answer(const QByteArray &request)
{
    // Read "<op><child a=... /></op>": the child's name and its attributes in document order.
    QXmlStreamReader reader(request);
    QString child;
    std::vector<std::pair<QString, QString>> attributes;
    int depth = 0;
    bool wellFormed = true;
    while (!reader.atEnd()) {
        const auto token = reader.readNext();
        if (token == QXmlStreamReader::StartElement) {
            ++depth;
            if (depth == 1 && reader.name() != QLatin1String("op"))
                wellFormed = false;
            else if (depth == 2 && child.isEmpty()) {
                child = reader.name().toString();
                for (const auto &a : reader.attributes())
                    attributes.emplace_back(a.name().toString(), a.value().toString());
            } else if (depth >= 2)
                wellFormed = false; // a second child, or a grandchild
        } else if (token == QXmlStreamReader::EndElement) {
            --depth;
        } else if (token == QXmlStreamReader::Characters && !reader.isWhitespace()) {
            wellFormed = false;
        }
    }
    if (reader.hasError())
        wellFormed = false;

    QStringList names;
    for (const auto &a : attributes)
        names << a.first;
    const auto value = [&attributes](const QString &name) {
        for (const auto &a : attributes)
            if (a.first == name)
                return a.second;
        return QString();
    };
    const bool isRequest = child == QLatin1String("accountInfo");
    const bool isCheck = child == QLatin1String("validateAccount");
    const QStringList expected =
        isRequest ? QStringList{QStringLiteral("login"), QStringLiteral("checkCode"), QStringLiteral("id")}
                  : QStringList{QStringLiteral("login"), QStringLiteral("checkCode"), QStringLiteral("validateCode"),
                                QStringLiteral("id")};
    static const QRegularExpression number(QStringLiteral("^[0-9]+$"));
    if (!wellFormed || !(isRequest || isCheck) || names != expected
        || !number.match(value(QStringLiteral("id"))).hasMatch()) {
        ++_malformed;
        _lastProblem = QStringLiteral("malformed request: %1").arg(QString::fromUtf8(request.left(200)));
        return {};
    }

    _last = ordered_json::object();
    _last["element"] = child.toStdString();
    _last["attributes"] = names.join(QLatin1Char(',')).toStdString();
    for (const auto &a : attributes)
        _last[a.first.toStdString()] = a.second.toStdString();
    if (isRequest)
        ++_requests;
    else
        ++_checks;

    if (value(QStringLiteral("checkCode")) != md5Hex(value(QStringLiteral("login")) + _shareKey)) {
        ++_badCheckCode;
        _lastProblem = QStringLiteral("bad check code for %1").arg(value(QStringLiteral("login")));
        return returnInfo({{QStringLiteral("isBind"), QStringLiteral("N")},
                           {QStringLiteral("resCode"), QStringLiteral("ERROR001")},
                           {QStringLiteral("titleMsg"), QStringLiteral("提示")},
                           {QStringLiteral("resMsg"), QStringLiteral("校验码错误")},
                           {QStringLiteral("sendSuccess"), QStringLiteral("N")}});
    }
    if (isCheck) {
        if (value(QStringLiteral("validateCode")) == _acceptedCode && _scenario == QLatin1String("code"))
            ++_verified;
        else
            ++_wrongCodes;
    }

    if (_scenario == QLatin1String("silence"))
        return {};
    if (_scenario == QLatin1String("garbage"))
        return QByteArrayLiteral("\x01\x02 this is <not xml");

    const auto withCode = _scenario == QLatin1String("code") || _scenario == QLatin1String("code-error");
    if (isRequest) {
        if (!withCode)
            return returnInfo({{QStringLiteral("isBind"), QStringLiteral("N")},
                               {QStringLiteral("resCode"), QStringLiteral("OK")},
                               {QStringLiteral("titleMsg"), QStringLiteral("提示")},
                               {QStringLiteral("resMsg"), QStringLiteral("无需短信验证")},
                               {QStringLiteral("sendSuccess"), QStringLiteral("N")}});
        return returnInfo({{QStringLiteral("isBind"), QStringLiteral("Y")},
                           {QStringLiteral("resCode"), QStringLiteral("OK")},
                           {QStringLiteral("titleMsg"), QStringLiteral("短信验证")},
                           {QStringLiteral("resMsg"), QStringLiteral("验证码已发送到您的手机")},
                           {QStringLiteral("sendSuccess"), QStringLiteral("Y")}});
    }
    if (_scenario == QLatin1String("code-error"))
        return returnInfo({{QStringLiteral("isBind"), QStringLiteral("Y")},
                           {QStringLiteral("resCode"), QStringLiteral("ERROR007")},
                           {QStringLiteral("sendSuccess"), QStringLiteral("N")}});
    if (_scenario == QLatin1String("code") && value(QStringLiteral("validateCode")) != _acceptedCode)
        return returnInfo({{QStringLiteral("isBind"), QStringLiteral("Y")},
                           {QStringLiteral("resCode"), QStringLiteral("ERROR007")},
                           {QStringLiteral("titleMsg"), QStringLiteral("短信验证")},
                           {QStringLiteral("resMsg"), QStringLiteral("验证码不正确")},
                           {QStringLiteral("sendSuccess"), QStringLiteral("N")}});
    return returnInfo({{QStringLiteral("isBind"), QStringLiteral("Y")},
                       {QStringLiteral("resCode"), QStringLiteral("OK")},
                       {QStringLiteral("titleMsg"), QStringLiteral("短信验证")},
                       {QStringLiteral("resMsg"), QStringLiteral("验证成功")},
                       {QStringLiteral("sendSuccess"), QStringLiteral("N")}});
}

ordered_json SmsServer::stats() const
{
    ordered_json s = ordered_json::object();
    s["scenario"] = (_scenario.isEmpty() ? QStringLiteral("none") : _scenario).toStdString();
    s["requests"] = _requests;
    s["checks"] = _checks;
    s["verified"] = _verified;
    s["wrongCodes"] = _wrongCodes;
    s["badCheckCode"] = _badCheckCode;
    s["malformed"] = _malformed;
    s["replies"] = _replies;
    s["last"] = _last;
    if (!_lastProblem.isEmpty())
        s["lastProblem"] = _lastProblem.toStdString();
    return s;
}
