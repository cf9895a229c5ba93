#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>
#include <memory>

#include "logs/log_encoding.h"
#include "logs/log_tail.h"
#include "platform/file_system.h"

namespace varnel {

// Follows one log file byte by byte: keeps its descriptor, reads on from where
// it left off, hands on whole lines only (an unfinished last line waits for
// its line feed) in pieces of bounded size, and notices when the path gets
// another file (rename and create) or the file is cut short (copy and
// truncate).
class LogReader {
public:
    enum class Mode {
        // Every line once: the file that was at the path is read to its end
        // before the new one, and the lines written just before a cut are
        // recovered from the rotated copy (PATH.1) when it continues exactly
        // what was read.
        stream,
        // Only the file at the path matters: a change is reported at once.
        window,
    };

    enum class Event {
        none,
        // The path holds another file; what follows is that file from its start.
        replaced,
        // The file was cut short and the lines written before the cut were
        // recovered from the rotated copy; what follows is the file from its start.
        truncated,
        // The file was cut short and nothing continues what was read: lines
        // may be missing. What follows is the file from its start.
        truncatedWithLoss,
        // Nothing is at the path any more; the file it was is still read.
        gone,
    };

    struct Chunk {
        Event event = Event::none;  // what happened before `text`
        QByteArray text;            // whole lines, each with its line feed, as UTF-8 that
                                    // reads as LogText reads it
        bool more = false;          // more is waiting: ask again at once
    };

    explicit LogReader(QString path = {}, Mode mode = Mode::stream);
    ~LogReader();
    LogReader(LogReader&&) noexcept;
    LogReader& operator=(LogReader&&) noexcept;

    // Opens the file at the path afresh and reads its tail as readLogTail()
    // does, saying where it stands in `where`; reading on starts just past the
    // tail's last line feed.
    LogTail start(quint64 maxBytes, TailPlace* where = nullptr);

    // The lines that arrived since, about `limit` bytes at most: a line longer
    // than that is handed on in pieces, each ended with a line feed. A look at
    // an unchanged file costs one stat.
    Chunk next(qsizetype limit = qsizetype(1) << 20);

    // The path may hold something other than at the last look.
    bool changed() const;

    const QString& path() const { return path_; }
    // The file read now (none before the path first held one), and just past
    // the whole lines handed on from it.
    const fs::ReadOnlyFile* file() const { return file_.get(); }
    quint64 offset() const { return offset_; }
    // At the last read the file held the start of a line not yet whole.
    bool unfinished() const { return end_ > offset_; }
    LogEncoding::Kind encoding() const { return encoding_; }

private:
    void restartAt(std::unique_ptr<fs::ReadOnlyFile> file);
    void lookAtPath(Chunk& out);
    void checkForCut(Chunk& out);
    bool continuesPrint(const fs::ReadOnlyFile& file) const;
    void readLines(Chunk& out, qsizetype limit);

    enum class Source { path, oldFile, rotatedCopy };

    QString path_;
    Mode mode_;
    std::unique_ptr<fs::ReadOnlyFile> file_;
    Source source_ = Source::path;
    Event afterDrain_ = Event::none;  // to report once the old file or copy is read
    Event pending_ = Event::none;     // to report with the next lines
    quint64 offset_ = 0;
    quint64 end_ = 0;
    QByteArray print_;  // the last bytes handed on, to tell a rewrite from growth
    LogEncoding::Kind encoding_ = LogEncoding::Kind::utf8;
    fs::FileStamp seen_;  // the path just before the last read
    bool more_ = false;
    bool goneSaid_ = false;
};

}  // namespace varnel
