#include "platform/preferences.h"

#include <QDir>
#include <QFileInfo>

#include "platform/file_system.h"
#include "platform/preference_store.h"
#include "platform/sandbox.h"

namespace varnel {

namespace {

constexpr quint64 kMaxSettingsFile = quint64{64} * 1024;

// QSettings gives a boolean from a property list, text from an INI file.
std::optional<bool> asBool(const QVariant& value) {
    if (value.typeId() == QMetaType::Bool) return value.toBool();
    const QString text = value.toString().trimmed().toLower();
    if (text == u"true" || text == u"1" || text == u"yes") return true;
    if (text == u"false" || text == u"0" || text == u"no") return false;
    return std::nullopt;
}

Preference preference(const PreferenceStore& store, const QString& key) {
    if (const auto forced = asBool(store.managed(key))) return {*forced, true};
    return {asBool(store.user(key)).value_or(true), false};
}

// QSettings opens a file with a blocking read of any length: it only ever gets
// a regular file of settings size.
bool settingsFile(const QString& path) {
    const fs::FileStamp stamp = fs::stamp(path);
    return stamp.present && stamp.size <= kMaxSettingsFile;
}

class FileStore final : public PreferenceStore {
public:
    FileStore(QString userFile, QString managedFile, QSettings::Format format)
        : userFile_(std::move(userFile)), managedFile_(std::move(managedFile)), format_(format) {}

    QVariant managed(const QString& key) const override { return read(managedFile_, key); }
    QVariant user(const QString& key) const override { return read(userFile_, key); }

    std::optional<QString> setUser(const QString& key, bool value) override {
        const QString host = sandbox::hostPath(userFile_);
        if (fs::exists(userFile_) && !settingsFile(userFile_))
            return QStringLiteral("%1 is not a settings file").arg(host);
        if (!QDir().mkpath(QFileInfo(host).absolutePath()))
            return QStringLiteral("the folder of %1 cannot be made").arg(host);
        QSettings settings(host, format_);
        settings.setValue(key, value);
        settings.sync();
        if (settings.status() != QSettings::NoError)
            return QStringLiteral("%1 cannot be written").arg(host);
        return std::nullopt;
    }

private:
    QVariant read(const QString& file, const QString& key) const {
        if (!settingsFile(file)) return {};
        return QSettings(sandbox::hostPath(file), format_).value(key);
    }

    QString userFile_;
    QString managedFile_;
    QSettings::Format format_;
};

}  // namespace

std::unique_ptr<PreferenceStore> filePreferenceStore(QString userFile, QString managedFile,
                                                     QSettings::Format format) {
    return std::make_unique<FileStore>(std::move(userFile), std::move(managedFile), format);
}

Preferences readPreferences() {
    const auto store = platformPreferenceStore();
    return {preference(*store, notifyOnHealthChangeKey), preference(*store, historyEnabledKey)};
}

std::optional<QString> writePreference(const QString& key, bool value) {
    const auto store = platformPreferenceStore();
    if (asBool(store->managed(key)))
        return QStringLiteral("%1 is set by an administrator").arg(key);
    return store->setUser(key, value);
}

}  // namespace varnel
