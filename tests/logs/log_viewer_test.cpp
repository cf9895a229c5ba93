#include "logs/log_viewer.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
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

#include "app/system_palette.h"
#include "logs/file_reveal.h"
#include "logs/log_table_model.h"
#include "logs/message_layout.h"
#include "logs/row_height.h"
#include "monitor/sandbox.h"

// Readable failures for the texts these tests compare.
std::ostream& operator<<(std::ostream& out, const QString& text) {
    return out << text.toStdString();
}
void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text << '"';
}

using namespace varnel;

namespace {

// sandbox::root() is read once per process: one root for the binary, emptied
// before every test.
class SuiteRoot : public ::testing::Environment {
public:
    void SetUp() override {
        ASSERT_TRUE(dir_.isValid());
        qputenv("VARNEL_ROOT", dir_.path().toUtf8());
        ASSERT_EQ(sandbox::root(), QDir::cleanPath(dir_.path()));
    }

private:
    QTemporaryDir dir_;
};

[[maybe_unused]] const auto* const suiteRoot = ::testing::AddGlobalTestEnvironment(new SuiteRoot);

const QString agentOut = QStringLiteral("/Library/Logs/Varnel/agent.stdout.log");
const QString agentErr = QStringLiteral("/Library/Logs/Varnel/agent.stderr.log");

void writeLog(const QString& suitePath, const QString& text, bool append = false) {
    const QString host = sandbox::hostPath(suitePath);
    ASSERT_TRUE(QDir().mkpath(QFileInfo(host).path()));
    QFile file(host);
    ASSERT_TRUE(file.open(append ? QIODevice::Append : QIODevice::WriteOnly));
    file.write(text.toUtf8());
}

QString numberedLines(int from, int count, const char* level = "INFO") {
    QString text;
    for (int i = from; i < from + count; ++i)
        text += QStringLiteral("2024-05-01 10:%1:%2 %3 line %4\n")
                    .arg(i / 60 % 60, 2, 10, QChar(u'0'))
                    .arg(i % 60, 2, 10, QChar(u'0'))
                    .arg(QLatin1String(level))
                    .arg(i);
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
    bool lastRowVisible() const {
        QTableView* t = table();
        return t->rowAt(t->viewport()->height() - 1) == rows() - 1 ||
               t->rowAt(t->viewport()->height() - 1) == -1;
    }

    LogViewer viewer;
};

TEST_F(LogViewerTest, BuildsOneWindowWithItsToolBarColumnsAndStatusLine) {
    writeLog(agentOut, numberedLines(0, 3));
    EXPECT_EQ(viewer.window(), nullptr);
    viewer.show();
    QWidget* window = viewer.window();
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(window->windowTitle(), QStringLiteral("Varnel Logs"));
    EXPECT_EQ(window->size(), QSize(1000, 600));

    // Nine views from left to right, in this order.
    QList<QWidget*> bar;
    for (QWidget* w : window->findChildren<QWidget*>(Qt::FindDirectChildrenOnly))
        if (w->geometry().bottom() < table()->geometry().top()) bar.append(w);
    std::sort(bar.begin(), bar.end(), [](auto* a, auto* b) { return a->x() < b->x(); });
    QStringList names;
    for (QWidget* w : bar) {
        if (auto* label = qobject_cast<QLabel*>(w))
            names.append(label->text());
        else
            names.append(w->objectName());
    }
    EXPECT_EQ(names, (QStringList{"Log:", "logPopup", "Level:", "levelPopup", "searchField",
                                  "followCheck", "wrapCheck", "reloadButton", "openFolderButton"}));
    for (QWidget* w : bar)
        EXPECT_LE(w->geometry().right(), window->width() - 12) << w->objectName();
    EXPECT_GE(child<QComboBox>("logPopup")->width(), 220);
    EXPECT_GE(child<QLineEdit>("searchField")->width(), 180);
    EXPECT_EQ(child<QLineEdit>("searchField")->placeholderText(), QStringLiteral("Search logs…"));
    EXPECT_EQ(child<QCheckBox>("wrapCheck")->toolTip(),
              QStringLiteral("Wrap long log messages instead of truncating"));

    QHeaderView* header = table()->horizontalHeader();
    const int widths[] = {175, 62, 160};
    for (int c = 0; c < 3; ++c) EXPECT_EQ(header->sectionSize(c), widths[c]);
    // The message column takes the rest of the width, and only it.
    EXPECT_EQ(header->sectionSize(3), table()->viewport()->width() - 175 - 62 - 160);
    viewer.window()->resize(1200, 600);
    QCoreApplication::processEvents();
    EXPECT_EQ(header->sectionSize(0), 175);
    EXPECT_EQ(header->sectionSize(3), table()->viewport()->width() - 175 - 62 - 160);
    viewer.window()->resize(1000, 600);
    EXPECT_EQ(table()->rowHeight(0), 17);

    EXPECT_EQ(status(), QStringLiteral("3 of 3 lines · ") + agentOut);
    EXPECT_EQ(window->focusWidget(), child<QLineEdit>("searchField"));
    EXPECT_TRUE(waitFor([&] { return child<QLineEdit>("searchField")->hasFocus(); }));

    window->close();
    viewer.show();
    EXPECT_EQ(viewer.window(), window);
    EXPECT_TRUE(window->isVisible());
}

TEST_F(LogViewerTest, OpensTheGivenLogOrTheFirstAndSaysWhenThereIsNone) {
    viewer.show(agentErr);
    EXPECT_EQ(child<QComboBox>("logPopup")->count(), 1);
    EXPECT_EQ(child<QComboBox>("logPopup")->itemText(0), QStringLiteral("No logs found"));
    EXPECT_EQ(rows(), 0);
    EXPECT_EQ(status(), QStringLiteral("No Varnel logs found yet."));

    writeLog(agentOut, numberedLines(0, 400));
    writeLog(agentErr, numberedLines(0, 2, "ERROR"));
    viewer.show(agentErr);
    auto* popup = child<QComboBox>("logPopup");
    EXPECT_EQ(popup->itemText(0), QStringLiteral("Agent — output"));
    EXPECT_EQ(popup->currentText(), QStringLiteral("Agent — errors"));
    EXPECT_EQ(rows(), 2);

    viewer.show(QStringLiteral("/nowhere.log"));
    EXPECT_EQ(popup->currentIndex(), 0);
    EXPECT_EQ(rows(), 400);
    EXPECT_GT(table()->verticalScrollBar()->value(), 0);
    EXPECT_TRUE(lastRowVisible());

    popup->setCurrentIndex(1);
    EXPECT_EQ(status(), QStringLiteral("2 of 2 lines · ") + agentErr);
}

TEST_F(LogViewerTest, AnUnreadableLogIsOneWarnRowThatFiltersLikeAnyOther) {
    // A known log that is a folder is listed, and cannot be read as a file.
    ASSERT_TRUE(QDir().mkpath(sandbox::hostPath(agentOut)));
    viewer.show();
    ASSERT_EQ(rows(), 1);
    EXPECT_EQ(cell(0, 0), QString());
    EXPECT_EQ(cell(0, 1), QStringLiteral("WARN"));
    EXPECT_TRUE(cell(0, 3).startsWith(QStringLiteral("Cannot read this log"))) << cell(0, 3);
    EXPECT_EQ(status(), QStringLiteral("1 of 1 lines · ") + agentOut);

    child<QComboBox>("levelPopup")->setCurrentText(QStringLiteral("ERROR"));
    EXPECT_EQ(rows(), 0);
    EXPECT_EQ(status(), QStringLiteral("0 of 1 lines · ") + agentOut);
    child<QComboBox>("levelPopup")->setCurrentText(QStringLiteral("WARN"));
    EXPECT_EQ(rows(), 1);
}

TEST_F(LogViewerTest, LevelAndSearchNarrowTheTableAndSurviveAnotherShow) {
    writeLog(agentOut, QStringLiteral("2024-05-01 10:00:00 [proxy] INFO Accepted tunnel\n"
                                      "2024-05-01 10:00:01 [proxy] WARN slow handshake\n"
                                      "2024-05-01 10:00:02 [tls] ERROR handshake failed\n"
                                      "    at tls.Handshake(conn:12)\n"
                                      "2024-05-01 10:00:03 [core] FATAL giving up\n"));
    viewer.show();
    EXPECT_EQ(rows(), 4);
    auto* levels = child<QComboBox>("levelPopup");
    auto* search = child<QLineEdit>("searchField");

    levels->setCurrentText(QStringLiteral("WARN"));  // exact, not a threshold
    EXPECT_EQ(rows(), 1);
    EXPECT_EQ(cell(0, 3), QStringLiteral("slow handshake"));
    levels->setCurrentText(QStringLiteral("All levels"));

    search->setText(QStringLiteral("HANDSHAKE"));
    EXPECT_EQ(rows(), 2);
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
    EXPECT_EQ(rows(), 1);  // ERROR alone
    EXPECT_EQ(status(), QStringLiteral("1 of 4 lines · ") + agentOut);
}

TEST_F(LogViewerTest, ColoursByLevelAndTheRawLineAsTheMessagesToolTip) {
    writeLog(agentOut, QStringLiteral("2024-05-01 10:00:00 \x1b[31mERROR\x1b[0m boom\n"
                                      "2024-05-01 10:00:01 WARN careful\n"
                                      "2024-05-01 10:00:02 INFO fine\n"));
    viewer.show();
    const QAbstractItemModel* model = table()->model();
    auto colour = [&](int row, int column) {
        return model->index(row, column).data(Qt::ForegroundRole).value<QColor>();
    };
    EXPECT_EQ(colour(0, 1), resolve(SystemColor::red));
    EXPECT_EQ(colour(0, 3), resolve(SystemColor::red));
    EXPECT_EQ(colour(1, 1), resolve(SystemColor::orange));
    EXPECT_EQ(colour(1, 3), resolve(SystemColor::label));
    EXPECT_EQ(colour(2, 1), resolve(SystemColor::green));
    EXPECT_EQ(colour(0, 0), resolve(SystemColor::secondaryLabel));
    EXPECT_TRUE(model->index(0, 1).data(Qt::FontRole).value<QFont>().bold());
    EXPECT_EQ(model->index(0, 3).data(Qt::ToolTipRole).toString(),
              QStringLiteral("2024-05-01 10:00:00 ERROR boom"));

    // Copy gives the lines as logged, not as the table shows them.
    table()->selectRow(0);
    table()->selectionModel()->select(model->index(1, 0),
                                      QItemSelectionModel::Select | QItemSelectionModel::Rows);
    QKeyEvent copy(QEvent::KeyPress, Qt::Key_C, Qt::ControlModifier);
    QApplication::sendEvent(table(), &copy);
    EXPECT_EQ(QGuiApplication::clipboard()->text(),
              QStringLiteral("2024-05-01 10:00:00 ERROR boom\n2024-05-01 10:00:01 WARN careful"));
}

TEST_F(LogViewerTest, FollowPicksUpNewLinesUntilTheWindowCloses) {
    writeLog(agentOut, numberedLines(0, 300));
    viewer.show();
    auto* follow = child<QCheckBox>("followCheck");
    auto* timer = viewer.findChild<QTimer*>(QStringLiteral("followTimer"));
    ASSERT_NE(timer, nullptr);
    EXPECT_EQ(timer->interval(), 2500);
    EXPECT_FALSE(timer->isActive());

    follow->setChecked(true);
    EXPECT_TRUE(timer->isActive());
    EXPECT_EQ(rows(), 300);  // no load until the first tick
    timer->setInterval(20);
    table()->scrollToTop();
    writeLog(agentOut, numberedLines(300, 50), true);
    ASSERT_TRUE(waitFor([&] { return rows() == 350; }));
    EXPECT_TRUE(lastRowVisible());
    EXPECT_EQ(status(), QStringLiteral("350 of 350 lines · ") + agentOut);

    viewer.window()->close();
    EXPECT_FALSE(follow->isChecked());
    EXPECT_FALSE(timer->isActive());
    writeLog(agentOut, numberedLines(350, 5), true);
    waitFor([] { return false; }, 100);
    EXPECT_EQ(rows(), 350);
    viewer.show();
    EXPECT_FALSE(follow->isChecked());
    EXPECT_FALSE(timer->isActive());
}

TEST_F(LogViewerTest, FollowTicksAddWhatWasAppendedWithoutResettingTheTable) {
    writeLog(agentOut, numberedLines(0, 20) + QStringLiteral("2024-05-01 11:00:00 ERROR boom\n"));
    viewer.show();
    child<QComboBox>("levelPopup")->setCurrentText(QStringLiteral("ERROR"));
    ASSERT_EQ(rows(), 1);
    table()->selectRow(0);
    int resets = 0;
    QObject::connect(table()->model(), &QAbstractItemModel::modelReset, [&] { ++resets; });
    auto* timer = viewer.findChild<QTimer*>(QStringLiteral("followTimer"));
    timer->setInterval(20);
    child<QCheckBox>("followCheck")->setChecked(true);

    // A frame folds into the shown row; of the new rows only the errors show.
    writeLog(agentOut,
             QStringLiteral("    at tls.Handshake(conn:12)\n") + numberedLines(21, 4) +
                 numberedLines(25, 5, "ERROR"),
             true);
    ASSERT_TRUE(waitFor([&] { return rows() == 6; }));
    EXPECT_EQ(resets, 0);
    EXPECT_EQ(cell(0, 3), QStringLiteral("boom  \u27F6  at tls.Handshake(conn:12)"));
    EXPECT_EQ(cell(5, 3), QStringLiteral("line 29"));
    ASSERT_EQ(table()->selectionModel()->selectedRows().size(), 1);
    EXPECT_EQ(table()->selectionModel()->selectedRows().at(0).row(), 0);
    EXPECT_EQ(status(), QStringLiteral("6 of 30 lines · ") + agentOut);
    EXPECT_TRUE(lastRowVisible());

    // A file cut short is read whole again.
    writeLog(agentOut, QStringLiteral("2024-05-01 12:00:00 ERROR fresh\n"));
    ASSERT_TRUE(waitFor([&] { return rows() == 1 && cell(0, 3) == QStringLiteral("fresh"); }));
    EXPECT_GE(resets, 1);
    EXPECT_EQ(status(), QStringLiteral("1 of 1 lines · ") + agentOut);
}

TEST_F(LogViewerTest, ReloadReadsAgainWithoutMovingTheView) {
    writeLog(agentOut, numberedLines(0, 500));
    viewer.show();
    QScrollBar* bar = table()->verticalScrollBar();
    bar->setValue(bar->maximum() / 2);
    const int middle = bar->value();
    table()->selectRow(table()->rowAt(0) + 1);
    const QString selectedLine = cell(table()->selectionModel()->selectedRows().at(0).row(), 3);

    writeLog(agentOut, numberedLines(500, 20), true);
    child<QPushButton>("reloadButton")->click();
    EXPECT_EQ(rows(), 520);
    EXPECT_EQ(bar->value(), middle);
    ASSERT_EQ(table()->selectionModel()->selectedRows().size(), 1);
    EXPECT_EQ(cell(table()->selectionModel()->selectedRows().at(0).row(), 3), selectedLine);

    // Wrapped rows are measured again after the read; the view must not slide.
    writeLog(agentOut, numberedLines(0, 400).replace(u'\n', QStringLiteral(" and more\n")));
    child<QCheckBox>("wrapCheck")->setChecked(true);
    child<QPushButton>("reloadButton")->click();
    table()->horizontalHeader()->resizeSection(LogTableModel::sourceColumn, 700);
    ASSERT_TRUE(waitFor([&] { return table()->rowHeight(0) > 40; }));
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
    EXPECT_EQ(t->rowHeight(1), 17);

    const MessageLayout layout(logCellFont());
    auto expected = [&](const QString& text) {
        const int width = t->columnWidth(LogTableModel::messageColumn);
        return RowHeight::wrapped(layout.measure(text, RowHeight::wrapBoxWidth(width)));
    };
    wrap->setChecked(true);
    const int wide = t->rowHeight(1);
    EXPECT_EQ(wide, expected(longMessage));
    EXPECT_EQ(t->rowHeight(0), expected(QStringLiteral("short")));
    EXPECT_LT(t->rowHeight(0), wide);

    // Narrowing the message column (by widening another) makes the row taller.
    t->horizontalHeader()->resizeSection(LogTableModel::sourceColumn, 400);
    EXPECT_EQ(t->columnWidth(LogTableModel::messageColumn),
              t->viewport()->width() - 175 - 62 - 400);
    ASSERT_TRUE(waitFor([&] { return t->rowHeight(1) > wide; }));
    EXPECT_EQ(t->rowHeight(1), expected(longMessage));

    wrap->setChecked(false);
    EXPECT_EQ(t->rowHeight(0), 17);
    EXPECT_EQ(t->rowHeight(1), 17);

    // A line feed kept in a JSON message is a space on one line, a break when wrapping.
    writeLog(agentOut,
             QStringLiteral("{\"ts\":\"2024-05-01\",\"msg\":\"intercepted\\nupstream\"}\n"));
    child<QPushButton>("reloadButton")->click();
    EXPECT_EQ(cell(0, 3), QStringLiteral("intercepted upstream"));
    wrap->setChecked(true);
    EXPECT_EQ(t->rowHeight(0), RowHeight::wrapped(2 * layout.lineHeight()));
}

TEST(MessageLayout, ShortAsciiLinesMeasureLikeAFullLayout) {
    // Short ASCII messages skip the text layout; a zero-width space at the end
    // forces the layout without changing where lines break.
    const MessageLayout layout(logCellFont());
    const QStringList texts{"x", "connection accepted from 10.0.0.7:443",
                            "a b c d e f g h i j k l m n o p q r s t u v w x y z",
                            "no-breaks-here-at-all-just-one-long-word-of-text"};
    for (const QString& text : texts)
        for (double width = 40; width < 600; width += 7)
            EXPECT_EQ(layout.measure(text, width), layout.measure(text + u'\u200b', width))
                << text << " at " << width;
}

// The Linux route; macOS hands the file to `open -R`.
#ifndef Q_OS_MACOS
// A stand-in for a system tool: records its arguments, exits with `code`.
void fakeTool(const QString& suitePath, int code) {
    const QString host = sandbox::hostPath(suitePath);
    ASSERT_TRUE(QDir().mkpath(QFileInfo(host).path()));
    QFile file(host);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QStringLiteral("#!/bin/sh\nprintf '%s\\n' \"$@\" > \"$0.args\"\nexit %1\n")
                   .arg(code)
                   .toUtf8());
    file.setPermissions(file.permissions() | QFileDevice::ExeOwner);
}

