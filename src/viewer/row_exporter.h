#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QThreadPool>
#include <functional>

#include "logs/row_export.h"

class QWidget;

namespace varnel {

// Export of the rows a window shows: asks for a file (the dialog's object
// name is exportDialog), takes the content in the chosen format at once, and
// writes it atomically on a lane of its own, so a slow disk never holds up the
// window. A failure to write is told in a message box named exportError.
class RowExporter : public QObject {
    Q_OBJECT
public:
    using Content = std::function<QByteArray(ExportFormat)>;

    RowExporter(QWidget* window, Content content);
    ~RowExporter() override;

    // `suggestedName` is the file name the dialog offers.
    void chooseFile(const QString& suggestedName);
    void exportTo(const QString& fileName);

signals:
    // After the file was written (`error` empty) or not.
    void finished(const QString& fileName, const QString& error);

private:
    QWidget* window_;
    Content content_;
    QThreadPool lane_;
};

}  // namespace varnel
