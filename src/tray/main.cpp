#include <QApplication>
#include <QSystemTrayIcon>
#include <QTimer>
#include <cstdio>

#include "platform/sandbox.h"
#include "tray/app_delegate.h"

int main(int argc, char** argv) {
    if (const auto problem = varnel::sandbox::rootProblem()) {
        std::fprintf(stderr, "VarnelStatus: %s\n", qUtf8Printable(*problem));
        return 2;
    }
#if defined(Q_OS_LINUX)
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        std::fprintf(stderr, "VarnelStatus: no display to show a status item on.\n");
        return 1;
    }
#endif
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Varnel Status"));
    // The log window is the only window; closing it must not end the app.
    QApplication::setQuitOnLastWindowClosed(false);

    varnel::AppDelegate delegate(QApplication::arguments(), QApplication::applicationDirPath());
    QTimer::singleShot(0, &delegate, &varnel::AppDelegate::applicationDidFinishLaunching);
    if (!QSystemTrayIcon::isSystemTrayAvailable())
        std::fprintf(stderr, "VarnelStatus: no system tray is available on this display.\n");
    return app.exec();
}
