#pragma once

#include <QString>
#include <optional>

namespace varnel {

// The application's identifier: its preference domain on macOS (where a
// managed-preferences profile addresses it) and the name of its settings files
// elsewhere.
inline const QString applicationId = QStringLiteral("com.varnel.tray");

// One switch as it applies now: its value, and whether an administrator has
// fixed it, in which case the user cannot change it.
struct Preference {
    bool value = true;
    bool managed = false;

    bool operator==(const Preference&) const = default;
};

struct Preferences {
    Preference notifyOnHealthChange;
    Preference historyEnabled;

    bool operator==(const Preferences&) const = default;
};

// The keys as administrators write them.
inline const QString notifyOnHealthChangeKey = QStringLiteral("NotifyOnHealthChange");
inline const QString historyEnabledKey = QStringLiteral("HistoryEnabled");

// Both switches are on unless set off. A value that is not a boolean counts as
// unset, whoever set it. Settings files are read only when they are regular
// files of settings size, so a planted pipe or a huge file costs nothing.
Preferences readPreferences();

// Stores the user's own choice for one switch; the reason when it was not
// stored (managed, or the settings cannot be written).
std::optional<QString> writePreference(const QString& key, bool value);

}  // namespace varnel
