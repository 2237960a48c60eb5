// The smallest Qt Widgets program with a window of the log-in view's size: what start-up
// costs before the client adds anything.
#include "FirstPaintProbe.h"

#include <QApplication>
#include <QWidget>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QWidget window;
    window.setWindowTitle(QStringLiteral("bare"));
    window.resize(280, 470);
    installFirstPaintProbe(&window);
    window.show();
    return app.exec();
}
