#include "logs/log_text.h"

#include "logs/utf8.h"

namespace varnel {

LogText::LogText(QByteArrayView utf8)
    : store_(std::make_shared<ByteStore>(utf8.size())), end_(utf8.size()) {
    store_->append(utf8);
}

QString LogText::toString() const {
    return utf8::decode(bytes());
}

}  // namespace varnel
