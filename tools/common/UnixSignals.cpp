#include "UnixSignals.h"

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int g_fds[2] = {-1, -1};

void onSignal(int sig)
{
    const unsigned char b = static_cast<unsigned char>(sig);
    [[maybe_unused]] const ssize_t n = ::write(g_fds[0], &b, 1);
}
} // namespace

UnixSignals::UnixSignals(std::initializer_list<int> sigs, QObject *parent)
    : QObject(parent)
{
    if (g_fds[0] < 0 && ::socketpair(AF_UNIX, SOCK_STREAM, 0, g_fds) != 0)
        return;
    _notifier = new QSocketNotifier(g_fds[1], QSocketNotifier::Read, this);
    connect(_notifier, &QSocketNotifier::activated, this, [this] {
        unsigned char b = 0;
        if (::read(g_fds[1], &b, 1) == 1)
            Q_EMIT received(b);
    });
    for (int s : sigs) {
        struct sigaction sa = {};
        sa.sa_handler = onSignal;
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = SA_RESTART;
        ::sigaction(s, &sa, nullptr);
    }
}

UnixSignals::~UnixSignals() = default;
