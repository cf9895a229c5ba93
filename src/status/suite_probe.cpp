#include "status/suite_probe.h"

#include <QElapsedTimer>

#include "monitor/poller.h"
#include "update/version.h"

namespace varnel {

SuiteProbe probeSuite() {
    QElapsedTimer clock;
    clock.start();
    SuiteProbe probe;
    probe.services = Poller::snapshot();
    probe.installedVersion = readInstalledVersion();
    probe.latestVersion = readLatestVersion();
    probe.certificates = certStatus();
    probe.seconds = double(clock.nsecsElapsed()) / 1e9;
    probe.finishedUtc = QDateTime::currentDateTimeUtc();
    return probe;
}

}  // namespace varnel
