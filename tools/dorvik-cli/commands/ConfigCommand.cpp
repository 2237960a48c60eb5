// dorvik-cli config: the deployer's tool for the shipped configuration file.
//   config encrypt   plain JSON on stdin, the encrypted file on stdout (built-in key)
//   config decrypt   the encrypted file on stdin, its plain text on stdout
//   config get [--file F] [--area A] SECTION.FIELD
//                    the value that applies in an area, as JSON
#include "CliCommand.h"

#include "Conf/Conf.h"
#include "Conf/ConfCrypt.h"

namespace {

const QString kUsage = QStringLiteral(
    "config encrypt | decrypt           stdin to stdout with the built-in key\n"
    "  config get [--file F] [--area A] SECTION.FIELD\n"
    "                                     print the value that applies in area A (default: the chosen\n"
    "                                     area, else \"default\") as JSON; F defaults to the shipped file");

int fail(const QString &message, int code = 1)
{
    Cli::err(QStringLiteral("dorvik-cli config: ") + message);
    return code;
}

int encrypt()
{
    const std::optional<QByteArray> out = ConfCrypt::encodeData(Cli::readStdin());
    if (!out)
        return fail(QStringLiteral("encryption failed"));
    Cli::writeStdout(*out);
    return 0;
}

int decrypt()
{
    const QByteArray in = Cli::readStdin();
    const std::optional<QByteArray> out = ConfCrypt::decodeData(in);
    if (!out)
        return fail(QStringLiteral("input (%1 bytes) does not decrypt with the built-in key").arg(in.size()));
    Cli::writeStdout(*out);
    return 0;
}

int get(QStringList args)
{
    QString file = Conf::systemConfigPath();
    std::optional<QString> area;
    QString path;
    while (!args.isEmpty()) {
        const QString arg = args.takeFirst();
        if (arg == QLatin1String("--file") || arg == QLatin1String("--area")) {
            if (args.isEmpty())
                return fail(arg + QStringLiteral(" needs a value"), 2);
            (arg == QLatin1String("--file") ? file : area.emplace()) = args.takeFirst();
        } else if (arg.startsWith(QLatin1String("--")) || !path.isEmpty()) {
            return fail(QStringLiteral("unexpected argument '%1'\nusage: ").arg(arg) + kUsage, 2);
        } else {
            path = arg;
        }
    }
    if (path.isEmpty())
        return fail(QStringLiteral("which setting? usage: ") + kUsage, 2);
    if (!Conf::fieldPaths().contains(path))
        return fail(
            QStringLiteral("unknown setting '%1'; known: %2").arg(path, Conf::fieldPaths().join(QLatin1Char(' '))), 2);

    QString error;
    const std::unique_ptr<Conf> conf = Conf::fromFile(file, &error);
    if (!conf)
        return fail(error);

    // Without --area the tool answers for the area the client itself would use.
    if (area)
        Conf::setArea(*area);
    else
        Conf::restoreArea();

    const std::optional<ordered_json> value = conf->valueAt(path)->getValueOfArea();
    if (!value)
        return fail(QStringLiteral("%1 has no value for area '%2' and no default").arg(path, Conf::area()));
    Cli::out(QString::fromStdString(value->dump(-1, ' ', false, ordered_json::error_handler_t::replace)));
    return 0;
}

int run(const QStringList &args)
{
    const QString sub = args.value(0);
    if (sub == QLatin1String("encrypt") && args.size() == 1)
        return encrypt();
    if (sub == QLatin1String("decrypt") && args.size() == 1)
        return decrypt();
    if (sub == QLatin1String("get"))
        return get(args.mid(1));
    return fail(QStringLiteral("usage: ") + kUsage, 2);
}

} // namespace

CliCommand configCommand()
{
    return {QStringLiteral("config"), kUsage, run};
}
