#include "viewer/log_viewer.h"

#include <gtest/gtest.h>

#include <QAccessible>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDateTimeEdit>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QFontDatabase>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTableView>
#include <QTemporaryDir>
#include <QTest>
#include <QTextDocument>
#include <QThread>
#include <QTimeZone>
#include <QTimer>
#include <QToolButton>
#include <functional>
#include <tuple>

#include "logs/row_height.h"
#include "platform/file_reveal.h"
#include "platform/sandbox.h"
#include "ui/system_palette.h"
#include "viewer/log_cell_delegate.h"
#include "viewer/log_table_model.h"
#include "viewer/message_layout.h"
#include "viewer/timeline_strip.h"

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
    EXPECT_EQ(model->index(2, 3).data(Qt::ToolTipRole).toString(),
              Qt::convertFromPlainText(QStringLiteral("2024-05-01 10:00:02 [tls] ERROR handshake "
                                                      "failed\n    at tls.Handshake(conn:12)"),
                                       Qt::WhiteSpacePre));

    auto* levels = child<QComboBox>("levelPopup");
    auto* search = child<QLineEdit>("searchField");
    levels->setCurrentText(QStringLiteral("WARN"));  // exact, not a threshold
    EXPECT_EQ(rows(), 1);
    EXPECT_EQ(cell(0, 3), QStringLiteral("slow handshake"));
    levels->setCurrentText(QStringLiteral("All levels"));

    search->setText(QStringLiteral("HANDSHAKE"));
    EXPECT_EQ(status(), QStringLiteral("2 of 4 lines · 3 matches · ") + agentOut);
    search->setText(QStringLiteral("tls"));  // the source and the folded frame count
    EXPECT_EQ(rows(), 1);
    EXPECT_EQ(cell(0, 3), QStringLiteral("handshake failed  ⟶  at tls.Handshake(conn:12)"));

    levels->setCurrentText(QStringLiteral("ERROR"));
    viewer.window()->close();
    viewer.show();
    EXPECT_EQ(levels->currentText(), QStringLiteral("ERROR"));
    EXPECT_EQ(search->text(), QStringLiteral("tls"));
    EXPECT_EQ(rows(), 1);
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

    // Scrolled up to read, the view stays and the new rows are counted until
    // the user is back at the end, where following resumes.
    QScrollBar* bar = table()->verticalScrollBar();
    auto* notice = child<QLabel>("newRowsNotice");
    bar->setValue(17);
    writeLog(agentOut, numberedLines(85, 30, "ERROR"), true);
    ASSERT_TRUE(waitFor([&] { return rows() == 91; }));
    writeLog(agentOut, numberedLines(115, 1, "ERROR"), true);
    ASSERT_TRUE(waitFor([&] { return rows() == 92; }));
    EXPECT_EQ(bar->value(), 17);
    EXPECT_TRUE(notice->isVisibleTo(viewer.window()));
    EXPECT_TRUE(notice->text().contains(QStringLiteral(">31 new rows \u2193<")));
    bar->setValue(bar->maximum());
    EXPECT_FALSE(notice->isVisibleTo(viewer.window()));
    writeLog(agentOut, numberedLines(116, 40, "ERROR"), true);
    ASSERT_TRUE(waitFor([&] { return rows() == 132; }));
    EXPECT_TRUE(lastRowVisible());

    // A file cut short is read whole again.
    writeLog(agentOut, QStringLiteral("2024-05-01 12:00:00 ERROR fresh\n"));
    ASSERT_TRUE(waitFor([&] { return rows() == 1 && cell(0, 3) == QStringLiteral("fresh"); }));
    EXPECT_GE(resets, 1);
    EXPECT_EQ(status(), QStringLiteral("1 of 1 lines · ") + agentOut);

    viewer.window()->close();
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

    // A log that appeared since is offered; the log and the rows chosen stay.
    writeLog(agentOut, numberedLines(500, 20), true);
    writeLog(QStringLiteral("/var/log/ostrel/appeared.log"), numberedLines(0, 1));
    auto* popup = child<QComboBox>("logPopup");
    ASSERT_EQ(popup->count(), 1);
    child<QPushButton>("reloadButton")->click();
    // The new log, and "All logs" after a separator now that there are two.
    EXPECT_EQ(popup->count(), 4);
    EXPECT_EQ(popup->itemText(3), QStringLiteral("All logs"));
    EXPECT_EQ(popup->currentIndex(), 0);
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

