#pragma once

#include <QString>
#include <optional>

#include "monitor/health.h"
#include "platform/preferences.h"
#include "status/suite_probe.h"

namespace varnel::cli {

// One probe with the verdicts every format shares.
struct StatusReport {
    SuiteProbe probe;
    Health overall = Health::unknown;
    bool updateAvailable = false;
    Preferences preferences;  // the tray application's, as they apply now
};

// Reads the preferences as well.
StatusReport statusReport(SuiteProbe probe);

enum class StatusFormat { text, json, nagios, jamf, prometheus };

std::optional<StatusFormat> statusFormat(const QString& name);

// 0 running, 1 needs attention, 2 stopped, 3 anything else: the exit status of
// the text, JSON and plugin formats, and the plugin's state.
int healthExitStatus(Health overall);

// The report for people; what the suite's files and tools said is shown, never obeyed.
QString statusText(const StatusReport& report);

// One object; its keys are a promise to scripts and are only ever added to.
QString statusJson(const StatusReport& report);

// A monitoring plugin's answer: "VARNEL STATE - summary | perfdata", then one
// line per service that is not running.
QString nagiosStatus(const StatusReport& report);
// The first line of a plugin answer for a check that could not be made.
QString nagiosUnknown(const QString& why);

// An inventory extension attribute: "<result>health[: problems]</result>".
QString jamfStatus(const StatusReport& report);

// The text exposition format of a metrics scrape.
QString prometheusStatus(const StatusReport& report);

}  // namespace varnel::cli
