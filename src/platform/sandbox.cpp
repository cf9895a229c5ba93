#include "platform/sandbox.h"

#include <QDir>
#include <QFileInfo>

namespace varnel::sandbox {

namespace {

QString readRoot() {
    QString value = qEnvironmentVariable("VARNEL_ROOT");
    if (value.isEmpty()) return {};
    // Joining "/root" and "/Library/..." must not give "/root//Library".
    value = QDir::cleanPath(QFileInfo(value).absoluteFilePath());
    return value == QStringLiteral("/") ? QString() : value;
}

}  // namespace

const QString& root() {
    static const QString value = readRoot();
    return value;
}

std::optional<QString> rootProblem() {
    const QString raw = qEnvironmentVariable("VARNEL_ROOT");
    if (raw.isEmpty()) return std::nullopt;
    const QFileInfo info(raw);
    if (!info.exists())
        return QStringLiteral("VARNEL_ROOT names \"%1\", which does not exist.").arg(raw);
    if (!info.isDir())
        return QStringLiteral("VARNEL_ROOT names \"%1\", which is not a directory.").arg(raw);
    return std::nullopt;
}

QString hostPath(const QString& suitePath) {
    const QString& base = root();
    if (base.isEmpty() || !suitePath.startsWith(u'/')) return suitePath;
    return base + suitePath;
}

QString suitePath(const QString& hostPath) {
    const QString& base = root();
    if (base.isEmpty() || !hostPath.startsWith(base)) return hostPath;
    if (hostPath.size() == base.size()) return QStringLiteral("/");
    if (hostPath.at(base.size()) != u'/') return hostPath;
    return hostPath.mid(base.size());
}

}  // namespace varnel::sandbox
