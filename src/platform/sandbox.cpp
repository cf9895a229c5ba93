#include "platform/sandbox.h"

#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <cerrno>

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
    const auto problem = [&raw](const char* what) {
        return QStringLiteral("VARNEL_ROOT names \"%1\", which %2.").arg(raw, QLatin1String(what));
    };
    struct stat info {};
    if (::stat(QFile::encodeName(raw).constData(), &info) != 0) {
        switch (errno) {
            case ENOENT:
            case ENOTDIR:
                return problem("does not exist");
            case ELOOP:
                return problem("is a loop of symbolic links");
            case EACCES:
                return problem("cannot be reached (permission denied)");
            default:
                return problem("cannot be looked at");
        }
    }
    if (!S_ISDIR(info.st_mode)) return problem("is not a directory");
    // Unreadable, every probe would find nothing and report a stopped suite.
    if (::access(QFile::encodeName(raw).constData(), R_OK | X_OK) != 0)
        return problem("cannot be read (permission denied)");
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
