// The update server's side: the check's answer (status, then the file list the package address
// and hash come from) and the downloaded package, unpacked into a scratch directory with every
// member checked. The first byte chooses which.

#include "FuzzSupport.h"

#include "Update/UpdatePackage.h"
#include "Update/Updater.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

DORVIK_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const QByteArray rest = Fuzz::bytes(data + 1, size - 1);
    if (data[0] & 1) {
        Updater updater(QStringLiteral("1001"), QStringLiteral("demo"), QStringLiteral("0.1.0"),
                        QStringLiteral("http://127.0.0.1:1/update"));
        HttpReply reply;
        reply.status = (data[0] & 2) ? 200 : 500;
        reply.body = rest;
        const auto ignore = [](const QString &) {};
        updater.handleCheckReply(reply, ignore, ignore);
        (void)updater.packageName();
        (void)updater.packageHash();
        return 0;
    }
    static QTemporaryDir scratch;
    const QString archive = scratch.filePath(QStringLiteral("package.tar.gz"));
    const QString tree = scratch.filePath(QStringLiteral("tree"));
    QFile file(archive);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(rest) != rest.size())
        std::abort();
    file.close();
    QDir(tree).removeRecursively();
    QDir().mkpath(tree);
    QString error;
    (void)UpdatePackage::unpack(archive, tree, &error);
    QDir(tree).removeRecursively();
    return 0;
}
