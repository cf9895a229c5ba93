#include "logs/log_encoding.h"

#include <optional>

#include "logs/utf8.h"

namespace varnel::LogEncoding {

namespace {

// Strict: an odd byte count or a lone surrogate is not UTF-16.
std::optional<QString> decodeUtf16(QByteArrayView bytes, bool little) {
    if (bytes.size() % 2 != 0) return std::nullopt;
    QString text(bytes.size() / 2, Qt::Uninitialized);
    char16_t* out = reinterpret_cast<char16_t*>(text.data());
    const auto* in = reinterpret_cast<const uchar*>(bytes.data());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const uchar a = in[2 * i];
        const uchar b = in[2 * i + 1];
        out[i] = little ? char16_t(a | (b << 8)) : char16_t((a << 8) | b);
    }
    if (!QStringView(text).isValidUtf16()) return std::nullopt;
    return text;
}

char16_t unitAt(QByteArrayView bytes, qsizetype at, Kind kind) {
    const auto a = uchar(bytes[at]);
    const auto b = uchar(bytes[at + 1]);
    return kind == Kind::utf16le ? char16_t(a | (b << 8)) : char16_t((a << 8) | b);
}

}  // namespace

Kind detect(QByteArrayView head) {
    if (head.size() >= 2 && uchar(head[0]) == 0xFF && uchar(head[1]) == 0xFE) return Kind::utf16le;
    if (head.size() >= 2 && uchar(head[0]) == 0xFE && uchar(head[1]) == 0xFF) return Kind::utf16be;
    return Kind::utf8;
}

bool undecided(QByteArrayView head) {
    return head.size() == 1 && (uchar(head[0]) == 0xFF || uchar(head[0]) == 0xFE);
}

qsizetype wholeLinesEnd(QByteArrayView bytes, Kind kind) {
    if (kind == Kind::utf8) return bytes.lastIndexOf('\n') + 1;
    for (qsizetype at = (bytes.size() & ~qsizetype(1)) - 2; at >= 0; at -= 2)
        if (unitAt(bytes, at, kind) == u'\n') return at + 2;
    return 0;
}

qsizetype characterBoundary(QByteArrayView bytes, Kind kind) {
    qsizetype end = bytes.size();
    if (kind == Kind::utf8) {
        // Back over continuation bytes to the lead byte; the character before it is whole.
        if (end == 0) return 0;
        qsizetype lead = end - 1;
        while (lead > 0 && end - lead < 4 && (uchar(bytes[lead]) & 0xC0) == 0x80) --lead;
        const uchar c = uchar(bytes[lead]);
        const qsizetype length = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
        return end - lead >= length ? end : lead;
    }
    end &= ~qsizetype(1);
    if (end >= 2 && QChar::isHighSurrogate(unitAt(bytes, end - 2, kind))) end -= 2;
    return end;
}

QString decode(QByteArrayView bytes, Kind kind) {
    std::optional<QString> text;
    if (kind != Kind::utf8) text = decodeUtf16(bytes, kind == Kind::utf16le);
    if (!text) text = QString::fromUtf8(bytes);
    if (text->contains(QChar::ByteOrderMark)) text->remove(QChar::ByteOrderMark);
    return std::move(*text);
}

QByteArray toUtf8(QByteArray bytes, Kind kind) {
    if (kind == Kind::utf8) return bytes;
    return utf8::encode(decode(bytes, kind));
}

}  // namespace varnel::LogEncoding
