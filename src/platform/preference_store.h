#pragma once

#include <QSettings>
#include <QString>
#include <QVariant>
#include <memory>
#include <optional>

namespace varnel {

// Where the preferences' values come from on one platform.
class PreferenceStore {
public:
    virtual ~PreferenceStore() = default;
    // A value an administrator has forced: it wins over the user's own.
    virtual QVariant managed(const QString& key) const = 0;
    virtual QVariant user(const QString& key) const = 0;
    virtual std::optional<QString> setUser(const QString& key, bool value) = 0;
};

// The platform's store: in the platform's own file.
std::unique_ptr<PreferenceStore> platformPreferenceStore();

// Two settings files of QSettings' `format`, the user's and one only an
// administrator can write, both looked up through the sandbox root.
std::unique_ptr<PreferenceStore> filePreferenceStore(QString userFile, QString managedFile,
                                                     QSettings::Format format);

}  // namespace varnel
