#include "Conf.h"

#include "ConfCrypt.h"
#include "ReceivedConf.h"

#include "Util/DVJson.h"
#include "Util/DVUtils.h"
#include "Util/Log.h"
#include "Util/UserDefaults.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUrl>

#include <algorithm>
#include <mutex>
#include <vector>

namespace {

// The process-wide area and the shared configuration. Worker threads read both (operations
// resolve settings while they run), so every access goes through a lock.
std::mutex &areaMutex()
{
    static std::mutex m;
    return m;
}

QString &currentArea()
{
    static QString area;
    return area;
}

struct SharedState
{
    std::mutex mutex;
    bool loaded = false;
    std::unique_ptr<Conf> current;
    // A replaced configuration stays alive: callers may still hold the pointer that
    // shared() gave them, and configurations are never released while the process runs.
    std::vector<std::unique_ptr<Conf>> retired;
};

SharedState &sharedState()
{
    static SharedState state;
    return state;
}

const std::string kDefaultKey = "default";

// Texts in the configuration mean "true" when they read as a non-zero integer or as one of
// the usual words for yes.
bool textIsTrue(const QString &text)
{
    const QString t = text.trimmed();
    if (t.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0
        || t.compare(QLatin1String("yes"), Qt::CaseInsensitive) == 0)
        return true;
    return DVUtils::intValue(t) != 0;
}

bool jsonIsTrue(const std::optional<ordered_json> &v)
{
    if (!v)
        return false;
    if (v->is_boolean())
        return v->get<bool>();
    if (v->is_number_integer() || v->is_number_unsigned())
        return v->get<qint64>() != 0;
    if (v->is_number_float())
        return v->get<double>() != 0.0;
    if (v->is_string())
        return textIsTrue(QString::fromStdString(v->get<std::string>()));
    return false;
}

QString executableDirectory()
{
    if (QCoreApplication::instance())
        return QCoreApplication::applicationDirPath();
    // Before (or without) an application object: the kernel knows where the program lives.
    return QFileInfo(QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath()).absolutePath();
}

} // namespace

// --- AreaValue ---------------------------------------------------------------------------

AreaValue::AreaValue(ordered_json object)
    : _object(std::move(object))
{
    constexpr std::size_t kIndexFrom = 16;
    if (!_object.is_object() || _object.size() < kIndexFrom)
        return;
    auto index = std::make_shared<std::unordered_map<std::string, std::size_t>>();
    const auto &members = _object.get_ref<const ordered_json::object_t &>();
    index->reserve(members.size());
    for (std::size_t i = 0; i < members.size(); ++i)
        index->emplace((members.begin() + static_cast<std::ptrdiff_t>(i))->first, i);
    _index = std::move(index);
}

std::optional<ordered_json> AreaValue::getValueOfArea() const
{
    if (!_object.is_object())
        return std::nullopt;
    auto lookup = [this](const std::string &key) -> const ordered_json * {
        if (_index) {
            const auto it = _index->find(key);
            if (it == _index->end())
                return nullptr;
            const auto &members = _object.get_ref<const ordered_json::object_t &>();
            return &(members.begin() + static_cast<std::ptrdiff_t>(it->second))->second;
        }
        const auto it = _object.find(key);
        return it == _object.end() ? nullptr : &*it;
    };
    // No area chosen yet: only the "default" entry can apply.
    const QString area = Conf::area();
    if (!area.isEmpty())
        if (const ordered_json *v = lookup(area.toStdString()))
            return *v;
    if (const ordered_json *v = lookup(kDefaultKey))
        return *v;
    return std::nullopt;
}

std::optional<QString> AreaValue::text() const
{
    const auto v = getValueOfArea();
    if (!v)
        return std::nullopt;
    if (v->is_string())
        return QString::fromStdString(v->get<std::string>());
    if (v->is_number() || v->is_boolean())
        return QString::fromStdString(v->dump());
    return std::nullopt;
}

// --- section getters that convert ---------------------------------------------------------

std::optional<QStringList> AccountRuleConf::getOrder() const
{
    const auto v = order.getValueOfArea();
    if (!v || !v->is_array())
        return std::nullopt;
    QStringList rules;
    for (const auto &item : *v) {
        if (!item.is_string())
            return std::nullopt;
        rules << QString::fromStdString(item.get<std::string>());
    }
    return rules;
}

std::optional<QString> TabConf::getUrl() const
{
    const std::optional<QString> received = ReceivedConf::shared().getTabHost();
    if (Conf::parsesAsUrl(received))
        return received;
    return url.text();
}

