#include "viewer/row_exporter.h"

#include <QDir>
#include <QFileDialog>
#include <QMessageBox>
#include <QSaveFile>
#include <QStandardPaths>

#include "platform/background.h"

namespace varnel {

namespace {

const QString rawFilter = QStringLiteral("Log lines (*.log)");
const QString csvFilter = QStringLiteral("CSV (*.csv)");

// The whole file or nothing: a half-written export must never look done.
QString writeAtomically(const QString& fileName, const QByteArray& bytes) {
    QSaveFile file(fileName);
    if (!file.open(QIODevice::WriteOnly)) return file.errorString();
    if (file.write(bytes) != bytes.size()) return file.errorString();
    if (!file.commit()) return file.errorString();
    return {};
}

}  // namespace

RowExporter::RowExporter(QWidget* window, Content content)
    : QObject(window), window_(window), content_(std::move(content)) {
    lane_.setMaxThreadCount(1);
}

RowExporter::~RowExporter() {
    lane_.waitForDone();
}

void RowExporter::chooseFile(const QString& suggestedName) {
    auto* dialog = new QFileDialog(window_, QStringLiteral("Export Visible Rows"));
    dialog->setObjectName(QStringLiteral("exportDialog"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setNameFilters({rawFilter, csvFilter});
    dialog->setDefaultSuffix(QStringLiteral("log"));
    dialog->setDirectory(QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation));
    dialog->selectFile(suggestedName);
    connect(dialog, &QFileDialog::filterSelected, dialog, [dialog](const QString& filter) {
        dialog->setDefaultSuffix(filter == csvFilter ? QStringLiteral("csv")
                                                     : QStringLiteral("log"));
    });
    connect(dialog, &QFileDialog::fileSelected, this, &RowExporter::exportTo);
    // open(), not exec(): a sheet on macOS, and the caller returns at once.
    dialog->open();
}

void RowExporter::exportTo(const QString& fileName) {
    QByteArray bytes = content_(exportFormatFor(fileName));
    inBackground(
        lane_, this,
        [fileName, bytes = std::move(bytes)] { return writeAtomically(fileName, bytes); },
        [this, fileName](const QString& error) {
            if (!error.isEmpty()) {
                auto* box = new QMessageBox(QMessageBox::Warning, QStringLiteral("Export failed"),
                                            QStringLiteral("The rows could not be written to %1.")
                                                .arg(QDir::toNativeSeparators(fileName)),
                                            QMessageBox::Ok, window_);
                box->setObjectName(QStringLiteral("exportError"));
                box->setInformativeText(error);
                box->setAttribute(Qt::WA_DeleteOnClose);
                box->open();
            }
            emit finished(fileName, error);
        });
}

}  // namespace varnel
