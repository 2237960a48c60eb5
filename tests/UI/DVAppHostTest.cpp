// The controller's host: the controller and its back-end work on the host's thread, answers
// come back on the asking thread in the order asked. (That the controller hears the dial states
// on its thread: the SMS verification it starts once online, DorvikEndToEndTest.cpp.)

#include "UiTestSupport.h"

#include <QThread>

#include <gtest/gtest.h>

using namespace UiTest;

using DVAppHostTest = Fixture;

TEST_F(DVAppHostTest, RequestsRunOnTheControllerThreadAndAnswerInOrder)
{
    auto host = makeHost(machine(2));
    QThread *const mainThread = QThread::currentThread();

    QThread *ranOn = nullptr;
    std::vector<int> order;
    host->post([&](DVApp &) { ranOn = QThread::currentThread(); });
    host->getInterfaceList([&](const std::vector<QVariantMap> &list) {
        EXPECT_EQ(QThread::currentThread(), mainThread);
        EXPECT_EQ(list.size(), 2u);
        order.push_back(1);
    });
    DVError dialError;
    host->dial(QStringLiteral("demo"), QStringLiteral("demo123"), 0, [&](bool started, const DVError &error) {
        EXPECT_TRUE(started);
        dialError = error;
        order.push_back(2);
    });
    host->getLastInterfaceIndex([&](quint64 index) {
        EXPECT_EQ(index, DVApp::NotFound) << "nothing remembered";
        order.push_back(3);
    });
    ASSERT_TRUE(waitFor([&] { return order.size() == 3; }));
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    EXPECT_TRUE(dialError.domain.isEmpty()) << dialError.localizedDescription.toStdString();
    EXPECT_EQ(ranOn, host->workerThread());
    EXPECT_EQ(host->pendingCalls(), 0);

    bool stopped = false;
    host->stopConn([&](bool ok) { stopped = ok; });
    ASSERT_TRUE(waitFor([&] { return stopped; }));
}
