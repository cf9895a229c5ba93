#pragma once

#include <QList>
#include <QString>

#include "monitor/catalogue.h"
#include "status/suite_probe.h"

namespace varnel {

// A scheduled job (the updater) waits idle between its runs: that is its good
// state, so it is never expected to be running.
bool isScheduled(const ServiceSpec& spec);

// What keeps a probed suite from a clean bill of health, as data, so that each
// consumer (a console, an inventory column, a notification) words it its own way.
struct SuiteProblems {
    QList<ServiceStatus> down;  // neither running nor idle as scheduled, in catalogue order
    int running = 0;            // services running
    int expected = 0;           // services that should be running: all but the scheduled ones
    int untrusted = 0;          // deployed CA certificates the system does not trust
    int deployed = 0;
    bool noCertificates = false;  // nothing to verify: none deployed, or no suite folder
    QString waitingUpdate;        // the latest version, when it is newer than the installed one

    bool none() const {
        return down.isEmpty() && untrusted == 0 && !noCertificates && waitingUpdate.isEmpty();
    }
};

SuiteProblems suiteProblems(const SuiteProbe& probe);

// The problems on one short line, e.g. "Network Extension, Monitor not running;
// 1 of 3 CA certificates untrusted; update 1.9.0 waiting"; empty when there are
// none. More than three services are only counted, and a version read from the
// suite's files is kept to one line and a few dozen characters, so the line
// stays short enough for a column or a console whatever the suite holds.
QString problemLine(const SuiteProblems& problems);

}  // namespace varnel
