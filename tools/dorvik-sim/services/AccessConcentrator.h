#pragma once

#include "SimService.h"

#include <QHttpServer>

#include <memory>

// A simulated PPPoE access concentrator. The simulated dialing back-end asks it whether a dial
// name and password may log in, as pppd's authentication would ask a real access server:
//
//   POST /pppoe/auth  {"dialName": "...", "password": "...", "mac": "..."}
//   → 200 {"accepted": true, "account": "...", "area": "..."} or 403 {"accepted": false, "reason": "..."}
//
// A dial name is accepted only when it is what some area's account rule gives for a known
// account (with the right password) at a moment within a few minutes of now; anything else
// is refused. Its time is the simulator's (see --clock-offset). Scenarios ("ac"):
//   "refuse-all"   refuses every dial;
//   "drop:S:K"     ends every session S seconds after it was accepted (the accepted answer says
//                  {"sessionSeconds": S}, and the simulated link hangs up then, as a PADT would
//                  end it), and after K accepted dials refuses every further one ("account
//                  locked"): a link that drops and then cannot come back.
class AccessConcentrator : public SimService
{
    Q_OBJECT
public:
    // How far from now (seconds, both ways) a dial time may lie.
    static constexpr qint64 WindowSecs = 180;

    bool start(const SimOptions &options) override;
    quint16 port() const override { return _port; }
    nlohmann::ordered_json stats() const override;

    // The decision itself, for tests: the area that matched, or nullopt with `reason`.
    std::optional<QString> authenticate(const QString &dialName, const QString &password, const QString &mac,
                                        qint64 now, QString *reason) const;

private:
    // "drop:S:K" as (S, K); nullopt for any other scenario.
    std::optional<std::pair<int, int>> dropScenario() const;

    SimOptions _options;
    std::unique_ptr<QHttpServer> _server;
    quint16 _port = 0;
    int _accepted = 0;
    int _refused = 0;
    int _malformed = 0;
    int _dropped = 0;
};
