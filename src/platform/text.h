#pragma once

#include <QByteArrayView>
#include <QString>
#include <QStringView>
#include <optional>

// Small text rules more than one layer needs, so that each is written once.
namespace varnel::text {

enum class Bom { skip, keep };

// Bytes as strict UTF-8: the text, or nothing when any sequence is invalid or
// incomplete. A leading byte-order mark is dropped unless kept as a character.
std::optional<QString> decodeUtf8Strict(QByteArrayView bytes, Bom bom = Bom::skip);

// Blanks are spaces (general category Zs) and tab; line ends are not blanks.
bool isBlank(QChar c);
QStringView trimBlanks(QStringView text);
bool isBlankOnly(QStringView text);

}  // namespace varnel::text
