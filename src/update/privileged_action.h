#pragma once

#include <QString>

#include "platform/command_runner.h"

namespace varnel {

enum class ActionOutcome { succeeded, cancelled, failed };

// A command to run as root and the sentence the approval dialog shows.
struct PrivilegedRequest {
    QString command;
    QString prompt;
};

// The AppleScript that has the system ask for approval and run `command`.
QString administratorScript(const PrivilegedRequest& request);

// Succeeded on status 0; cancelled when the output carries -128 or the word
// "cancel" in any case; failed otherwise.
ActionOutcome classify(const CommandResult& result);

// Runs the request through osascript (120 s, the time the user takes in the
// dialog included) and classifies the result. Blocks.
ActionOutcome runWithAdministratorRights(const PrivilegedRequest& request);

// "Agent" for the core agent's label; any other label names itself.
QString serviceName(const QString& launchdLabel);

// The dialog's sentence is at most this long: the texts read from files that go
// into it (the version texts) lose their control characters and are shortened
// to fit, ending in an ellipsis.
inline constexpr qsizetype maxPromptLength = 300;

PrivilegedRequest restartRequest(const QString& launchdLabel);
PrivilegedRequest updateRequest(const QString& installedVersion, const QString& latestVersion);

// The line written to the system log after an action; empty for a cancel,
// which is not reported.
QString restartReport(ActionOutcome outcome, const QString& launchdLabel);
QString updateReport(ActionOutcome outcome);

// Writes "Varnel: title — text" to the system log.
void notify(const QString& title, const QString& text);
QString notificationLine(const QString& title, const QString& text);

}  // namespace varnel
