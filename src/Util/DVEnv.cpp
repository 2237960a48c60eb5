#include "DVEnv.h"

#include "Log.h"
#include "Util/UserDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>

#include <optional>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>

// Where the machine facts come from on Linux. Every source is decided here and nowhere else.
//
// - Primary Ethernet interface (the one whose MAC and IPv4 address are reported):
//   the first interface in name order under /sys/class/net that is Ethernet (type 1), has a
//   "device" link (a physical adapter), and has no "wireless" or "phy80211" entry. When no
//   physical one exists (virtual machines, containers), the first Ethernet interface in name
//   order that is neither wireless, a bridge nor the loopback. None: no MAC, IPv4 "error".
// - MAC address: /sys/class/net/<if>/address, written "%02x:%02x:%02x:%02x:%02x:%02x".
// - Operating system: /etc/os-release (then /usr/lib/os-release). The name is NAME; the
//   version is VERSION, else VERSION_ID. Without the file the name is "Linux" and the
//   version the kernel release (/proc/sys/kernel/osrelease). "OSType" is name and version
//   with no separator, as the registration report wants it.
// - Browser version: never by starting a browser. Firefox's application.ini ("Version=")
//   in the usual install directories gives "Firefox <version>"; else the installed package
//   of Firefox ESR, Firefox, Chromium or Google Chrome in the dpkg database gives "<Name>
//   <version>"; else "".
// - Memory: MemTotal of /proc/meminfo (already KiB). Processor: the first "model name" of
//   /proc/cpuinfo (x86), else "Hardware" or "Processor" (ARM), else "".
// - Language: the language code of the system locale; "" for the C/POSIX locale.

namespace {

QString readText(const QString &file)
{
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(f.readAll());
}

// KEY=value and KEY="value" lines.
QString shellValue(const QString &text, const QString &key)
{
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        if (!line.startsWith(key + QLatin1Char('=')))
            continue;
        QString v = line.mid(key.size() + 1).trimmed();
        if (v.size() >= 2 && (v.startsWith(QLatin1Char('"')) || v.startsWith(QLatin1Char('\''))) && v.endsWith(v[0]))
            v = v.mid(1, v.size() - 2);
        return v;
    }
    return {};
}

// "key : value" lines (/proc/cpuinfo, /proc/meminfo).
QString colonValue(const QString &text, const QString &key)
{
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        const int colon = line.indexOf(QLatin1Char(':'));
        if (colon > 0 && line.left(colon).trimmed() == key)
            return line.mid(colon + 1).trimmed();
    }
    return {};
}

} // namespace

DVEnv &DVEnv::shared()
{
    static DVEnv env;
    return env;
}

DVEnv::DVEnv()
    : _clock(Clock::system())
{}

void DVEnv::setClock(std::shared_ptr<Clock> clock)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _clock = clock ? std::move(clock) : Clock::system();
}

void DVEnv::setSystemRoot(const QString &root)
{
    std::lock_guard<std::mutex> lock(_mutex);
    _root = root;
}

std::shared_ptr<Clock> DVEnv::clock() const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _clock;
}

QString DVEnv::path(const QString &absolute) const
{
    std::lock_guard<std::mutex> lock(_mutex);
    return _root + absolute;
}

void DVEnv::recordConnUp()
{
    const double now = double(clock()->now().toMSecsSinceEpoch()) / 1000.0;
    std::lock_guard<std::mutex> lock(_mutex);
    _connectionBeginTime = now;
}

void DVEnv::recordConnDown()
{
    double begin = 0;
    {
        std::lock_guard<std::mutex> lock(_mutex);
        begin = _connectionBeginTime;
    }
    if (begin == 0)
        return;
    const QDateTime now = clock()->now();
    const QDateTime beginMoment = QDateTime::fromMSecsSinceEpoch(qint64(begin * 1000.0));
    const QLocale locale = QLocale::system();
    UserDefaults::saveValue(locale.toString(beginMoment.toLocalTime(), QLocale::LongFormat), PrefKey::lastUpDate);
    UserDefaults::saveValue(locale.toString(now.toLocalTime(), QLocale::LongFormat), PrefKey::lastDownDate);
    UserDefaults::saveValue(double(now.toMSecsSinceEpoch()) / 1000.0 - begin, PrefKey::lastUpLong);
    // The begin time stays: the next recordConnUp() replaces it.
}

