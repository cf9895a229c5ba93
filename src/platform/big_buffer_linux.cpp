#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "platform/big_buffer.h"

namespace varnel {

namespace {

// Transparent huge pages come in this size on the processors we run on.
constexpr qsizetype kHugePage = qsizetype(2) << 20;

qsizetype roundUp(qsizetype bytes, qsizetype unit) {
    return (bytes + unit - 1) / unit * unit;
}

// A mapping aligned to a huge page, so that the kernel can give it huge pages
// from its first byte on when its mode allows it (madvise or always).
char* mapAligned(qsizetype bytes) {
    const qsizetype padded = bytes + kHugePage;
    void* raw =
        ::mmap(nullptr, size_t(padded), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) return nullptr;
    auto* start = static_cast<char*>(raw);
    // Moved forward within the mapping, so the pointer keeps where it came from.
    const auto misalignment = qsizetype(reinterpret_cast<quintptr>(start) % quintptr(kHugePage));
    char* aligned = misalignment == 0 ? start : start + (kHugePage - misalignment);
    if (aligned > start) ::munmap(start, size_t(aligned - start));
    char* end = start + padded;
    if (end > aligned + bytes) ::munmap(aligned + bytes, size_t(end - (aligned + bytes)));
    // Only advice: a kernel without huge pages ignores it.
    ::madvise(aligned, size_t(bytes), MADV_HUGEPAGE);
    return aligned;
}

}  // namespace

BigBuffer::BigBuffer(qsizetype bytes) {
    if (bytes <= 0) return;
    // Small buffers gain nothing from a mapping of their own. From half a huge
    // page up, one huge page costs less than the faults of its small pages.
    if (bytes < kHugePage / 2) {
        data_ = static_cast<char*>(std::malloc(size_t(bytes)));
        if (data_ == nullptr) throw std::bad_alloc();
        size_ = bytes;
        return;
    }
    const qsizetype mapped = roundUp(bytes, kHugePage);
    data_ = mapAligned(mapped);
    if (data_ == nullptr) throw std::bad_alloc();
    size_ = mapped;
    mapped_ = mapped;
}

BigBuffer::~BigBuffer() {
    release();
}

BigBuffer::BigBuffer(BigBuffer&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      mapped_(std::exchange(other.mapped_, 0)) {}

BigBuffer& BigBuffer::operator=(BigBuffer&& other) noexcept {
    if (this != &other) {
        release();
        data_ = std::exchange(other.data_, nullptr);
        size_ = std::exchange(other.size_, 0);
        mapped_ = std::exchange(other.mapped_, 0);
    }
    return *this;
}

void BigBuffer::grow(qsizetype bytes, qsizetype keep) {
    if (bytes <= size_) return;
    BigBuffer bigger(bytes);
    if (keep > 0) std::memcpy(bigger.data_, data_, size_t(qMin(keep, size_)));
    *this = std::move(bigger);
}

void BigBuffer::release() {
    if (data_ == nullptr) return;
    if (mapped_ > 0)
        ::munmap(data_, size_t(mapped_));
    else
        std::free(data_);
    data_ = nullptr;
    size_ = 0;
    mapped_ = 0;
}

}  // namespace varnel
