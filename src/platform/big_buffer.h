#pragma once

#include <QtGlobal>

namespace varnel {

// Memory for a few large buffers that are filled once and read many times (a
// log's text and its rows). Where the system can back it with large pages it
// does, which spares a fault for every small page a fresh buffer is first
// written to; nothing depends on whether it could. The contents start out
// unspecified. Move-only.
class BigBuffer {
public:
    BigBuffer() = default;
    // Throws std::bad_alloc when the memory cannot be had, as new does.
    explicit BigBuffer(qsizetype bytes);
    ~BigBuffer();
    BigBuffer(BigBuffer&& other) noexcept;
    BigBuffer& operator=(BigBuffer&& other) noexcept;
    BigBuffer(const BigBuffer&) = delete;
    BigBuffer& operator=(const BigBuffer&) = delete;

    char* data() const { return data_; }
    qsizetype size() const { return size_; }

    // At least `bytes` bytes, the first `keep` of them as they were. The
    // buffer may move.
    void grow(qsizetype bytes, qsizetype keep);

private:
    void release();

    char* data_ = nullptr;
    qsizetype size_ = 0;
    qsizetype mapped_ = 0;  // bytes mapped when the memory is a mapping of its own; 0 otherwise
};

}  // namespace varnel