QString DVEnv::getLastConnectionBeginTime() const
{
    const QVariant v = UserDefaults::loadValueForKey(PrefKey::lastUpDate);
    return v.isValid() ? v.toString() : QString(QLatin1String(""));
}

QString DVEnv::getLastConnectionEndTime() const
{
    const QVariant v = UserDefaults::loadValueForKey(PrefKey::lastDownDate);
    return v.isValid() ? v.toString() : QString(QLatin1String(""));
}

quint64 DVEnv::getLastConnectionTimeLong() const
{
    const QVariant v = UserDefaults::loadValueForKey(PrefKey::lastUpLong);
    if (!v.isValid())
        return 0;
    bool ok = false;
    const double secs = v.toDouble(&ok);
    return ok && secs > 0 ? quint64(secs) : 0;
}

QString DVEnv::getOSType() const
{
    QString text = shellValue(readText(path(QStringLiteral("/etc/os-release"))), QStringLiteral("NAME"));
    if (text.isEmpty())
        text = shellValue(readText(path(QStringLiteral("/usr/lib/os-release"))), QStringLiteral("NAME"));
    if (text.isEmpty())
        text = QStringLiteral("Linux");
    return text + getOSVersion();
}

QString DVEnv::getOSVersion() const
{
    for (const QString &file : {QStringLiteral("/etc/os-release"), QStringLiteral("/usr/lib/os-release")}) {
        const QString text = readText(path(file));
        if (text.isEmpty())
            continue;
        QString version = shellValue(text, QStringLiteral("VERSION"));
        if (version.isEmpty())
            version = shellValue(text, QStringLiteral("VERSION_ID"));
        if (!version.isEmpty())
            return version;
        // A rolling distribution names no version: fall back to the kernel.
        break;
    }
    return readText(path(QStringLiteral("/proc/sys/kernel/osrelease"))).trimmed();
}

QString DVEnv::getOSLang() const
{
    const QLocale::Language language = QLocale::system().language();
    if (language == QLocale::C || language == QLocale::AnyLanguage)
        return QString(QLatin1String(""));
    return QLocale::languageToCode(language);
}

QString DVEnv::getSafariVersion() const
{
    for (const QString &dir : {QStringLiteral("/usr/lib/firefox-esr"), QStringLiteral("/usr/lib/firefox"),
                               QStringLiteral("/usr/lib64/firefox"), QStringLiteral("/opt/firefox")}) {
        const QString version =
            shellValue(readText(path(dir + QStringLiteral("/application.ini"))), QStringLiteral("Version"));
        if (!version.isEmpty())
            return QStringLiteral("Firefox ") + version;
    }
    // dpkg's status file: stanzas separated by blank lines. It is read a line at a time and
    // only three fields of a stanza are kept: the whole database (a megabyte and more) read
    // into one string and split stanza by stanza took some 8 MB and half a million allocations
    // on every registration, and the allocator's heaps kept growing from it, by more than a
    // megabyte over a day of redials.
    const struct
    {
        const char *package;
        const char *name;
    } browsers[] = {{"firefox-esr", "Firefox"},
                    {"firefox", "Firefox"},
                    {"chromium", "Chromium"},
                    {"google-chrome-stable", "Chrome"}};
    constexpr int kBrowsers = int(sizeof(browsers) / sizeof(browsers[0]));
    QString found[kBrowsers]; // the first installed version of each, in the order above
    QFile status(path(QStringLiteral("/var/lib/dpkg/status")));
    if (status.open(QIODevice::ReadOnly)) {
        // The first Package, Status and Version line of the stanza being read (an empty
        // value counts as read: later lines of the same key do not replace it).
        QByteArray package, state, version;
        bool seen[3] = {false, false, false};
        const auto endStanza = [&] {
            for (int i = 0; seen[0] && i < kBrowsers; ++i) {
                if (package != browsers[i].package || !found[i].isEmpty())
                    continue;
                if (state.endsWith("installed") && !state.contains("not-installed") && !version.isEmpty())
                    found[i] = QString::fromUtf8(version);
            }
            package.clear();
            state.clear();
            version.clear();
            seen[0] = seen[1] = seen[2] = false;
        };
        while (!status.atEnd()) {
            QByteArray line = status.readLine();
            if (line.endsWith('\n'))
                line.chop(1);
            if (line.isEmpty()) {
                endStanza();
                continue;
            }
            const int colon = int(line.indexOf(':'));
            if (colon <= 0)
                continue;
            const QByteArray key = line.left(colon).trimmed();
            const int slot = key == "Package" ? 0 : key == "Status" ? 1 : key == "Version" ? 2 : -1;
            if (slot < 0 || seen[slot])
                continue;
            seen[slot] = true;
            QByteArray *const value[3] = {&package, &state, &version};
            *value[slot] = line.mid(colon + 1).trimmed();
        }
        endStanza();
    }
    for (int i = 0; i < kBrowsers; ++i) {
        if (!found[i].isEmpty())
            return QLatin1String(browsers[i].name) + QLatin1Char(' ') + found[i];
    }
    return QString(QLatin1String(""));
}