void TabConf::setTabUrl(const QString &address) const
{
    ReceivedConf::shared().setTabHost(address);
}

bool Login::isDynamicDial() const
{
    return jsonIsTrue(isDynamic.getValueOfArea());
}

bool Login::isQrcCodeDial() const
{
    return jsonIsTrue(isQrcodeEnable.getValueOfArea());
}

bool Login::ifQrCodeAlone() const
{
    return jsonIsTrue(ifQrCodeOnly.getValueOfArea());
}

std::optional<quint64> SMS::getTimeOutSeconds() const
{
    const auto v = timeout.getValueOfArea();
    if (!v)
        return std::nullopt;
    // A negative or unreadable count gives 0: the dialog then does not wait at all rather
    // than waiting for an absurdly long time.
    // Huge, infinite or NaN numbers saturate (NaN counts as 0) instead of overflowing.
    if (v->is_number())
        return DVJson::saturatedInteger<quint64>(*v).value_or(0);
    if (v->is_boolean())
        return v->get<bool>() ? 1 : 0;
    if (v->is_string())
        return static_cast<quint64>(
            std::max<qint64>(0, DVUtils::intValue(QString::fromStdString(v->get<std::string>()))));
    return std::nullopt;
}

// --- Conf: shared instance ------------------------------------------------------------------

Conf *Conf::shared()
{
    SharedState &s = sharedState();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.loaded) {
        s.loaded = true;
        s.current = fromFile(systemConfigPath());
    }
    return s.current.get();
}

void Conf::setShared(std::unique_ptr<Conf> conf)
{
    SharedState &s = sharedState();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.loaded = true;
    if (s.current)
        s.retired.push_back(std::move(s.current));
    s.current = std::move(conf);
}

std::unique_ptr<Conf> Conf::fromFile(const QString &path, QString *error)
{
    auto fail = [&](const QString &description) -> std::unique_ptr<Conf> {
        if (error)
            *error = description;
        else
            DVLOG() << description;
        return nullptr;
    };
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("configuration file %1 could not be read: %2").arg(path, file.errorString()));
    const std::optional<QByteArray> plaintext = ConfCrypt::decodeData(file.readAll());
    if (!plaintext)
        return fail(QStringLiteral("configuration file %1 could not be decrypted").arg(path));
    QString parseError;
    auto conf = fromJson(*plaintext, &parseError);
    if (!conf)
        return fail(QStringLiteral("configuration file %1: %2").arg(path, parseError));
    return conf;
}

std::unique_ptr<Conf> Conf::fromEncryptedOrPlainFile(const QString &path, QString *error)
{
    if (auto conf = fromFile(path, error))
        return conf;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return nullptr;
    const QByteArray raw = file.readAll();
    return raw.trimmed().startsWith('{') ? fromJson(raw, error) : nullptr;
}

// --- Conf: area -------------------------------------------------------------------------------

QString Conf::area()
{
    std::lock_guard<std::mutex> lock(areaMutex());
    return currentArea();
}

void Conf::setArea(const QString &area)
{
    std::lock_guard<std::mutex> lock(areaMutex());
    if (currentArea() != area)
        currentArea() = area;
}

void Conf::restoreArea()
{
    const QVariant stored = UserDefaults::loadValueForKey(PrefKey::areacode);
    if (!stored.isValid())
        return;
    if (stored.typeId() != QMetaType::QString) {
        DVLOG() << "stored area code is not a text, ignored";
        return;
    }
    setArea(stored.toString());
}

// --- Conf: where the shipped files are --------------------------------------------------------

QString Conf::resourceDirectory()
{
    // Programs live in <prefix>/bin and their data in <prefix>/share/dorvik, both in the build
    // tree and when installed; a relocated installation is therefore found without being told.
    const QString besideProgram = QDir::cleanPath(executableDirectory() + QStringLiteral("/../share/dorvik"));
    if (QFileInfo(besideProgram).isDir())
        return besideProgram;
    return QStringLiteral(DORVIK_INSTALL_RESOURCE_DIR);
}

QString Conf::systemConfigPath()
{
    return resourceDirectory() + QStringLiteral("/system.cfg");
}

QString Conf::areaTreePath()
{
    return resourceDirectory() + QStringLiteral("/area.cfg");
}

bool Conf::parsesAsUrl(const std::optional<QString> &text)
{
    if (!text || text->isEmpty())
        return false;
    const QUrl url(*text, QUrl::StrictMode);
    return url.isValid() && !url.scheme().isEmpty() && !url.host().isEmpty();
}
