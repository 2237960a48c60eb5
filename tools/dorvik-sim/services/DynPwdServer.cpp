#include "DynPwdServer.h"

#include "Util/Crypto.h"

#include <QRegularExpression>
#include <QStringDecoder>

#include <cstdio>

using ordered_json = nlohmann::ordered_json;

namespace {

// A key text's 16 key bytes: UTF-8, cut or zero-padded.
QByteArray keyBlock(const QString &key)
{
    QByteArray block = key.toUtf8().left(16);
    block.append(QByteArray(16 - block.size(), '\0'));
    return block;
}

} // namespace

bool DynPwdServer::start(const SimOptions &options)
{
    _scenario = options.scenario(QStringLiteral("dynpwd"));
    if (_scenario.isEmpty())
        _scenario = QStringLiteral("ok");
    _requestKey = options.setting("dynmicpwd", "encodeKey").value_or(QString());
    _replyKey = options.setting("dynmicpwd", "decodeKey").value_or(QString());
    _accounts = options.accounts;
    return listen("dynpwd", options.listenPort(options.setting("dynmicpwd", "host"), 0));
}

QByteArray DynPwdServer::seal(const QByteArray &plain) const
{
    const QByteArray cipher =
        Crypto::aes128(plain, keyBlock(_replyKey), {}, Crypto::Op::Encrypt).value_or(QByteArray());
    return QByteArray(4, '\0') + cipher;
}

QByteArray DynPwdServer::answer(const QByteArray &request)
{
    ++_requests;
    if (request.size() < 4 + 16 || (request.size() - 4) % 16 != 0 || request.left(4) != QByteArray(4, '\0')) {
        ++_badHeader;
        _lastProblem = QStringLiteral("bad header or length: %1").arg(QString::fromLatin1(request.left(8).toHex()));
        return {};
    }
    const auto plain = Crypto::aes128(request.mid(4), keyBlock(_requestKey), {}, Crypto::Op::Decrypt);
    if (!plain) {
        ++_undecryptable;
        _lastProblem = QStringLiteral("request does not decrypt with the request key");
        return {};
    }
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(*plain);
    static const QRegularExpression form(
        QStringLiteral("^TEL=(.*)&SEQ=([0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12})$"),
        QRegularExpression::DotMatchesEverythingOption);
    const auto match = form.match(text);
    if (decoder.hasError() || !match.hasMatch()) {
        ++_badText;
        _lastProblem = QStringLiteral("unexpected request text: %1").arg(text.left(100));
        return {};
    }
    ++_accepted;
    _lastTel = match.captured(1);
    _lastSeq = match.captured(2);
    _seqs.insert(_lastSeq);

    if (_scenario == QLatin1String("silence"))
        return {};
    if (_scenario == QLatin1String("garbage"))
        return QByteArray(4, '\0') + QByteArrayLiteral("\x13\x37 not a ciphertext");
    if (_scenario == QLatin1String("short"))
        return QByteArrayLiteral("\x00\x01");
    if (_scenario == QLatin1String("other"))
        return seal("RESULT=PENDING");
    if (_scenario == QLatin1String("error-noinfo"))
        return seal("RESULT=ERROR");
    const bool known = _accounts.empty() || _accounts.count(_lastTel) > 0;
    if (_scenario == QLatin1String("error") || !known)
        return seal(QByteArray("RESULT=ERROR&") + errorInfo());
    return seal("RESULT=SUCCESS");
}

ordered_json DynPwdServer::stats() const
{
    ordered_json s = ordered_json::object();
    s["scenario"] = _scenario.toStdString();
    s["requests"] = _requests;
    s["badHeader"] = _badHeader;
    s["undecryptable"] = _undecryptable;
    s["badText"] = _badText;
    s["accepted"] = _accepted;
    s["uniqueSeqs"] = _seqs.size();
    s["replies"] = _replies;
    s["lastTel"] = _lastTel.toStdString();
    s["lastSeq"] = _lastSeq.toStdString();
    if (!_lastProblem.isEmpty())
        s["lastProblem"] = _lastProblem.toStdString();
    return s;
}
