#include "SessionInstance.h"

#include "AppDelegate.h"
#include "LinkTools.h"
#include "baseWindow.h"

#include "App/DVAppHost.h"
#include "App/DorvikBus.h"
#include "Util/Log.h"

SessionInstance::SessionInstance() = default;
SessionInstance::~SessionInstance() = default;

bool SessionInstance::claim()
{
    DorvikBusService::Handlers handlers;
    handlers.activate = [this] {
        if (delegate && delegate->window()) {
            LinkTools::raise(delegate->window());
            DVLOG() << "dorvik: window raised for a second start";
        } else {
            raisePending = true;
        }
    };
    // The controller answers on its own thread; a D-Bus reply may be sent from there.
    const auto fromController = [this](std::function<QString(DVApp &)> work) {
        return [this, work](std::function<void(const QString &)> reply) {
            if (!host)
                return reply(QStringLiteral("{}"));
            host->post([work, reply](DVApp &app) { reply(work(app)); });
        };
    };
    handlers.status = fromController([](DVApp &app) { return QString::fromStdString(app.diagnostics().dump()); });
    handlers.heldInterface = fromController([](DVApp &app) { return app.heldInterface(); });
    handlers.token = [this](std::function<void(const QString &)> reply) {
        if (!host)
            return reply(QStringLiteral("{\"error\": \"starting\"}"));
        host->post([reply](DVApp &app) {
            app.requestToken(
                [reply](const nlohmann::ordered_json &answer) { reply(QString::fromStdString(answer.dump())); });
        });
    };
    service = std::make_unique<DorvikBusService>(handlers);
    QString error;
    bool taken = false;
    if (service->publish(DorvikBusService::AppName, &error, &taken))
        return true;
    service.reset();
    if (!taken) {
        DVLOG() << "dorvik: running without the session bus: " << error;
        return true;
    }
    DVLOG() << "dorvik: already running in this session; bringing its window to the front";
    QString why;
    if (!DorvikBus::call(DorvikBusService::AppName, QStringLiteral("Activate"), 5000, &why))
        DVLOG() << "dorvik: the running instance did not answer: " << why;
    return false;
}

void SessionInstance::windowReady()
{
    if (std::exchange(raisePending, false) && delegate)
        LinkTools::raise(delegate->window());
}
