#include <cstdlib>
#include <new>
#include <utility>

#include "platform/big_buffer.h"

// The system's allocator maps large blocks by itself, and its pages are cheap
// to fault in: nothing to gain from a mapping of our own.
namespace varnel {

BigBuffer::BigBuffer(qsizetype bytes) {
    if (bytes <= 0) return;
    data_ = static_cast<char*>(std::malloc(size_t(bytes)));
    if (data_ == nullptr) throw std::bad_alloc();
    size_ = bytes;
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
    (void)keep;  // realloc keeps everything
    auto* bigger = static_cast<char*>(std::realloc(data_, size_t(bytes)));
    if (bigger == nullptr) throw std::bad_alloc();
    data_ = bigger;
    size_ = bytes;
}

void BigBuffer::release() {
    std::free(data_);
    data_ = nullptr;
    size_ = 0;
    mapped_ = 0;
}

}  // namespace varnel
