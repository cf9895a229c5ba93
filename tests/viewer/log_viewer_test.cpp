#include "viewer/log_viewer.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFontDatabase>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTableView>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <functional>

#include "logs/row_height.h"
#include "platform/file_reveal.h"
#include "platform/sandbox.h"
#include "ui/system_palette.h"
#include "viewer/log_table_model.h"
#include "viewer/message_layout.h"

void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}

using namespace varnel;

namespace {

// sandbox::root() is read once per process: one root for the binary, set
// before anything reads it and emptied before every test.
const QTemporaryDir suiteDir;
[[maybe_unused]] const bool rootSet = qputenv("VARNEL_ROOT", suiteDir.path().toUtf8());

const QString agentOut = QStringLiteral("/Library/Logs/Varnel/agent.stdout.log");
const QString agentErr = QStringLiteral("/Library/Logs/Varnel/agent.stderr.log");

void writeLog(const QString& suitePath, const QString& text, bool append = false) {
    const QString host = sandbox::hostPath(suitePath);
    QDir().mkpath(QFileInfo(host).path());
    QFile file(host);
    ASSERT_TRUE(file.open(append ? QIODevice::Append : QIODevice::WriteOnly));
    file.write(text.toUtf8());
}

QString numberedLines(int from, int count, const char* level = "INFO") {
    QString text;
    for (int i = from; i < from + count; ++i)
        text += QStringLiteral("2024-05-01 10:00:00 %1 line %2\n").arg(QLatin1String(level)).arg(i);
    return text;
}

bool waitFor(const std::function<bool()>& done, int ms = 5000) {
    QDeadlineTimer deadline(ms);
    while (!done()) {
        if (deadline.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

class LogViewerTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(sandbox::root(), QDir::cleanPath(suiteDir.path()));
        for (const char* top : {"Library", "var", "usr"})
            QDir(sandbox::hostPath(QStringLiteral("/") + top)).removeRecursively();
    }

    template <typename T>
    T* child(const char* name) const {
        T* found = viewer.window()->findChild<T*>(QLatin1String(name));
        EXPECT_NE(found, nullptr) << name;
        return found;
    }
    QTableView* table() const { return child<QTableView>("table"); }
    QString status() const { return child<QLabel>("statusLine")->text(); }
    int rows() const { return table()->model()->rowCount(); }
    QString cell(int row, int column) const {
        return table()->model()->index(row, column).data().toString();
    }
    QList<int> selectedRows() const {
        QList<int> out;
        for (const QModelIndex& i : table()->selectionModel()->selectedRows()) out.append(i.row());
        return out;
    }
    bool lastRowVisible() const {
        const int bottom = table()->rowAt(table()->viewport()->height() - 1);
        return bottom == rows() - 1 || bottom == -1;
    }

    LogViewer viewer;
};

TEST_F(LogViewerTest, OneWindowOpensTheGivenLogOrTheFirstAndSaysWhenThereIsNone) {
    EXPECT_EQ(viewer.window(), nullptr);
    viewer.show(agentErr);
    QWidget* window = viewer.window();
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(window->windowTitle(), QStringLiteral("Varnel Logs"));
    auto* popup = child<QComboBox>("logPopup");
    EXPECT_EQ(popup->count(), 1);
    EXPECT_EQ(popup->itemText(0), QStringLiteral("No logs found"));
    EXPECT_EQ(rows(), 0);
    EXPECT_EQ(status(), QStringLiteral("No Varnel logs found yet."));
    EXPECT_TRUE(waitFor([&] { return child<QLineEdit>("searchField")->hasFocus(); }));

    // A known log that is a folder is listed, and cannot be read as a file.
    ASSERT_TRUE(QDir().mkpath(sandbox::hostPath(agentOut)));
    writeLog(agentErr, numberedLines(0, 400, "ERROR"));
    window->close();
    viewer.show(agentErr);
    EXPECT_EQ(viewer.window(), window);
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(popup->itemText(0), QStringLiteral("Agent — output"));
    EXPECT_EQ(popup->currentText(), QStringLiteral("Agent — errors"));
    EXPECT_EQ(rows(), 400);
    EXPECT_GT(table()->verticalScrollBar()->value(), 0);
    EXPECT_TRUE(lastRowVisible());

    // The message column takes the rest of the width, and only it.
    QHeaderView* header = table()->horizontalHeader();
    for (const int width : {1000, 1200}) {
        window->resize(width, 600);
        QCoreApplication::processEvents();
        const QList<int> sizes{header->sectionSize(0), header->sectionSize(1),
                               header->sectionSize(2), header->sectionSize(3)};
        EXPECT_EQ(sizes, (QList<int>{175, 62, 160, table()->viewport()->width() - 397}));
    }

    viewer.show(QStringLiteral("/nowhere.log"));
    EXPECT_EQ(popup->currentIndex(), 0);
    ASSERT_EQ(rows(), 1);
    EXPECT_EQ((QStringList{cell(0, 0), cell(0, 1), cell(0, 2), cell(0, 3)}),
              (QStringList{"", "WARN", "",
                           "Cannot read this log (permission denied). Try ‘Open Logs Folder’."}));
    EXPECT_EQ(status(), QStringLiteral("1 of 1 lines · ") + agentOut);
    // The error row filters like any other.
    child<QComboBox>("levelPopup")->setCurrentText(QStringLiteral("ERROR"));
    EXPECT_EQ(status(), QStringLiteral("0 of 1 lines · ") + agentOut);
    popup->setCurrentIndex(1);
    EXPECT_EQ(status(), QStringLiteral("400 of 400 lines · ") + agentErr);
}

TEST_F(LogViewerTest, LevelAndSearchNarrowTheTableColourItAndSurviveAnotherShow) {
    const QString log = QStringLiteral(
        "2024-05-01 10:00:00 [proxy] INFO Accepted tunnel\n"
        "2024-05-01 10:00:01 [proxy] WARN slow handshake\n"
        "2024-05-01 10:00:02 [tls] ERROR handshake failed\n    at tls.Handshake(conn:12)\n"
        "2024-05-01 10:00:03 [core] FATAL giving up\n");
    writeLog(agentOut, log);
    viewer.show();
    const QAbstractItemModel* model = table()->model();
    auto colours = [&](int row) {
        QList<QColor> out;
        for (int c = 0; c < 4; ++c)
            out.append(model->index(row, c).data(Qt::ForegroundRole).value<QColor>());
        return out;
    };
    const QColor grey = resolve(SystemColor::secondaryLabel);
    const QColor red = resolve(SystemColor::red);
    EXPECT_EQ(colours(1), (QList<QColor>{grey, resolve(SystemColor::orange), grey,
                                         resolve(SystemColor::label)}));
    EXPECT_EQ(colours(2), (QList<QColor>{grey, red, grey, red}));
    EXPECT_EQ(model->index(2, 3).data(Qt::ToolTipRole).toString(),
              QStringLiteral("2024-05-01 10:00:02 [tls] ERROR handshake failed\n"
                             "    at tls.Handshake(conn:12)"));
    // Copy gives the lines as logged, not as the table shows them.
    table()->selectAll();
    QKeyEvent copy(QEvent::KeyPress, Qt::Key_C, Qt::ControlModifier);
    QApplication::sendEvent(table(), &copy);
    EXPECT_EQ(QGuiApplication::clipboard()->text(), log.chopped(1));

    auto* levels = child<QComboBox>("levelPopup");
    auto* search = child<QLineEdit>("searchField");
    levels->setCurrentText(QStringLiteral("WARN"));  // exact, not a threshold
    EXPECT_EQ(rows(), 1);
    EXPECT_EQ(cell(0, 3), QStringLiteral("slow handshake"));
    levels->setCurrentText(QStringLiteral("All levels"));

    search->setText(QStringLiteral("HANDSHAKE"));
    EXPECT_EQ(status(), QStringLiteral("2 of 4 lines · ") + agentOut);
    search->setText(QStringLiteral("tls"));  // the source and the folded frame count
    EXPECT_EQ(rows(), 1);
    EXPECT_EQ(cell(0, 3), QStringLiteral("handshake failed  ⟶  at tls.Handshake(conn:12)"));

    levels->setCurrentText(QStringLiteral("ERROR"));
    viewer.window()->close();
    viewer.show();
    EXPECT_EQ(levels->currentText(), QStringLiteral("ERROR"));
    EXPECT_EQ(search->text(), QStringLiteral("tls"));
    EXPECT_EQ(rows(), 1);

    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QApplication::sendEvent(search, &escape);
    EXPECT_EQ(search->text(), QString());
    EXPECT_EQ(status(), QStringLiteral("1 of 4 lines · ") + agentOut);  // ERROR alone
}

TEST_F(LogViewerTest, FollowAddsWhatWasAppendedWithoutResettingTheTableUntilClosed) {
    writeLog(agentOut, numberedLines(0, 20) + QStringLiteral("2024-05-01 11:00:00 ERROR boom\n"));
    viewer.show();
    child<QComboBox>("levelPopup")->setCurrentText(QStringLiteral("ERROR"));
    ASSERT_EQ(rows(), 1);
    table()->selectRow(0);
    int resets = 0;
    QObject::connect(table()->model(), &QAbstractItemModel::modelReset, [&] { ++resets; });
    auto* timer = viewer.findChild<QTimer*>(QStringLiteral("followTimer"));
    EXPECT_FALSE(timer->isActive());
    timer->setInterval(20);
    child<QCheckBox>("followCheck")->setChecked(true);
    EXPECT_TRUE(timer->isActive());

    // A frame folds into the shown row; of the new rows only the errors show,
    // and the view moves to the last.
    writeLog(agentOut,
             QStringLiteral("    at tls.Handshake(conn:12)\n") + numberedLines(21, 4) +
                 numberedLines(25, 60, "ERROR"),
             true);
    ASSERT_TRUE(waitFor([&] { return rows() == 61; }));
    EXPECT_EQ(resets, 0);
    EXPECT_EQ(cell(0, 3), QStringLiteral("boom  \u27F6  at tls.Handshake(conn:12)"));
    EXPECT_EQ(cell(60, 3), QStringLiteral("line 84"));
    EXPECT_EQ(selectedRows(), QList<int>{0});
    EXPECT_EQ(status(), QStringLiteral("61 of 85 lines · ") + agentOut);
    EXPECT_GT(table()->verticalScrollBar()->value(), 0);
    EXPECT_TRUE(lastRowVisible());

    // A file cut short is read whole again.
    writeLog(agentOut, QStringLiteral("2024-05-01 12:00:00 ERROR fresh\n"));
    ASSERT_TRUE(waitFor([&] { return rows() == 1 && cell(0, 3) == QStringLiteral("fresh"); }));
    EXPECT_GE(resets, 1);
    EXPECT_EQ(status(), QStringLiteral("1 of 1 lines · ") + agentOut);

    viewer.window()->close();
    EXPECT_FALSE(timer->isActive());
    writeLog(agentOut, numberedLines(0, 5, "ERROR"), true);
    waitFor([] { return false; }, 100);
    EXPECT_EQ(rows(), 1);
    viewer.show();
    EXPECT_FALSE(child<QCheckBox>("followCheck")->isChecked());
    EXPECT_FALSE(timer->isActive());
}

TEST_F(LogViewerTest, ReloadReadsAgainWithoutMovingTheView) {
    // Wrapped rows are measured again after the read; the view must not slide.
    writeLog(agentOut, numberedLines(0, 500).replace(u'\n', QStringLiteral(" and more\n")));
    viewer.show();
    child<QCheckBox>("wrapCheck")->setChecked(true);
    table()->horizontalHeader()->resizeSection(LogTableModel::sourceColumn, 700);
    ASSERT_TRUE(waitFor([&] { return table()->rowHeight(0) > 40; }));
    QScrollBar* bar = table()->verticalScrollBar();
    bar->setValue(bar->maximum() / 2);
    const int middle = bar->value();
    table()->selectRow(table()->rowAt(0) + 1);
    const QString selectedLine = cell(selectedRows().value(0), 3);

    writeLog(agentOut, numberedLines(500, 20), true);
    child<QPushButton>("reloadButton")->click();
    EXPECT_EQ(rows(), 520);
    EXPECT_EQ(bar->value(), middle);
    ASSERT_EQ(selectedRows().size(), 1);
    EXPECT_EQ(cell(selectedRows()[0], 3), selectedLine);
    bar->setValue(bar->maximum() - 30);
    const int nearEnd = bar->value();
    child<QPushButton>("reloadButton")->click();
    EXPECT_EQ(bar->value(), nearEnd);
}

TEST_F(LogViewerTest, WrapGrowsLongRowsByTheMessageColumnsWidth) {
    const QString longMessage =
        QStringLiteral("certificate chain rejected ").repeated(12).trimmed();
    writeLog(agentOut,
             QStringLiteral("2024-05-01 10:00:00 INFO short\n2024-05-01 10:00:01 ERROR ") +
                 longMessage + u'\n');
    viewer.show();
    QTableView* t = table();
    auto* wrap = child<QCheckBox>("wrapCheck");
    const MessageLayout layout(logCellFont());
    auto expected = [&](const QString& text) {
        const int width = t->columnWidth(LogTableModel::messageColumn);
        return RowHeight::wrapped(layout.measure(text, RowHeight::wrapBoxWidth(width)));
    };
    wrap->setChecked(true);
    const int wide = t->rowHeight(1);
    EXPECT_EQ(wide, expected(longMessage));
    EXPECT_GT(wide, 17);
    EXPECT_EQ(t->rowHeight(0), expected(QStringLiteral("short")));

    // Narrowing the message column (by widening another) makes the row taller.
    t->horizontalHeader()->resizeSection(LogTableModel::sourceColumn, 400);
    ASSERT_TRUE(waitFor([&] { return t->rowHeight(1) > wide; }));
    EXPECT_EQ(t->rowHeight(1), expected(longMessage));

    wrap->setChecked(false);
    EXPECT_EQ((QList<int>{t->rowHeight(0), t->rowHeight(1)}), (QList<int>{17, 17}));

    // A line feed kept in a JSON message is a space on one line, a break when wrapping.
    writeLog(agentOut,
             QStringLiteral("{\"ts\":\"2024-05-01\",\"msg\":\"intercepted\\nupstream\"}\n"));
    child<QPushButton>("reloadButton")->click();
    EXPECT_EQ(cell(0, 3), QStringLiteral("intercepted upstream"));
    wrap->setChecked(true);
    EXPECT_EQ(t->rowHeight(0), RowHeight::wrapped(2 * layout.lineHeight()));
}

// A face the test picks, not whatever the machine falls back to: DejaVu Sans
// Mono, installed with the test dependencies (the platform's fixed font elsewhere).
QFont testCellFont() {
    const int id = QFontDatabase::addApplicationFont(
        QStringLiteral("/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf"));
    QFont font = id >= 0 ? QFont(QFontDatabase::applicationFontFamilies(id).value(0))
                         : QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPixelSize(11);
    return font;
}

TEST(MessageLayout, ShortAsciiLinesMeasureLikeAFullLayout) {
    // Short ASCII messages skip the text layout; a zero-width space at the end
    // forces the layout, and being invisible it must change neither where lines
    // break nor how tall they are, whichever fallback face the machine has for it.
    const MessageLayout layout(testCellFont());
    for (const QString text : {"x", "connection accepted from 10.0.0.7:443",
                               "a b c d e f g h i j k l m n o p q r s t u v w x y z",
                               "no-breaks-here-at-all-just-one-long-word-of-text"})
        for (double width = 40; width < 600; width += 7)
            EXPECT_EQ(layout.measure(text, width), layout.measure(text + u'\u200b', width))
                << text.toStdString() << " at " << width;
}

// The Linux route; macOS hands the file to `open -R`.
#ifndef Q_OS_MACOS
// A stand-in for a system tool: records its arguments, exits with `code`.
void fakeTool(const QString& suitePath, int code) {
    writeLog(suitePath,
             QStringLiteral("#!/bin/sh\nprintf '%s\\n' \"$@\" > \"$0.args\"\nexit %1\n").arg(code));
    const QString host = sandbox::hostPath(suitePath);
    QFile::setPermissions(host, QFile::permissions(host) | QFileDevice::ExeOwner);
    QFile::remove(host + QStringLiteral(".args"));
}

QString argsOf(const QString& suitePath) {
    QFile file(sandbox::hostPath(suitePath) + QStringLiteral(".args"));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

TEST_F(LogViewerTest, OpenFolderShowsTheHostFileInTheFileManagerOrElseItsFolder) {
    const QString dbusSend = QStringLiteral("/usr/bin/dbus-send");
    const QString xdgOpen = QStringLiteral("/usr/bin/xdg-open");
    writeLog(agentOut, numberedLines(0, 1));
    fakeTool(dbusSend, 0);
    fakeTool(xdgOpen, 0);
    viewer.show();
    child<QPushButton>("openFolderButton")->click();
    ASSERT_TRUE(waitFor([&] { return !argsOf(dbusSend).isEmpty(); }));
    const QString args = argsOf(dbusSend);
    EXPECT_TRUE(args.contains(QStringLiteral("org.freedesktop.FileManager1.ShowItems")));
    EXPECT_TRUE(args.contains(QStringLiteral("array:string:file://") + sandbox::hostPath(agentOut)))
        << args.toStdString();
    EXPECT_EQ(argsOf(xdgOpen), QString());

    const QString odd = QStringLiteral("/var/log/ostrel/a,b.log");
    writeLog(odd, numberedLines(0, 1));
    fakeTool(dbusSend, 1);
    EXPECT_TRUE(revealInFileBrowser(odd));
    EXPECT_TRUE(argsOf(dbusSend).contains(QStringLiteral("a%2Cb.log"))) << args.toStdString();
    EXPECT_EQ(argsOf(xdgOpen), sandbox::hostPath(QStringLiteral("/var/log/ostrel")) + u'\n');
    fakeTool(xdgOpen, 3);
    EXPECT_FALSE(revealInFileBrowser(odd));
}
#endif

}  // namespace
