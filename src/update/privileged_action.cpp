#include "update/privileged_action.h"

#include <syslog.h>

#include "platform/paths.h"
#include "update/version.h"

namespace varnel {

namespace {

// Inside an AppleScript string literal only the backslash and the double quote
// are special. The command keeps its backslashes as they are (launchctl
// arguments carry none); the prompt holds version texts from a file anyone with
// root on the box may have written, so it is escaped completely and a line break
// cannot split it either.
QString escapeQuotes(const QString& text) {
    QString out = text;
    out.replace(u'"', QStringLiteral("\\\""));
    return out;
}

QString escapeLiteral(const QString& text) {
    QString out;
    out.reserve(text.size() + 8);
    for (const QChar c : text) {
        switch (c.unicode()) {
            case u'\\':
                out += QStringLiteral("\\\\");
                break;
            case u'"':
                out += QStringLiteral("\\\"");
                break;
            case u'\n':
                out += QStringLiteral("\\n");
                break;
            case u'\r':
                out += QStringLiteral("\\r");
                break;
            case u'\t':
                out += QStringLiteral("\\t");
                break;
            default:
                out += c;
        }
    }
    return out;
}

}  // namespace

QString administratorScript(const PrivilegedRequest& request) {
    return QStringLiteral("do shell script \"") + escapeQuotes(request.command) +
           QStringLiteral("\" with administrator privileges with prompt \"") +
           escapeLiteral(request.prompt) + u'"';
}

ActionOutcome classify(const CommandResult& result) {
    if (result.code == 0) return ActionOutcome::succeeded;
    if (result.out.contains(QStringLiteral("-128"))) return ActionOutcome::cancelled;
    if (result.out.toLower().contains(QStringLiteral("cancel"))) return ActionOutcome::cancelled;
    return ActionOutcome::failed;
}

ActionOutcome runWithAdministratorRights(const PrivilegedRequest& request) {
    return classify(run(QStringLiteral("/usr/bin/osascript"),
                        {QStringLiteral("-e"), administratorScript(request)}, 120));
}

QString serviceName(const QString& launchdLabel) {
    return launchdLabel == QStringLiteral("com.varnel.agent") ? QStringLiteral("Agent")
                                                              : launchdLabel;
}

PrivilegedRequest restartRequest(const QString& launchdLabel) {
    return {QStringLiteral("launchctl kickstart -k system/") + launchdLabel,
            QStringLiteral("Varnel needs administrator access to restart the ") +
                serviceName(launchdLabel) + QStringLiteral(" service.")};
}

PrivilegedRequest updateRequest(const QString& installedVersion, const QString& latestVersion) {
    const QString what = versionIsNewer(latestVersion, installedVersion)
                             ? installedVersion + QStringLiteral(" → ") + latestVersion
                             : QStringLiteral("latest");
    return {QStringLiteral("launchctl kickstart -k system/") + Paths::updaterLabel,
            QStringLiteral("Varnel needs administrator access to install the update (") + what +
                QStringLiteral(").")};
}

QString restartReport(ActionOutcome outcome, const QString& launchdLabel) {
    switch (outcome) {
        case ActionOutcome::succeeded:
            return serviceName(launchdLabel) + QStringLiteral(" restart requested.");
        case ActionOutcome::failed:
            return QStringLiteral("Restart failed. See Console for details.");
        case ActionOutcome::cancelled:
            break;
    }
    return {};
}

QString updateReport(ActionOutcome outcome) {
    switch (outcome) {
        case ActionOutcome::succeeded:
            return QStringLiteral("Update started — installing in the background.");
        case ActionOutcome::failed:
            return QStringLiteral("Could not start update. See the updater log.");
        case ActionOutcome::cancelled:
            break;
    }
    return {};
}

QString notificationLine(const QString& title, const QString& text) {
    return QStringLiteral("Varnel: ") + title + QStringLiteral(" — ") + text;
}

void notify(const QString& title, const QString& text) {
    syslog(LOG_NOTICE, "%s", notificationLine(title, text).toUtf8().constData());
}

}  // namespace varnel
