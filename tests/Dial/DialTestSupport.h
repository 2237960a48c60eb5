#pragma once

#include "support/LogCapture.h"

#include "Util/DVEvent.h"

#include "support/TestSupport.h"

#include <QObject>
#include <QStringList>

#include <mutex>
#include <vector>

namespace DialTest {

// Collects the dial states fired on the event bus, delivered on the main queue.
class StateLog : public QObject
{
public:
    StateLog()
    {
        DVEvent::shared().addObserver(
            this,
            [this](const DVEventObjectPtr &obj) {
                if (const auto *e = dynamic_cast<const DVDialStatusEvent *>(obj.get())) {
                    states.push_back(e->dialState);
                    if (!e->endCause.isEmpty())
                        causes.push_back(e->endCause);
                }
            },
            DVEventIdDialStatus, OperationQueue::mainQueue());
    }
    ~StateLog() override { DVEvent::shared().removeObserver(this, DVEventIdDialStatus); }
    // Runs the event loop until the last state is `last`.
    bool waitFor(qint64 last, int ms = 5000)
    {
        return TestSupport::spinUntil([&] { return !states.empty() && states.back() == last; }, ms);
    }
    std::vector<qint64> states;
    std::vector<QString> causes; // why each "disconnected" came
};

} // namespace DialTest
