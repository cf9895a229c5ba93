#pragma once

#include <QDateTime>
#include <QList>
#include <QString>

#include "monitor/catalogue.h"
#include "monitor/cert_check.h"

namespace varnel {

// One look at the whole suite: every service, the installed and the latest
// version, and the certificates. The tray's refresh and varnelctl both probe
// through here, so they always agree on what a probe is.
struct SuiteProbe {
    QList<ServiceStatus> services;  // one per catalogue entry, in catalogue order
    QString installedVersion;       // empty when the file could not be read
    QString latestVersion;          // empty when unknown
    CertStatus certificates;
    double seconds = 0;     // how long the probe took
    QDateTime finishedUtc;  // when it ended
};

// Blocks for as long as the system tools take, bounded by their time-outs.
SuiteProbe probeSuite();

}  // namespace varnel