QString argsOf(const QString& suitePath) {
    QFile file(sandbox::hostPath(suitePath) + QStringLiteral(".args"));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

const QString dbusSend = QStringLiteral("/usr/bin/dbus-send");
const QString xdgOpen = QStringLiteral("/usr/bin/xdg-open");

TEST_F(LogViewerTest, OpenFolderShowsTheHostFileInTheFileManager) {
    writeLog(agentOut, numberedLines(0, 1));
    fakeTool(dbusSend, 0);
    fakeTool(xdgOpen, 0);
    viewer.show();
    child<QPushButton>("openFolderButton")->click();
    ASSERT_TRUE(waitFor([] { return !argsOf(dbusSend).isEmpty(); }));
    const QString args = argsOf(dbusSend);
    EXPECT_TRUE(args.contains(QStringLiteral("org.freedesktop.FileManager1.ShowItems"))) << args;
    EXPECT_TRUE(args.contains(QStringLiteral("array:string:file://") + sandbox::hostPath(agentOut)))
        << args;
    EXPECT_EQ(argsOf(xdgOpen), QString());
}

TEST_F(LogViewerTest, WithoutAFileManagerRevealOpensTheFolder) {
    const QString odd = QStringLiteral("/var/log/ostrel/a,b.log");
    writeLog(odd, numberedLines(0, 1));
    fakeTool(dbusSend, 1);
    fakeTool(xdgOpen, 0);
    EXPECT_TRUE(revealInFileBrowser(odd));
    EXPECT_TRUE(argsOf(dbusSend).contains(QStringLiteral("a%2Cb.log"))) << argsOf(dbusSend);
    EXPECT_EQ(argsOf(xdgOpen), sandbox::hostPath(QStringLiteral("/var/log/ostrel")) + u'\n');

    fakeTool(xdgOpen, 3);
    EXPECT_FALSE(revealInFileBrowser(odd));
}
#endif

}  // namespace
