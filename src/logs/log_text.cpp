#include "logs/log_text.h"

#include "logs/utf8.h"

namespace varnel {

LogText::LogText(QByteArrayView utf8)
    : store_(std::make_shared<ByteStore>(utf8.size())), end_(utf8.size()) {
    store_->append(utf8);
}

void ByteStore::grow(qsizetype needed) {
    const qsizetype grown = capacity() + capacity() / 2 + 256;
    if (room_) {
        // Out of the room into memory of its own. What was written in the
        // room stays there, unread, until the room goes.
        BigBuffer own(qMax(needed, qMax(then_, grown)));
        if (size_ > 0) std::memcpy(own.data(), data_, size_t(size_));
        memory_ = std::move(own);
        room_.reset();
    } else {
        memory_.grow(qMax(needed, grown), size_);
    }
    data_ = memory_.data();
}

QString LogText::toString() const {
    return utf8::decode(bytes());
}

}  // namespace varnel