TEST_F(LogViewerTest, KeysSearchJumpAndCloseAndTheRowMenuCopies) {
    writeLog(agentOut, numberedLines(0, 3) + numberedLines(3, 1, "WARN") + numberedLines(4, 3) +
                           numberedLines(7, 1, "FATAL"));
    viewer.show();
    QWidget* window = viewer.window();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    auto* search = child<QLineEdit>("searchField");
    QTest::keyClick(table(), Qt::Key_F, Qt::ControlModifier);
    EXPECT_TRUE(search->hasFocus());

    // From the top of the screen, then from the current row, either way.
    table()->scrollToTop();
    QTest::keyClick(search, Qt::Key_F8);
    child<QToolButton>("nextProblemButton")->click();
    EXPECT_EQ(selectedRows(), QList<int>{7});
    QTest::keyClick(search, Qt::Key_F8, Qt::ShiftModifier);
    EXPECT_EQ(selectedRows(), QList<int>{3});

    for (const int row : {7, 3})
        table()->selectionModel()->select(table()->model()->index(row, 0),
                                          QItemSelectionModel::Select | QItemSelectionModel::Rows);
    const QList<QAction*> menu = table()->findChild<QMenu*>(QStringLiteral("rowMenu"))->actions();
    menu.value(1)->trigger();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), QStringLiteral("line 3\nline 7"));
    menu.value(0)->trigger();
    EXPECT_EQ(QGuiApplication::clipboard()->text(),
              QStringLiteral("2024-05-01 10:00:00 WARN line 3\n2024-05-01 10:00:00 FATAL line 7"));

    // Escape empties the search, and only then closes (and stops following).
    child<QCheckBox>("followCheck")->setChecked(true);
    search->setText(QStringLiteral("line"));
    QTest::keyClick(search, Qt::Key_Escape);
    EXPECT_TRUE(search->text().isEmpty() && window->isVisible());
    QTest::keyClick(search, Qt::Key_Escape);
    EXPECT_FALSE(window->isVisible() || child<QCheckBox>("followCheck")->isChecked());
    viewer.show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    QTest::keyClick(table(), Qt::Key_W, Qt::ControlModifier);
    EXPECT_FALSE(window->isVisible());
}

