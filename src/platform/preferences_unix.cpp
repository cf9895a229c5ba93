#include "platform/preference_store.h"
#include "platform/preferences.h"
#include "platform/user_folders.h"

namespace varnel {

// "Managed" here means set in the system-wide file beside the other programs'
// defaults in /etc/xdg, which only an administrator can write. There a value
// is not a default the user may override but a decision that stands.
std::unique_ptr<PreferenceStore> platformPreferenceStore() {
    const QString name = u'/' + applicationId + QStringLiteral(".conf");
    return filePreferenceStore(userConfigFolder() + name, QStringLiteral("/etc/xdg") + name,
                               QSettings::IniFormat);
}

}  // namespace varnel
