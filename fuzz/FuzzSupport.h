#pragma once

// Shared set-up of the fuzz targets: quiet logging (a fatal message still aborts, so the
// fuzzer sees it), a private home for preferences and logs, an application object for the
// parts that need one.

#include <QByteArray>
#include <QCoreApplication>
#include <QList>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace Fuzz {

inline void init(int *argc, char ***argv)
{
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &) {
        if (type == QtFatalMsg)
            std::abort();
    });
    static QTemporaryDir home;
    qputenv("HOME", home.path().toUtf8());
    qputenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/config")).toUtf8());
    qputenv("XDG_DATA_HOME", (home.path() + QStringLiteral("/data")).toUtf8());
    qputenv("XDG_CACHE_HOME", (home.path() + QStringLiteral("/cache")).toUtf8());
    static QCoreApplication app(*argc, *argv);
}

inline QByteArray bytes(const uint8_t *data, std::size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
}

// Several inputs in one: the parts between NUL bytes, always at least `n` (missing ones empty).
inline QList<QByteArray> parts(const uint8_t *data, std::size_t size, int n)
{
    QList<QByteArray> out = bytes(data, size).split('\0');
    while (out.size() < n)
        out.append(QByteArray());
    return out;
}

} // namespace Fuzz

#define DORVIK_FUZZ_INIT                                                                                               \
    extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)                                                       \
    {                                                                                                                  \
        Fuzz::init(argc, argv);                                                                                        \
        return 0;                                                                                                      \
    }
