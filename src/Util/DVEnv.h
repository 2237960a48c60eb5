#pragma once

#include "Clock.h"

#include <QString>

#include <memory>
#include <mutex>
#include <optional>

// Facts about the machine that the servers want to hear (operating system, language,
// browser, memory, processor, the primary Ethernet MAC and IPv4 address) and the times of
// the last completed connection, kept in the preferences so that they survive a restart.
// Process-wide; safe to call from any thread.
class DVEnv
{
public:
    static DVEnv &shared();

    // The link came up now.
    void recordConnUp();
    // The link went down now: stores "lastUpDate", "lastDownDate" and "lastUpLong". Nothing
    // happens when no connection came up since the process started.
    void recordConnDown();

    // The last completed connection: begin and end as date texts of the system locale, and
    // its length in whole seconds; "", "" and 0 when none is stored.
    QString getLastConnectionBeginTime() const;
    QString getLastConnectionEndTime() const;
    quint64 getLastConnectionTimeLong() const;

    // The system's name immediately followed by its version, without a separator
    // ("Debian GNU/Linux12 (bookworm)"); the name alone when no version is known.
    QString getOSType() const;
    // The version text alone ("12 (bookworm)"), or "" when unknown.
    QString getOSVersion() const;
    // Language code of the current locale ("zh", "en"), or "".
    QString getOSLang() const;
    // The installed web browser and its version ("Firefox 115.6.0esr"), or "".
    QString getSafariVersion() const;
    // Physical memory in KiB.
    quint64 getMemorySize() const;
    // The processor's brand text, or "".
    QString getCpuInfo() const;
    // IPv4 address of the primary Ethernet interface, or "error".
    QString getIPAddress() const;
    // MAC address of the primary Ethernet interface as "xx:xx:xx:xx:xx:xx" (lower case);
    // nullopt when there is no such interface.
    std::optional<QString> getPrimaryMacAddress() const;
    std::optional<QString> getMacAddress() const { return getPrimaryMacAddress(); }

    // Kernel name of the interface that stands for the primary Ethernet port, or "".
    QString primaryInterfaceName() const;

    // For tests: where time comes from, and a directory that stands for "/" when reading
    // /sys, /proc, /etc and /usr ("" is the real root).
    void setClock(std::shared_ptr<Clock> clock);
    void setSystemRoot(const QString &root);

private:
    DVEnv();
    QString path(const QString &absolute) const;
    std::shared_ptr<Clock> clock() const;

    mutable std::mutex _mutex;
    std::shared_ptr<Clock> _clock;
    QString _root;
    // Seconds since the epoch, with fractions; 0 until a connection comes up.
    double _connectionBeginTime = 0;
};
