#pragma once

#include <QString>

#include "monitor/health.h"

namespace varnel {

struct CertStatus {
    Health health = Health::unknown;
    QString detail;
};

// Whether the system trusts the suite's deployed CA certificates for SSL:
// `running` when all are, `attention` when some are not, `stopped` when none are
// deployed. Runs one verification per certificate, one after another; blocks.
CertStatus certStatus();

}  // namespace varnel
