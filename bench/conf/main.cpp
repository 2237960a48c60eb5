// Decrypt + parse of a generated configuration of about 1 MB with 5,000 areas, and the cost
// of a per-area read. Prints figures; asserts nothing about speed.
#include "Conf/Conf.h"
#include "Conf/ConfCrypt.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr int kAreas = 5000;
constexpr int kRuns = 15;

std::string areaCode(int i)
{
    return std::to_string(1000 + i) + ":" + std::to_string(i % 97);
}

// Every setting has a default; each area overrides about a quarter of them, so a lookup
// misses as often as a real deployment's does.
QByteArray generate()
{
    ordered_json root = ordered_json::object();
    int index = 0;
    for (const QString &path : Conf::fieldPaths()) {
        ordered_json value = ordered_json::object();
        const bool isList = path == QLatin1String("accountrule.order");
        value["default"] = isList ? ordered_json::array({"timepin", "prefix"}) : ordered_json("default-value");
        for (int area = 0; area < kAreas; ++area)
            if ((area + index) % 4 == 0)
                value[areaCode(area)] =
                    isList ? ordered_json::array({"prefix"}) : ordered_json("v" + std::to_string(area));
        ordered_json *node = &root;
        for (const QString &key : path.split(QLatin1Char('.')))
            node = &(*node)[key.toStdString()];
        *node = std::move(value);
        ++index;
    }
    return QByteArray::fromStdString(root.dump());
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QByteArray plain = generate();
    const QByteArray cipher = *ConfCrypt::encodeData(plain);
    std::printf("configuration: %d areas, %lld bytes plain, %lld bytes encrypted\n", kAreas,
                static_cast<long long>(plain.size()), static_cast<long long>(cipher.size()));

    std::vector<double> decryptMs, parseMs, totalMs;
    for (int run = 0; run < kRuns; ++run) {
        QElapsedTimer t;
        t.start();
        const auto decrypted = ConfCrypt::decodeData(cipher);
        const qint64 afterDecrypt = t.nsecsElapsed();
        const auto conf = Conf::fromJson(*decrypted);
        const qint64 afterParse = t.nsecsElapsed();
        if (!conf) {
            std::fprintf(stderr, "generated configuration was rejected\n");
            return 1;
        }
        decryptMs.push_back(afterDecrypt / 1e6);
        parseMs.push_back((afterParse - afterDecrypt) / 1e6);
        totalMs.push_back(afterParse / 1e6);
    }
    std::printf("decrypt:          median %.2f ms, best %.2f ms (%d runs)\n", median(decryptMs),
                *std::min_element(decryptMs.begin(), decryptMs.end()), kRuns);
    std::printf("parse:            median %.2f ms, best %.2f ms\n", median(parseMs),
                *std::min_element(parseMs.begin(), parseMs.end()));
    std::printf("decrypt + parse:  median %.2f ms, best %.2f ms\n", median(totalMs),
                *std::min_element(totalMs.begin(), totalMs.end()));

    // For comparison: the JSON library's own ordered parser on the same text.
    {
        QElapsedTimer t;
        t.start();
        const ordered_json doc = ordered_json::parse(plain.constBegin(), plain.constEnd());
        std::printf("library ordered_json::parse alone, for comparison: %.2f ms (%zu sections)\n",
                    t.nsecsElapsed() / 1e6, doc.size());
    }

    // Reads resolve the area on every call.
    const auto conf = Conf::fromJson(plain);
    constexpr int kReads = 200000;
    QElapsedTimer t;
    t.start();
    size_t found = 0;
    for (int i = 0; i < kReads; ++i) {
        if (i % 1000 == 0)
            Conf::setArea(QString::fromStdString(areaCode(i / 1000 * 37 % kAreas)));
        found += conf->heart.getInterval().has_value();
    }
    std::printf("area-resolved read: %.0f ns per call (%d calls, %zu values)\n",
                static_cast<double>(t.nsecsElapsed()) / kReads, kReads, found);
    return 0;
}
