#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <QThreadPool>

#include "monitor/catalogue.h"
#include "monitor/cert_check.h"
#include "platform/tool_session.h"

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
    // Every tool call, in the order a one-at-a-time probe would have started
    // them, whatever ran at once; empty unless asked for.
    QList<ToolCall> transcript;
};

struct ProbeOptions {
    bool keepTranscript = false;
    // A lane to run the parts on, kept by a caller that probes often so that
    // its threads are not made anew each time (about a millisecond of CPU
    // here). It needs a thread for each part (a dozen) and must not be the
    // lane the caller itself runs on. Without one, the probe makes its own.
    QThreadPool* lane = nullptr;
};

// The services and the certificates are probed at once, each part asking its
// tools in its own order, and a question several parts share (is "varnel"
// running?) is asked once. Blocks for about as long as the slowest part's
// tools take, bounded by their time-outs. Runs its parts on a thread pool of
// its own unless given one, so it may be called from any thread, a pool's
// included.
SuiteProbe probeSuite(const ProbeOptions& options = {});

}  // namespace varnel