quint64 DVEnv::getMemorySize() const
{
    const QString total = colonValue(readText(path(QStringLiteral("/proc/meminfo"))), QStringLiteral("MemTotal"));
    return total.section(QLatin1Char(' '), 0, 0).toULongLong();
}

QString DVEnv::getCpuInfo() const
{
    const QString text = readText(path(QStringLiteral("/proc/cpuinfo")));
    for (const QString &key : {QStringLiteral("model name"), QStringLiteral("Hardware"), QStringLiteral("Processor")}) {
        const QString value = colonValue(text, key);
        if (!value.isEmpty())
            return value;
    }
    return QString(QLatin1String(""));
}

QString DVEnv::primaryInterfaceName() const
{
    const QString netDir = path(QStringLiteral("/sys/class/net"));
    QStringList names = QDir(netDir).entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::System, QDir::Name);
    auto isEthernet = [&](const QString &name) {
        const QString base = netDir + QLatin1Char('/') + name;
        return readText(base + QStringLiteral("/type")).trimmed() == QLatin1String("1") && name != QLatin1String("lo")
               && !QFileInfo::exists(base + QStringLiteral("/wireless"))
               && !QFileInfo::exists(base + QStringLiteral("/phy80211"))
               && !QFileInfo::exists(base + QStringLiteral("/bridge"));
    };
    for (const QString &name : names) {
        if (isEthernet(name) && QFileInfo::exists(netDir + QLatin1Char('/') + name + QStringLiteral("/device")))
            return name;
    }
    for (const QString &name : names) {
        if (isEthernet(name))
            return name;
    }
    return {};
}

std::optional<QString> DVEnv::getPrimaryMacAddress() const
{
    const QString name = primaryInterfaceName();
    if (name.isEmpty()) {
        DVLOG() << "no primary Ethernet interface found";
        return std::nullopt;
    }
    const QString text = readText(path(QStringLiteral("/sys/class/net/%1/address").arg(name))).trimmed().toLower();
    static const QRegularExpression mac(QStringLiteral("^[0-9a-f]{2}(:[0-9a-f]{2}){5}$"));
    if (!mac.match(text).hasMatch()) {
        DVLOG() << "no usable hardware address on " << name << ": " << text;
        return std::nullopt;
    }
    return text;
}

QString DVEnv::getIPAddress() const
{
    const QByteArray name = primaryInterfaceName().toUtf8();
    struct ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return QStringLiteral("error");
    QString kept;
    for (struct ifaddrs *i = list; i; i = i->ifa_next) {
        if (!i->ifa_addr || i->ifa_addr->sa_family != AF_INET || name.isEmpty() || name != i->ifa_name)
            continue;
        char text[INET_ADDRSTRLEN] = {};
        const auto *in = reinterpret_cast<const struct sockaddr_in *>(i->ifa_addr);
        if (inet_ntop(AF_INET, &in->sin_addr, text, sizeof text))
            kept = QString::fromLatin1(text); // a later address replaces an earlier one
    }
    freeifaddrs(list);
    return kept.isEmpty() ? QStringLiteral("error") : kept;
}
