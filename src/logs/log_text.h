#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QUtf8StringView>
#include <cstring>
#include <memory>

#include "platform/big_buffer.h"

namespace varnel {

// Bytes that are only ever appended to. Versions of a log's rows share one
// store, each knowing where its own bytes end: a version may append only when
// its end is the store's end and the capacity holds the bytes, so bytes never
// move while anything views them. While a store is private to its builder it
// may grow, and then it moves.
class ByteStore {
public:
    explicit ByteStore(qsizetype capacity = 0) : memory_(capacity) {}

    const char* data() const { return memory_.data(); }
    char* data() { return memory_.data(); }
    qsizetype size() const { return size_; }
    qsizetype capacity() const { return memory_.size(); }

    // `more` bytes can be appended after `end` without moving anything.
    bool roomAfter(qsizetype end, qsizetype more) const {
        return size_ == end && capacity() - size_ >= more;
    }

    // Room for `more` bytes at the end, growing (and moving) when needed; the
    // caller fills them.
    char* extend(qsizetype more) {
        if (capacity() - size_ < more)
            memory_.grow(qMax(size_ + more, capacity() + capacity() / 2 + 256), size_);
        char* at = memory_.data() + size_;
        size_ += more;
        return at;
    }
    // Where the appended bytes start.
    qsizetype append(QByteArrayView bytes) {
        const qsizetype at = size_;
        if (!bytes.isEmpty()) std::memcpy(extend(bytes.size()), bytes.data(), size_t(bytes.size()));
        return at;
    }
    void truncate(qsizetype size) { size_ = qMin(size, size_); }

private:
    BigBuffer memory_;
    qsizetype size_ = 0;
};

// Log text as UTF-8 bytes, read leniently wherever it is turned into text: a
// byte that is not part of a valid sequence reads as U+FFFD, and every U+FEFF
// is dropped. Copies share the bytes.
class LogText {
public:
    LogText() = default;
    explicit LogText(QByteArrayView utf8);
    // `lineFeeds`, when the reader counted them, is how many the bytes hold.
    LogText(std::shared_ptr<ByteStore> store, qsizetype begin, qsizetype end,
            qsizetype lineFeeds = -1)
        : store_(std::move(store)), begin_(begin), end_(end), lineFeeds_(lineFeeds) {}

    QByteArrayView bytes() const {
        return store_ ? QByteArrayView(store_->data() + begin_, end_ - begin_) : QByteArrayView();
    }
    qsizetype size() const { return end_ - begin_; }
    bool isEmpty() const { return size() == 0; }
    // The first `n` bytes.
    LogText left(qsizetype n) const {
        return n >= size() ? *this : LogText(store_, begin_, begin_ + qMax<qsizetype>(n, 0));
    }
    QString toString() const;

    const std::shared_ptr<ByteStore>& store() const { return store_; }
    qsizetype begin() const { return begin_; }
    // The line feeds in the bytes, or -1 when nobody counted them.
    qsizetype lineFeeds() const { return lineFeeds_; }

private:
    std::shared_ptr<ByteStore> store_;
    qsizetype begin_ = 0;
    qsizetype end_ = 0;
    qsizetype lineFeeds_ = -1;
};

}  // namespace varnel
