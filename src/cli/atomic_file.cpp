#include "cli/atomic_file.h"

#include <QSaveFile>

namespace varnel::cli {

std::optional<QString> replaceFile(const QString& path, const QByteArray& bytes) {
    QSaveFile file(path);
    // Readable by collectors running as other users, whatever the umask or the
    // mode of the file it replaces.
    constexpr auto mode = QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                          QFileDevice::ReadGroup | QFileDevice::ReadOther;
    if (!file.open(QIODevice::WriteOnly) || !file.setPermissions(mode) ||
        file.write(bytes) != bytes.size() || !file.commit()) {
        const QString why = file.errorString();
        file.cancelWriting();
        return why;
    }
    return std::nullopt;
}

}  // namespace varnel::cli