TEST_F(LogViewerTest, ALineWithoutBreakPointsIsCutInTheTableAndWholeInDetailsAndCopy) {
    const QString blob(200'000, u'f');
    writeLog(agentOut, QStringLiteral("2024-05-01 10:00:01 ERROR ") + blob + u'\n');
    viewer.show();
    child<QCheckBox>("wrapCheck")->setChecked(true);
    EXPECT_EQ(cell(0, 3), blob.first(2000) + QStringLiteral(" … 198000 more characters"));
    const MessageLayout layout(logCellFont());
    EXPECT_TRUE(waitFor([&] {
        const double box = RowHeight::wrapBoxWidth(table()->columnWidth(3));
        return table()->rowHeight(0) == RowHeight::wrapped(layout.measure(cell(0, 3), box));
    }));
    EXPECT_LT(table()->model()->index(0, 3).data(Qt::ToolTipRole).toString().size(), 4000);

    auto* details = child<QPlainTextEdit>("detailPane");
    EXPECT_FALSE(details->isVisibleTo(viewer.window()));
    child<QCheckBox>("detailsCheck")->setChecked(true);
    EXPECT_TRUE(details->toPlainText().isEmpty());
    table()->selectRow(0);
    EXPECT_TRUE(details->toPlainText().startsWith(QStringLiteral("time     2024-05-01 10:00:01")));
    EXPECT_TRUE(details->toPlainText().endsWith(blob));
    QKeyEvent copy(QEvent::KeyPress, Qt::Key_C, Qt::ControlModifier);
    QApplication::sendEvent(table(), &copy);
    EXPECT_EQ(QGuiApplication::clipboard()->text(),
              QStringLiteral("2024-05-01 10:00:01 ERROR ") + blob);
    child<QCheckBox>("detailsCheck")->setChecked(false);
    EXPECT_FALSE(details->isVisibleTo(viewer.window()));
}

TEST_F(LogViewerTest, HalfALaptopScreenIsWideEnoughAndControlsAreNamedForReaders) {
    viewer.show();
    QWidget* window = viewer.window();
    // The widest the tool rows get: with a range to give.
    child<QComboBox>("timePopup")->setCurrentText(QStringLiteral("Range\u2026"));
    EXPECT_LE(window->minimumSizeHint().width(), 600);
    window->resize(600, 600);
    QCoreApplication::processEvents();
    for (const QWidget* part : window->findChildren<QWidget*>(Qt::FindDirectChildrenOnly))
        EXPECT_TRUE(!part->isVisibleTo(window) || part->geometry().right() <= 600 - 12)
            << part->objectName().toStdString();

    for (const char* name : {"searchField", "logPopup", "levelPopup", "timePopup", "rangeFrom",
                             "timelineStrip", "table", "followCheck", "wrapCheck"}) {
        QAccessibleInterface* control = QAccessible::queryAccessibleInterface(child<QWidget>(name));
        EXPECT_FALSE(control->text(QAccessible::Name).isEmpty()) << name;
        EXPECT_EQ(control->relations(QAccessible::Label).size(),
                  QByteArrayView(name).endsWith("Popup") ? 1 : 0)
            << name;
    }
}

TEST_F(LogViewerTest, ExportWritesTheShownRowsOrSaysWhyItCouldNot) {
    writeLog(agentOut, numberedLines(0, 2) + numberedLines(2, 1, "ERROR"));
    viewer.show();
    child<QComboBox>("levelPopup")->setCurrentText(QStringLiteral("ERROR"));
    const QTemporaryDir out;
    for (const QString name : {"rows.csv", "gone/rows.log"}) {
        child<QPushButton>("exportButton")->click();
        auto* dialog = viewer.window()->findChild<QFileDialog*>(QStringLiteral("exportDialog"));
        dialog->selectFile(out.filePath(name));
        static_cast<QDialog*>(dialog)->accept();
    }
    QFile csv(out.filePath(QStringLiteral("rows.csv")));
    ASSERT_TRUE(waitFor([&] { return csv.exists(); }) && csv.open(QIODevice::ReadOnly));
    EXPECT_EQ(csv.readAll(), "Time,Level,Source,Message\r\n2024-05-01 10:00:00,ERROR,,line 2\r\n");
    EXPECT_TRUE(waitFor(
        [&] { return viewer.window()->findChild<QMessageBox*>(QStringLiteral("exportError")); }));
}

// Cells painted into an image: each level its colour, a wrapped message in
// its row and nowhere else, and the grid line at the row's foot.
TEST_F(LogViewerTest, EnterAndF3GoRoundTheRowsFoundAndTheStatusLineCountsMatches) {
    writeLog(agentOut, numberedLines(0, 4) + QStringLiteral("2024-05-01 10:00:00 INFO other\n") +
                           QStringLiteral("2024-05-01 10:00:00 INFO line 4, line again\n"));
    viewer.show();
    ASSERT_TRUE(QTest::qWaitForWindowActive(viewer.window()));
    auto* search = child<QLineEdit>("searchField");
    QTest::keyClicks(search, QStringLiteral("LINE"));
    EXPECT_EQ(status(), QStringLiteral("5 of 6 lines · 6 matches · ") + agentOut);
    search->setText(QStringLiteral("e 3"));
    EXPECT_EQ(status(), QStringLiteral("1 of 6 lines · 1 match · ") + agentOut);
    search->setText(QStringLiteral("line"));

    // From no row to the first, then on, back and round either end; the detail
    // pane follows.
    child<QCheckBox>("detailsCheck")->setChecked(true);
    const std::tuple<Qt::Key, Qt::KeyboardModifiers, int> steps[] = {
        {Qt::Key_Return, Qt::NoModifier, 0},    {Qt::Key_Enter, Qt::NoModifier, 1},
        {Qt::Key_Return, Qt::ShiftModifier, 0}, {Qt::Key_Return, Qt::ShiftModifier, 4},
        {Qt::Key_F3, Qt::NoModifier, 0},        {Qt::Key_F3, Qt::ShiftModifier, 4},
    };
    for (const auto& [key, modifiers, row] : steps) {
        QTest::keyClick(search, key, modifiers);
        EXPECT_EQ(selectedRows(), QList<int>{row}) << key << " " << modifiers;
    }
    EXPECT_TRUE(child<QPlainTextEdit>("detailPane")->toPlainText().contains("line again"));
    table()->setFocus();
    QTest::keyClick(table(), Qt::Key_F3, Qt::ShiftModifier);
    EXPECT_EQ(selectedRows(), QList<int>{3});
    // A new search keeps the selected line, and the next step starts there.
    search->setText(QStringLiteral("lin"));
    QTest::keyClick(search, Qt::Key_Return);
    EXPECT_EQ(selectedRows(), QList<int>{4});
}

TEST(LogCells, ArePaintedInTheirLevelsColoursWithinTheirRows) {
    LogTableModel model;
    model.setContent(LogRows::build(QStringLiteral(
                         "2024-05-01 10:00:00 ERROR failed\n"
                         "2024-05-01 10:00:00 WARN slow\n"
                         "2024-05-01 10:00:00 INFO wrapped message of several words\n")),
                     {0, 1, 2});
    const MessageLayout layout(logCellFont());
    LogCellDelegate delegate(layout, LogTableModel::messageColumn);
    auto paint = [&](int row, int column, int height, int top, int width = 60) {
        QImage image(width, height + 2 * top, QImage::Format_RGB32);
        image.fill(Qt::white);
        QPainter painter(&image);
        QStyleOptionViewItem option;
        option.rect = QRect(0, top, width, height);
        option.state = QStyle::State_Enabled | QStyle::State_Active;
        delegate.paint(&painter, option, model.index(row, column));
        return image;
    };
    // The most saturated pixel in rows [from, to) is the core of a glyph; white when nothing is
    // drawn.
    auto ink = [](const QImage& image, int from, int to) {
        QColor best = Qt::white;
        for (int y = from; y < to; ++y)
            for (int x = 0; x < image.width(); ++x)
                if (const QColor c = image.pixelColor(x, y);
                    c != Qt::white &&
                    (best == Qt::white || c.hsvSaturation() > best.hsvSaturation()))
                    best = c;
        return best;
    };
    for (const auto& [row, column, colour] : {std::tuple{0, 0, SystemColor::secondaryLabel},
                                              {0, 1, SystemColor::red},
                                              {0, 3, SystemColor::red},
                                              {1, 1, SystemColor::orange},
                                              {2, 1, SystemColor::green}}) {
        const QImage image = paint(row, column, 17, 0);
        EXPECT_NEAR(ink(image, 0, 16).hsvHue(), resolve(colour).hsvHue(), 8)
            << row << "," << column;
        EXPECT_NE(ink(image, 16, 17), QColor(Qt::white));  // the grid line
    }
    delegate.setWrap(true);
    const int height = RowHeight::wrapped(
        layout.measure(u"wrapped message of several words", RowHeight::wrapBoxWidth(60)));
    ASSERT_GT(height, 3 * layout.lineHeight());
    const QImage wrapped = paint(2, 3, height, 20);
    EXPECT_EQ(ink(wrapped, 0, 20), QColor(Qt::white));
    EXPECT_EQ(ink(wrapped, 20 + height, 40 + height), QColor(Qt::white));
    // Ink in its first line and in its last: neither shifted nor cut.
    const int line = int(layout.lineHeight());
    EXPECT_NE(ink(wrapped, 22, 22 + line), QColor(Qt::white));
    EXPECT_NE(ink(wrapped, 18 + height - line, 18 + height), QColor(Qt::white));

    // A search marks what it found, in the palette's highlight, on one line
    // and wrapped, and only there.
    const QColor mark = QApplication::palette().color(QPalette::Highlight);
    auto marked = [&](const QImage& image) {
        int first = image.width(), last = -1;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                if (const QColor c = image.pixelColor(x, y);
                    c != Qt::white && std::abs(c.hsvHue() - mark.hsvHue()) < 10 &&
                    c.hsvSaturation() > 20) {
                    first = std::min(first, x);
                    last = std::max(last, x);
                }
        return std::pair{first, last};
    };
    delegate.setSearch(QStringLiteral("SEVERAL"));
    const double advance = QFontMetricsF(logCellFont()).horizontalAdvance(u'M');
    // "wrapped message of " is 19 characters, "several" 7 more.
    const auto [first, last] = marked(paint(2, 3, 17, 0, 300));
    EXPECT_NEAR(first, 19 * advance, 5);
    EXPECT_NEAR(last, 26 * advance, 5);
    // Cut before it by the ellipsis: nothing hidden is marked.
    EXPECT_EQ(marked(paint(2, 3, 17, 0)).second, -1);
    delegate.setWrap(true);
    EXPECT_GE(marked(paint(2, 3, height, 0)).second, 0);
    delegate.setSearch(QStringLiteral("absent"));
    EXPECT_EQ(marked(paint(2, 3, height, 0)).second, -1);
}

// Labels stay readable on the window in either appearance, and the table's
// colours follow the appearance the palette says.
TEST(SystemPalette, DarkAndLightFollowThePaletteAndKeepLabelsReadable) {
    const QPalette original = QGuiApplication::palette();
    LogTableModel model;
    model.setContent(LogRows::build(QStringLiteral("2024-05-01 10:00:00 INFO x\n")), {0});
    for (const Appearance appearance : {Appearance::dark, Appearance::light}) {
        const QColor window =
            appearance == Appearance::dark ? QColor(30, 30, 30) : QColor(236, 236, 236);
        QGuiApplication::setPalette(QPalette(window));
        EXPECT_EQ(currentAppearance(), appearance);
        for (const SystemColor colour : {SystemColor::label, SystemColor::secondaryLabel}) {
            const QColor text = resolve(colour);
            const double shown =
                text.alphaF() * text.lightness() + (1 - text.alphaF()) * window.lightness();
            EXPECT_GT(std::abs(shown - window.lightness()), 90) << int(colour);
        }
        EXPECT_EQ(model.index(0, 3).data(Qt::ForegroundRole).value<QColor>(),
                  resolve(SystemColor::label, appearance));
    }
    QGuiApplication::setPalette(original);
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

TEST_F(LogViewerTest, AllLogsMergesEveryLogByTimeWithALogColumnAndFollowsThem) {
    writeLog(agentOut, QStringLiteral("2024-05-01T10:00:01Z INFO one\n"
                                      "2024-05-01T10:00:03Z ERROR three\n"));
    writeLog(agentErr, QStringLiteral("2024-05-01T10:00:02Z WARN two\n"));
    viewer.show(agentOut);
    auto* popup = child<QComboBox>("logPopup");
    QTableView* t = table();
    EXPECT_TRUE(t->isColumnHidden(LogTableModel::logColumn));
    ASSERT_EQ(popup->itemText(popup->count() - 1), QStringLiteral("All logs"));
    popup->setCurrentIndex(popup->count() - 1);

    const QString out = QStringLiteral("Agent \u2014 output");
    const QString err = QStringLiteral("Agent \u2014 errors");
    const auto shown = [&] {
        QStringList cells;
        for (int row = 0; row < rows(); ++row)
            cells << cell(row, LogTableModel::logColumn) + u'|' +
                         cell(row, LogTableModel::messageColumn);
        return cells;
    };
    EXPECT_FALSE(t->isColumnHidden(LogTableModel::logColumn));
    EXPECT_EQ(t->horizontalHeader()->visualIndex(LogTableModel::logColumn), 0);
    EXPECT_EQ(shown(), QStringList({out + "|one", err + "|two", out + "|three"}));
    EXPECT_EQ(status(), QStringLiteral("3 of 3 lines \u00B7 2 logs"));

    child<QLineEdit>("searchField")->setText(QStringLiteral("HRE"));
    EXPECT_EQ(shown(), QStringList({out + "|three"}));
    child<QLineEdit>("searchField")->clear();

    // Follow picks up what any log adds, in its place by time; the selected
    // line stays selected wherever it moves.
    t->selectRow(2);
    child<QCheckBox>("detailsCheck")->setChecked(true);
    const QString details = child<QPlainTextEdit>("detailPane")->toPlainText();
    EXPECT_TRUE(details.startsWith(u"log ") && details.section(u'\n', 0, 0).endsWith(out))
        << details.toStdString();
    child<QCheckBox>("followCheck")->setChecked(true);
    writeLog(agentErr, QStringLiteral("2024-05-01T10:00:02.500Z INFO between\n"), true);
    ASSERT_TRUE(waitFor([&] { return rows() == 4; }, 10'000));
    EXPECT_EQ(shown(), QStringList({out + "|one", err + "|two", err + "|between", out + "|three"}));
    EXPECT_EQ(selectedRows(), QList<int>{3});
    EXPECT_TRUE(lastRowVisible());
    child<QCheckBox>("followCheck")->setChecked(false);

    // The time filter and the timeline go by the merged rows' own times.
    writeLog(agentOut, QStringLiteral("2024-05-01T10:10:00Z INFO later\n"), true);
    child<QPushButton>("reloadButton")->click();
    ASSERT_EQ(rows(), 5);
    auto* time = child<QComboBox>("timePopup");
    time->setCurrentText(QStringLiteral("Last 5 minutes"));
    EXPECT_EQ(shown(), QStringList({out + "|later"}));
    int counted = 0;
    for (const TimelineBucket& bucket : child<TimelineStrip>("timelineStrip")->timeline().buckets)
        counted += bucket.total();
    EXPECT_EQ(counted, 1);
    time->setCurrentText(QStringLiteral("All times"));

    // Back to one log: its own rows and no Log column.
    popup->setCurrentIndex(0);
    EXPECT_TRUE(t->isColumnHidden(LogTableModel::logColumn));
    EXPECT_EQ(rows(), 3);
    EXPECT_EQ(status(), QStringLiteral("3 of 3 lines \u00B7 ") + agentOut);
}

TEST_F(LogViewerTest, ALargeTableCountsItsMatchesBesideTheKeystrokeAndOnlyTheLastSearchStands) {
    QString text;
    for (int i = 0; i < 60'000; ++i)
        text += QStringLiteral("2024-05-01T10:00:00Z INFO r%1\n").arg(i % 7);
    writeLog(agentOut, text);
    viewer.show();
    auto* search = child<QLineEdit>("searchField");
    search->setText(QStringLiteral("0"));  // eight in every time, and r0: a count not to show
    search->setText(QStringLiteral("r"));
    const QString counted =
        QStringLiteral("60000 of 60000 lines \u00B7 60000 matches \u00B7 ") + agentOut;
    ASSERT_TRUE(waitFor([&] { return status().contains(u"matches"); }));
    EXPECT_EQ(status(), counted);
}

namespace {

// One row a minute from 10:00 UTC; every tenth an ERROR.
QString minuteLines(int from, int count) {
    QString text;
    for (int i = from; i < from + count; ++i)
        text += QStringLiteral("2024-05-01T%1:%2:00Z %3 minute %4\n")
                    .arg(10 + i / 60, 2, 10, QLatin1Char('0'))
                    .arg(i % 60, 2, 10, QLatin1Char('0'))
                    .arg(QLatin1String(i % 10 == 0 ? "ERROR" : "INFO"))
                    .arg(i);
    return text;
}

QDateTime minute(int i) {
    return QDateTime(QDate(2024, 5, 1), QTime(10, 0), QTimeZone::utc()).addSecs(60 * i);
}

}  // namespace

TEST_F(LogViewerTest, TheTimeChoiceNarrowsWithLevelAndSearchAndMovesWithTheNewestRow) {
    writeLog(agentOut, QStringLiteral("untimed first line\n") + minuteLines(0, 120));
    viewer.show();
    auto* time = child<QComboBox>("timePopup");
    auto* from = child<QDateTimeEdit>("rangeFrom");
    auto* to = child<QDateTimeEdit>("rangeTo");
    ASSERT_EQ(rows(), 121);

    time->setCurrentText(QStringLiteral("Last 5 minutes"));  // 11:54 to 11:59, both included
    EXPECT_EQ(rows(), 6);
    EXPECT_EQ(cell(0, 3), QStringLiteral("minute 114"));
    EXPECT_EQ(status(), QStringLiteral("6 of 121 lines · ") + agentOut);
    child<QComboBox>("levelPopup")->setCurrentText(QStringLiteral("ERROR"));
    EXPECT_EQ(rows(), 0);
    time->setCurrentText(QStringLiteral("Last hour"));
    EXPECT_EQ(rows(), 6);  // 10:59 to 11:59 holds the errors of minutes 60 to 110
    child<QLineEdit>("searchField")->setText(QStringLiteral("minute 11"));
    EXPECT_EQ(rows(), 1);
    child<QLineEdit>("searchField")->clear();
    child<QComboBox>("levelPopup")->setCurrentText(QStringLiteral("All levels"));

    // A range starts as the whole log, which hides only the line no time can place.
    EXPECT_FALSE(from->isVisibleTo(viewer.window()));
    time->setCurrentText(QStringLiteral("Range\u2026"));
    EXPECT_TRUE(from->isVisibleTo(viewer.window()));
    EXPECT_EQ(rows(), 120);
    from->setDateTime(minute(30).toLocalTime());
    to->setDateTime(minute(39).toLocalTime());
    EXPECT_EQ(rows(), 10);
    to->setDateTime(minute(20).toLocalTime());  // backwards reads forwards
    EXPECT_EQ(rows(), 11);
    EXPECT_EQ(cell(0, 3), QStringLiteral("minute 20"));

    // New rows move "Last 5 minutes" on: rows fall out of the front as well as join at the end.
    time->setCurrentText(QStringLiteral("Last 5 minutes"));
    writeLog(agentOut, minuteLines(120, 3), true);
    child<QPushButton>("reloadButton")->click();
    EXPECT_EQ(rows(), 6);
    EXPECT_EQ(cell(0, 3), QStringLiteral("minute 117"));
    EXPECT_EQ(cell(5, 3), QStringLiteral("minute 122"));
    time->setCurrentText(QStringLiteral("All times"));
    EXPECT_EQ(rows(), 124);
}

TEST_F(LogViewerTest, TheTimelineCountsWhatIsShownAndABarClickedScrollsToItsFirstRow) {
    writeLog(agentOut, minuteLines(0, 600));
    viewer.show();
    auto* strip = child<TimelineStrip>("timelineStrip");
    // The instants are read beside the table: the bars come a moment after the rows.
    ASSERT_TRUE(waitFor([&] { return !strip->timeline().buckets.isEmpty(); }));
    EXPECT_TRUE(lastRowVisible());
    const auto countedRows = [&] {
        int sum = 0;
        for (const TimelineBucket& bucket : strip->timeline().buckets) sum += bucket.total();
        return sum;
    };
    // Ten hours: round buckets of several minutes, every row in one, bars at least 6 px wide.
    const Timeline timeline = strip->timeline();
    const qsizetype count = timeline.buckets.size();
    ASSERT_GE(count, 20);
    ASSERT_LE(count, strip->width() / 6);
    EXPECT_EQ(countedRows(), 600);
    EXPECT_TRUE(
        strip->accessibleDescription().contains(QStringLiteral(" \u00B7 600 lines: 60 errors.")));

    // A bar a quarter in: its first row goes to the top, selected.
    const qsizetype b = count / 4;
    const int first =
        int((timeline.bucketStart(b) - minute(0).toMSecsSinceEpoch() + 59'999) / 60'000);
    EXPECT_EQ(timeline.buckets[b].firstRow, first);
    const int x = 2 + int((2 * b + 1) * (strip->width() - 4) / (2 * count));
    ASSERT_EQ(strip->bucketAt(x), b);
    QTest::mouseClick(strip, Qt::LeftButton, {}, QPoint(x, strip->height() / 2));
    EXPECT_EQ(table()->rowAt(0), first);
    EXPECT_EQ(selectedRows(), QList<int>{first});
    EXPECT_EQ(table()->currentIndex().row(), first);

    // Filtered, the strip counts table rows and a click lands on the table row it names.
    child<QComboBox>("levelPopup")->setCurrentText(QStringLiteral("ERROR"));
    ASSERT_EQ(rows(), 60);
    EXPECT_EQ(countedRows(), 60);
    // An empty bar leads to the rows after it: the first error from the bar's start on.
    const Timeline errors = strip->timeline();
    const qsizetype at = strip->bucketAt(x);
    ASSERT_GE(at, 0);
    const int startMinute =
        int((errors.bucketStart(at) - minute(0).toMSecsSinceEpoch() + 59'999) / 60'000);
    QTest::mouseClick(strip, Qt::LeftButton, {}, QPoint(x, strip->height() / 2));
    ASSERT_TRUE(table()->currentIndex().isValid());
    EXPECT_EQ(cell(table()->currentIndex().row(), 3),
              QStringLiteral("minute %1").arg((startMinute + 9) / 10 * 10));
}
