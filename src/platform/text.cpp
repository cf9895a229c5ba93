#include "platform/text.h"

#include <QStringDecoder>

namespace varnel::text {

std::optional<QString> decodeUtf8Strict(QByteArrayView bytes, Bom bom) {
    if (bytes.isEmpty()) return QString();
    QStringDecoder decoder(QStringConverter::Utf8, bom == Bom::keep
                                                       ? QStringConverter::Flag::ConvertInitialBom
                                                       : QStringConverter::Flag::Default);
    QString out = decoder.decode(bytes);
    if (decoder.hasError()) return std::nullopt;
    return out;
}

bool isBlank(QChar c) {
    if (c.unicode() < 0x80) return c == u' ' || c == u'\t';
    return c.category() == QChar::Separator_Space;
}

QStringView trimBlanks(QStringView text) {
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isBlank(text[begin])) ++begin;
    while (end > begin && isBlank(text[end - 1])) --end;
    return text.sliced(begin, end - begin);
}

bool isBlankOnly(QStringView text) {
    for (const QChar c : text)
        if (!isBlank(c)) return false;
    return true;
}

}  // namespace varnel::text
