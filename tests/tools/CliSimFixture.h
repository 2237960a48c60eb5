#pragma once

// dorvik-cli against dorvik-sim as separate programs over 127.0.0.1: the demo configuration
// with every server on a free port, plain for the simulator and encrypted with the built-in key
// for the client (as a deployer ships it), preferences and logs kept inside the run.
// Needs DORVIK_CLI and DORVIK_SIM.

#include "ToolProcess.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

class CliSimTest : public ::testing::Test
{
protected:
    using json = nlohmann::ordered_json;

    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        acPort = freeLocalPort();
        config = demoConfigOnFreePorts();
        plainPath = dir.filePath(QStringLiteral("system.json"));
        ASSERT_TRUE(writeJsonFile(plainPath, config));
        QProcess encrypt;
        encrypt.setStandardInputFile(plainPath);
        encrypt.setStandardOutputFile(dir.filePath(QStringLiteral("system.cfg")));
        encrypt.start(QStringLiteral(DORVIK_CLI), {QStringLiteral("config"), QStringLiteral("encrypt")});
        ASSERT_TRUE(encrypt.waitForFinished(20000));
        ASSERT_EQ(encrypt.exitCode(), 0);
        qputenv("XDG_CONFIG_HOME", dir.filePath(QStringLiteral("config")).toUtf8());
        qputenv("XDG_DATA_HOME", dir.filePath(QStringLiteral("data")).toUtf8());
    }

    void startSim(const QStringList &extra = {})
    {
        ASSERT_TRUE(sim->startReady(QStringList{QStringLiteral("--config"), plainPath, QStringLiteral("--area"), area,
                                                QStringLiteral("--port"), QStringLiteral("ac=%1").arg(acPort)}
                                    + extra))
            << sim->standardError().toStdString();
    }

    // `connect` on the simulated back-end; `input` is what the user types (password first).
    void startClient(const QStringList &extra = {}, const QByteArray &input = "demo123")
    {
        ASSERT_TRUE(
            cli->start(QStringList{QStringLiteral("connect"), QStringLiteral("--user"), QStringLiteral("demo"),
                                   QStringLiteral("--password-stdin"), QStringLiteral("--backend"),
                                   QStringLiteral("simulated"), QStringLiteral("--area"), area,
                                   QStringLiteral("--config"), dir.filePath(QStringLiteral("system.cfg")),
                                   QStringLiteral("--ac"), QStringLiteral("http://127.0.0.1:%1/pppoe/auth").arg(acPort)}
                           + extra,
                       input + "\n"));
    }

    // Ends both programs and makes fresh ones (cases that run them again).
    void restart()
    {
        cli = std::make_unique<ToolProcess>(QStringLiteral(DORVIK_CLI));
        sim = std::make_unique<ToolProcess>(QStringLiteral(DORVIK_SIM));
    }

    QTemporaryDir dir;
    json config;
    QString plainPath;
    quint16 acPort = 0;
    QString area = QStringLiteral("1001"); // a MAC-bound time PIN: the strictest dial name
    std::unique_ptr<ToolProcess> sim = std::make_unique<ToolProcess>(QStringLiteral(DORVIK_SIM));
    std::unique_ptr<ToolProcess> cli = std::make_unique<ToolProcess>(QStringLiteral(DORVIK_CLI));
};
