#pragma once

#include <QString>

#include "platform/system_color.h"

namespace varnel {

// The five states every probe reports in.
enum class Health { running, stopped, inactive, attention, unknown };

// The text shown to people: "Running", "Idle", "Needs attention", ...
QString label(Health health);

// The case name ("running", "inactive", ...), the stable word scripts see in JSON.
QString caseName(Health health);

// The colour a health is drawn in. `inactive` and `unknown` share grey.
SystemColor color(Health health);

}  // namespace varnel
