#pragma once

#include "Util/Clock.h"

#include <QString>
#include <QStringList>
#include <QStringView>
#include <QtGlobal>

#include <memory>
#include <optional>

// Turns the typed account name into the dial name that the access servers expect, by applying
// the configured rules in order: "timepin", "timepinV1", "timepinV2", "timepinV3", "prefix",
// "suffix" (exact, case-sensitive names; unknown ones are skipped, repeats apply again).
// Built fresh for each dial and used once.
//
// The time value is borrowed, in/out: seconds on entry; the time-PIN rules leave their own
// time unit in it ("timepin" and "timepinV3" the 5-second quantum, "timepinV1" the quantum the
// generator used, "timepinV2" the seconds unchanged). The caller keeps what it finds there as
// the dial time. A rule that cannot produce its part throws DVRuleException.
class DVAccountRule
{
public:
    // Nil values are stored as they are. clock: the time source of the PIN generators; null
    // means the system clock. A null timeFlag makes the rules work on the current time without
    // writing anything back.
    DVAccountRule(std::optional<QStringList> rules, std::optional<QString> prefix, std::optional<QString> suffix,
                  std::optional<QString> shareKey, qint64 *timeFlag, std::optional<QString> mac,
                  std::shared_ptr<Clock> clock = nullptr);

    // Not copyable: the time pointer may point into the object itself.
    DVAccountRule(const DVAccountRule &) = delete;
    DVAccountRule &operator=(const DVAccountRule &) = delete;

    // Runs the rules over name and returns the dial name. Throws DVRuleException when a rule
    // fails (then no dial name exists).
    std::optional<QString> getAccountFromName(const std::optional<QString> &name);

    void selectRule();
    void applyTimePinRule();
    void applyTimePinRuleV1();
    void applyTimePinRuleV2();
    void applyTimePinRuleV3();
    void applyPrefix();
    void applySuffix();

    const std::optional<QString> &username() const { return _username; }
    const std::optional<QString> &prefix() const { return _prefix; }
    const std::optional<QString> &suffix() const { return _suffix; }
    const std::optional<QStringList> &rules() const { return _rules; }
    const std::optional<QString> &shareKey() const { return _shareKey; }
    qint64 *flag() const { return _flag; }
    const std::optional<QString> &mac() const { return _mac; }

private:
    qint64 nowSecs() const;
    QStringView userPart() const;
    template<typename Text> void putInFront(Text pin);

    std::optional<QString> _username;
    std::optional<QString> _prefix;
    std::optional<QString> _suffix;
    std::optional<QStringList> _rules;
    std::optional<QString> _shareKey;
    qint64 *_flag = nullptr;
    std::optional<QString> _mac;
    std::shared_ptr<Clock> _clock;
    qint64 _ownFlag = 0;
};
