#include "update/privileged_action.h"

#include <syslog.h>

#include <algorithm>

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

// What the dialog's sentence may hold of a text read from the suite's files: no
// control or invisible formatting characters (a NUL cannot even be handed to
// osascript, a line break or a direction mark would garble the sentence), and no
// more than `room` characters, the last of them an ellipsis when it was longer.
// Without the cap a version file could outgrow the command line osascript is
// started with.
QString shown(const QString& text, qsizetype room) {
    QString out;
    out.reserve(std::min(text.size(), room));
    for (const QChar c : text) {
        switch (c.category()) {
            case QChar::Other_Control:
            case QChar::Other_Format:
            case QChar::Separator_Line:
            case QChar::Separator_Paragraph:
                continue;
            default:
                out += c;
        }
    }
    if (out.size() <= room) return out;
    qsizetype keep = room - 1;
    if (keep > 0 && out[keep - 1].isHighSurrogate()) --keep;
    return out.first(keep) + QChar(0x2026);
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
    const QString before = QStringLiteral("Varnel needs administrator access to restart the ");
    const QString after = QStringLiteral(" service.");
    return {QStringLiteral("launchctl kickstart -k system/") + launchdLabel,
            before +
                shown(serviceName(launchdLabel), maxPromptLength - before.size() - after.size()) +
                after};
}

PrivilegedRequest updateRequest(const QString& installedVersion, const QString& latestVersion) {
    const QString before =
        QStringLiteral("Varnel needs administrator access to install the update (");
    const QString arrow = QStringLiteral(" → ");
    const QString after = QStringLiteral(").");
    // Each version gets half of what the sentence leaves.
    const qsizetype room = (maxPromptLength - before.size() - arrow.size() - after.size()) / 2;
    const QString what = versionIsNewer(latestVersion, installedVersion)
                             ? shown(installedVersion, room) + arrow + shown(latestVersion, room)
                             : QStringLiteral("latest");
    return {QStringLiteral("launchctl kickstart -k system/") + Paths::updaterLabel,
            before + what + after};
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
