#include <QDir>

#include "platform/user_folders.h"

namespace varnel {

QString userLogFolder() {
    return QDir::homePath() + QStringLiteral("/Library/Logs/Varnel Status");
}

QString userConfigFolder() {
    return QDir::homePath() + QStringLiteral("/Library/Preferences");
}

}  // namespace varnel
