#include "platform/file_reveal.h"

#include <QFileInfo>
#include <QUrl>

#include "platform/command_runner.h"
#include "platform/sandbox.h"

namespace varnel {

namespace {

constexpr double toolTimeout = 5.0;

}  // namespace

bool revealWithOpen(const QString& path) {
    return run(QStringLiteral("/usr/bin/open"), {QStringLiteral("-R"), sandbox::hostPath(path)},
               toolTimeout)
               .code == 0;
}

bool revealWithFileManager(const QString& path) {
    const QString host = sandbox::hostPath(path);
    // dbus-send splits array items at commas, so a comma in the path must
    // travel percent-encoded; file managers decode it back.
    QString uri = QString::fromUtf8(QUrl::fromLocalFile(host).toEncoded());
    uri.replace(u',', QStringLiteral("%2C"));
    const CommandResult shown =
        run(QStringLiteral("/usr/bin/dbus-send"),
            {QStringLiteral("--session"), QStringLiteral("--print-reply"),
             QStringLiteral("--dest=org.freedesktop.FileManager1"),
             QStringLiteral("--type=method_call"), QStringLiteral("/org/freedesktop/FileManager1"),
             QStringLiteral("org.freedesktop.FileManager1.ShowItems"),
             QStringLiteral("array:string:") + uri, QStringLiteral("string:")},
            toolTimeout);
    if (shown.code == 0) return true;
    return run(QStringLiteral("/usr/bin/xdg-open"), {QFileInfo(host).absolutePath()}, toolTimeout)
               .code == 0;
}

}  // namespace varnel
