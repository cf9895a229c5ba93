#include "status/suite_probe.h"

#include <QElapsedTimer>

#include "monitor/poller.h"
#include "platform/background.h"
#include "update/version.h"

namespace varnel {

SuiteProbe probeSuite(const ProbeOptions& options) {
    QElapsedTimer clock;
    clock.start();
    ToolSession session(options.keepTranscript);
    Poller::SnapshotParts services(session);
    SuiteProbe probe;
    probe.installedVersion = readInstalledVersion();
    probe.latestVersion = readLatestVersion();
    CertCheck certificates(session, services.partCount());

    std::vector<std::function<void()>> jobs = services.jobs();
    for (auto& job : certificates.jobs()) jobs.push_back(std::move(job));
    if (options.lane != nullptr)
        allAtOnce(*options.lane, jobs);
    else
        allAtOnce(jobs);

    probe.services = services.statuses();
    probe.certificates = certificates.result();
    probe.transcript = session.transcript();
    probe.seconds = double(clock.nsecsElapsed()) / 1e9;
    probe.finishedUtc = QDateTime::currentDateTimeUtc();
    return probe;
}

}  // namespace varnel
