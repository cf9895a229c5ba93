#include "platform/processor.h"

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace varnel::processor {

namespace {

bool askAvx2() {
#if defined(__x86_64__) || defined(__i386__)
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & bit_OSXSAVE) == 0 || (c & bit_AVX) == 0)
        return false;
    // The system must save the vector registers' upper halves (XCR0 bits 1 and 2).
    unsigned low = 0;
    unsigned high = 0;
    __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    if ((low & 6u) != 6u) return false;
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & bit_AVX2) != 0;
#else
    return false;
#endif
}

}  // namespace

bool hasAvx2() {
    static const bool has = askAvx2();
    return has;
}

}  // namespace varnel::processor
