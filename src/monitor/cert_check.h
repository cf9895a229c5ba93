#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <optional>
#include <vector>

#include "monitor/health.h"
#include "platform/tool_session.h"

namespace varnel {

struct CertStatus {
    Health health = Health::unknown;
    QString detail;
    // The counts behind the detail, for consumers that chart or threshold them.
    int trusted = 0;
    int deployed = 0;
};

// Whether the system trusts the suite's deployed CA certificates for SSL:
// `running` when all are, `attention` when some are not, `stopped` when none are
// deployed. Verifies the certificates one after another, each with its own
// tool run; blocks.
CertStatus certStatus();

// The same check as a job that can run beside others. The folder and the files
// are read when this is made; the job verifies each deployed certificate in
// name order, as session part `firstPart` plus its place in that order. Read
// `result()` once the job has ended.
class CertCheck {
public:
    CertCheck(ToolSession& session, int firstPart);
    std::vector<std::function<void()>> jobs();
    CertStatus result() const;

private:
    ToolSession& session_;
    int firstPart_;
    std::optional<CertStatus> early_;  // decided without a tool: nothing to verify
    QStringList deployed_;             // file names, in the order they are verified
    std::vector<char> trusted_;        // one verdict per deployed file
};

}  // namespace varnel
