#include <CoreFoundation/CoreFoundation.h>

#include "platform/preference_store.h"
#include "platform/preferences.h"
#include "platform/sandbox.h"
#include "platform/user_folders.h"

namespace varnel {

namespace {

CFStringRef cfString(const QString& text) {
    return CFStringCreateWithCharacters(
        kCFAllocatorDefault, reinterpret_cast<const UniChar*>(text.utf16()), CFIndex(text.size()));
}

QVariant fromPropertyList(CFPropertyListRef value) {
    if (CFGetTypeID(value) == CFBooleanGetTypeID())
        return bool(CFBooleanGetValue(static_cast<CFBooleanRef>(value)));
    if (CFGetTypeID(value) == CFNumberGetTypeID()) {
        long long number = 0;
        if (CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberLongLongType, &number))
            return qlonglong(number);
        return {};
    }
    if (CFGetTypeID(value) != CFStringGetTypeID()) return {};
    const auto text = static_cast<CFStringRef>(value);
    QString out(qsizetype(CFStringGetLength(text)), Qt::Uninitialized);
    CFStringGetCharacters(text, CFRangeMake(0, CFIndex(out.size())),
                          reinterpret_cast<UniChar*>(out.data()));
    return out;
}

// The user's defaults through QSettings, which reads and writes the
// application's domain; what a configuration profile forces comes from the
// preferences system itself, which alone knows a value is forced.
class UserDefaults final : public PreferenceStore {
public:
    QVariant managed(const QString& key) const override {
        const CFStringRef cfKey = cfString(key);
        const CFStringRef domain = cfString(applicationId);
        QVariant value;
        if (CFPreferencesAppValueIsForced(cfKey, domain)) {
            if (const CFPropertyListRef forced = CFPreferencesCopyAppValue(cfKey, domain)) {
                value = fromPropertyList(forced);
                CFRelease(forced);
            }
        }
        CFRelease(domain);
        CFRelease(cfKey);
        return value;
    }

    QVariant user(const QString& key) const override { return settings().value(key); }

    std::optional<QString> setUser(const QString& key, bool value) override {
        QSettings defaults = settings();
        defaults.setValue(key, value);
        defaults.sync();
        if (defaults.status() != QSettings::NoError)
            return QStringLiteral("the preferences of %1 cannot be written").arg(applicationId);
        return std::nullopt;
    }

private:
    // QSettings turns the organisation "varnel.com" and the application "tray"
    // into the domain com.varnel.tray.
    static QSettings settings() {
        return QSettings(QSettings::NativeFormat, QSettings::UserScope,
                         QStringLiteral("varnel.com"), QStringLiteral("tray"));
    }
};

}  // namespace

std::unique_ptr<PreferenceStore> platformPreferenceStore() {
    // A simulated suite keeps its preferences as property lists beside it, the
    // managed ones where a profile would put them for the whole machine.
    if (!sandbox::root().isEmpty()) {
        const QString name = u'/' + applicationId + QStringLiteral(".plist");
        return filePreferenceStore(userConfigFolder() + name,
                                   QStringLiteral("/Library/Managed Preferences") + name,
                                   QSettings::NativeFormat);
    }
    return std::make_unique<UserDefaults>();
}

}  // namespace varnel
