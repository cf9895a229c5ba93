#include <QDir>

#include "platform/user_folders.h"

namespace varnel {

namespace {

// The XDG rule: a variable that is unset, empty or relative is ignored.
QString xdgFolder(const char* variable, const QString& fallback) {
    const QString value = qEnvironmentVariable(variable);
    return QDir::isAbsolutePath(value) ? QDir::cleanPath(value) : QDir::homePath() + fallback;
}

}  // namespace

QString userLogFolder() {
    return xdgFolder("XDG_STATE_HOME", QStringLiteral("/.local/state")) +
           QStringLiteral("/varnel-status");
}

QString userConfigFolder() {
    return xdgFolder("XDG_CONFIG_HOME", QStringLiteral("/.config"));
}

}  // namespace varnel
