#pragma once

#include "monitor/health.h"

// One letter per health, so tables of states read as tables.
namespace varnel::letters {
inline constexpr Health R = Health::running, S = Health::stopped, I = Health::inactive,
                        A = Health::attention, U = Health::unknown;
}  // namespace varnel::letters
