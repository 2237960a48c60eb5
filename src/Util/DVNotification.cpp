#include "DVNotification.h"

#include <algorithm>

DVNotificationCenter &DVNotificationCenter::defaultCenter()
{
    static DVNotificationCenter centre;
    return centre;
}

DVNotificationCenter::Token
DVNotificationCenter::addObserverForName(const QString &name, std::shared_ptr<OperationQueue> queue, Handler handler)
{
    std::lock_guard<std::mutex> lock(_mutex);
    const Token token = _next++;
    _entries.push_back(std::make_shared<Entry>(Entry{token, name, std::move(queue), std::move(handler)}));
    return token;
}

void DVNotificationCenter::removeObserver(Token token)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _entries.erase(std::remove_if(_entries.begin(), _entries.end(),
                                  [token](const std::shared_ptr<Entry> &e) { return e->token == token; }),
                   _entries.end());
}

bool DVNotificationCenter::isRegistered(const std::shared_ptr<Entry> &entry)
{
    std::lock_guard<std::mutex> lock(_mutex);
    return std::find(_entries.begin(), _entries.end(), entry) != _entries.end();
}

void DVNotificationCenter::postNotificationName(const QString &name, DVUserInfo userInfo)
{
    std::vector<std::shared_ptr<Entry>> matching;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        for (const auto &e : _entries)
            if (e->name == name)
                matching.push_back(e);
    }
    const auto message =
        std::make_shared<const DVNotificationMessage>(DVNotificationMessage{name, std::move(userInfo)});
    for (const auto &e : matching) {
        if (!e->handler)
            continue;
        if (!e->queue) {
            e->handler(*message);
            continue;
        }
        // An observer removed before its queued delivery runs is skipped: its handler may
        // refer to an object that is gone by then.
        e->queue->addOperationWithBlock([this, e, message] {
            if (isRegistered(e))
                e->handler(*message);
        });
    }
}
