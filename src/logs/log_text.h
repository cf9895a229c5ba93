#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QUtf8StringView>
#include <cstring>
#include <memory>

#include "platform/big_buffer.h"

namespace varnel {

// Memory for two stretches written at the same time, one growing up from its
// start and one taken piece by piece down from its end: a load's side text
// and its row blocks. Together they touch the large pages they need between
// them, where each in memory of its own would start a page of its own. One
// writer at a time; what either stretch holds never moves.
class TwoEndedRoom {
public:
    explicit TwoEndedRoom(qsizetype bytes) : memory_(bytes), top_(memory_.size()) {}
    TwoEndedRoom(const TwoEndedRoom&) = delete;
    TwoEndedRoom& operator=(const TwoEndedRoom&) = delete;

    char* data() const { return memory_.data(); }
    // How far the lower stretch may grow while the upper one stays as it is.
    qsizetype lowerLimit() const { return top_; }
    // The lower stretch to `bytes` in all; false where the upper one lies.
    bool growLower(qsizetype bytes) {
        if (bytes > top_) return false;
        lower_ = qMax(lower_, bytes);
        return true;
    }
    // `bytes` more below the upper stretch, or nullptr where the lower one lies.
    char* takeUpper(qsizetype bytes) {
        if (top_ - lower_ < bytes) return nullptr;
        top_ -= bytes;
        return memory_.data() + top_;
    }
    bool holds(const void* p) const {
        const char* c = static_cast<const char*>(p);
        return c >= memory_.data() && c < memory_.data() + memory_.size();
    }

private:
    BigBuffer memory_;
    qsizetype lower_ = 0;
    qsizetype top_;
};

// Bytes that are only ever appended to. Versions of a log's rows share one
// store, each knowing where its own bytes end: a version may append only when
// its end is the store's end and the capacity holds the bytes, so bytes never
// move while anything views them. While a store is private to its builder it
// may grow, and then it moves.
class ByteStore {
public:
    explicit ByteStore(qsizetype capacity = 0) : memory_(capacity), data_(memory_.data()) {}
    // Bytes in the lower stretch of `room` while it has space for them; then
    // they move to memory of their own, of `then` bytes at least.
    ByteStore(std::shared_ptr<TwoEndedRoom> room, qsizetype then)
        : room_(std::move(room)), data_(room_->data()), then_(then) {}

    const char* data() const { return data_; }
    char* data() { return data_; }
    qsizetype size() const { return size_; }
    qsizetype capacity() const { return room_ ? room_->lowerLimit() : memory_.size(); }

    // `more` bytes can be appended after `end` without moving anything.
    bool roomAfter(qsizetype end, qsizetype more) const {
        return size_ == end && capacity() - size_ >= more;
    }

    // Room for `more` bytes at the end, growing (and moving) when needed; the
    // caller fills them.
    char* extend(qsizetype more) {
        if (room_ ? !room_->growLower(size_ + more) : memory_.size() - size_ < more)
            grow(size_ + more);
        char* at = data_ + size_;
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
    void grow(qsizetype needed);

    BigBuffer memory_;
    std::shared_ptr<TwoEndedRoom> room_;  // while the bytes are in a room's lower stretch
    char* data_;
    qsizetype then_ = 0;
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
