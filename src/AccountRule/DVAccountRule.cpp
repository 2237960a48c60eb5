#include "DVAccountRule.h"

#include "DVRuleException.h"
#include "PINRule.h"
#include "PinCodec.h"
#include "Utf8Buffer.h"
#include "Util/Log.h"

#include <QDateTime>

#include <cstring>

namespace {
constexpr int kPinBufferSize = 13; // 12 characters and the terminator
// Far beyond any name an access server takes. Without a key a time-PIN rule puts the user part
// in front again, doubling the name: a configuration repeating such a rule a few dozen times
// would otherwise ask for gigabytes.
constexpr qsizetype kMaxDialNameLength = 4096;
constexpr int kPinCapacity = 12;
// The V3 encoder never reads more than 8 input bytes with a capacity of 12 characters; 16
// zero-backed bytes cover every declared length.
constexpr int kV3InputSize = 16;
} // namespace

DVAccountRule::DVAccountRule(std::optional<QStringList> rules, std::optional<QString> prefix,
                             std::optional<QString> suffix, std::optional<QString> shareKey, qint64 *timeFlag,
                             std::optional<QString> mac, std::shared_ptr<Clock> clock)
    : _prefix(std::move(prefix))
    , _suffix(std::move(suffix))
    , _rules(std::move(rules))
    , _shareKey(std::move(shareKey))
    , _flag(timeFlag)
    , _mac(std::move(mac))
    , _clock(std::move(clock))
{
    // Our own choice for a missing time pointer: the rules work on a private copy of the
    // current time, and nothing is written back.
    if (!_flag) {
        _ownFlag = nowSecs();
        _flag = &_ownFlag;
    }
}

qint64 DVAccountRule::nowSecs() const
{
    return _clock ? _clock->secsSinceEpoch() : QDateTime::currentSecsSinceEpoch();
}

std::optional<QString> DVAccountRule::getAccountFromName(const std::optional<QString> &name)
{
    _username = name;
    selectRule();
    return _username;
}

void DVAccountRule::selectRule()
{
    if (!_rules)
        return;
    for (const QString &rule : *_rules) {
        if (rule == QLatin1String("timepin"))
            applyTimePinRule();
        else if (rule == QLatin1String("timepinV1"))
            applyTimePinRuleV1();
        else if (rule == QLatin1String("timepinV2"))
            applyTimePinRuleV2();
        else if (rule == QLatin1String("timepinV3"))
            applyTimePinRuleV3();
        else if (rule == QLatin1String("prefix"))
            applyPrefix();
        else if (rule == QLatin1String("suffix"))
            applySuffix();
        if (_username && _username->size() > kMaxDialNameLength)
            throw DVRuleException(QStringLiteral("拨号账号过长"),
                                  QStringLiteral("the dial name grew past %1 characters").arg(kMaxDialNameLength));
    }
}

QStringView DVAccountRule::userPart() const
{
    if (!_username)
        return {};
    const QStringView name(*_username);
    const qsizetype at = name.indexOf(u'@');
    return at < 0 ? name : name.left(at);
}

template<typename Text> void DVAccountRule::putInFront(Text pin)
{
    if (pin.isEmpty())
        return;
    // One allocation for the new name; pin may be a view into the old one.
    QString name;
    name.reserve(pin.size() + (_username ? _username->size() : 0));
    name.append(pin);
    if (_username)
        name.append(*_username);
    _username = std::move(name);
}

void DVAccountRule::applyTimePinRule()
{
    qint64 q = *_flag / 5;
    char pin[8];
    // Without a key the user part itself goes in front (the name then carries it twice).
    if (PINRule::pinInto(_shareKey, userPart(), &q, nowSecs(), pin))
        putInFront(QLatin1String(pin, 8));
    else
        putInFront(userPart());
    // The caller's seconds become the 5-second quantum: that is the dial time kept afterwards.
    *_flag = q;
}

void DVAccountRule::applyTimePinRuleV1()
{
    qint64 q = *_flag / 5;
    char pin[8];
    if (PINRule::pinV1Into(_shareKey, userPart(), &q, nowSecs(), pin))
        putInFront(QLatin1String(pin, 8));
    else
        putInFront(userPart());
    *_flag = q;
}

void DVAccountRule::applyTimePinRuleV2()
{
    const qint64 f = *_flag;
    char out[kPinBufferSize] = {};
    // genpin takes C strings: an embedded NUL ends a text, and the name buffer is cut at "@"
    // in place, which is why it is a private copy.
    Utf8Buffer name(_username ? QStringView(*_username) : QStringView());
    const Utf8Buffer key(_shareKey ? QStringView(*_shareKey) : QStringView());
    const Utf8Buffer mac(_mac ? QStringView(*_mac) : QStringView());
    const int rc = genpin(out, _username ? name.data() : nullptr, _shareKey ? key.data() : nullptr,
                          _mac ? mac.data() : nullptr, static_cast<quint64>(f));
    if (rc != 0) {
        DVLOG() << "fatal error while, gen pinv2 faild.";
        throw DVRuleException(QStringLiteral("生成pin时错误"), QStringLiteral("fatal error while, gen pinv2 faild"));
    }
    putInFront(QLatin1String(out));
    *_flag = f;
}

void DVAccountRule::applyTimePinRuleV3()
{
    qint64 q = *_flag / 5;
    unsigned char input[kV3InputSize] = {};
    char pin[8];
    if (PINRule::pinV1Into(_shareKey, userPart(), &q, nowSecs(), pin)) {
        std::memcpy(input, pin, sizeof pin);
    } else {
        // Without a key the user part is what gets encoded, as UTF-8 (our choice for
        // non-ASCII names).
        const Utf8Buffer user(userPart());
        std::memcpy(input, user.data(), static_cast<size_t>(qMin<qsizetype>(user.size(), kV3InputSize)));
    }
    // The encoder is told to read as many bytes as the whole current name has characters
    // (UTF-16 units), not the PIN's length; bytes past the PIN read as zero.
    const qsizetype declared = _username ? _username->size() : 0;
    char out[kPinBufferSize] = {};
    customBase64Encode(input, static_cast<size_t>(qMin<qsizetype>(declared, kV3InputSize)), out, kPinCapacity);
    putInFront(QLatin1String(out));
    *_flag = q;
}

void DVAccountRule::applyPrefix()
{
    _username = _prefix.value_or(QString()) + _username.value_or(QString());
}

void DVAccountRule::applySuffix()
{
    _username = _username.value_or(QString()) + _suffix.value_or(QString());
}
