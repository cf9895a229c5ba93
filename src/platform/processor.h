#pragma once

namespace varnel::processor {

// Whether the processor has AVX2 and the system saves its registers: the
// wider vector steps of the log pipeline may run. Asked on first use, not at
// start-up: finding out leaves a virtual machine, which costs a start a
// tenth of a millisecond where no log is read.
bool hasAvx2();

}  // namespace varnel::processor
