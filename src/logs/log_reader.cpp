#include "logs/log_reader.h"

#include <utility>

namespace varnel {

namespace {

// Enough to tell a rewritten file from one that grew, in practice.
constexpr qsizetype kPrintBytes = 64;

bool sameFile(const fs::FileStamp& a, const fs::FileStamp& b) {
    return a.present && b.present && a.device == b.device && a.inode == b.inode;
}

}  // namespace

LogReader::LogReader(QString path, Mode mode) : path_(std::move(path)), mode_(mode) {}
LogReader::~LogReader() = default;
LogReader::LogReader(LogReader&&) noexcept = default;
LogReader& LogReader::operator=(LogReader&&) noexcept = default;

LogTail LogReader::start(quint64 maxBytes, TailPlace* where) {
    // Taken first, so that whatever changes during the read shows at the next look.
    seen_ = fs::stamp(path_);
    restartAt(std::make_unique<fs::ReadOnlyFile>(path_));
    afterDrain_ = pending_ = Event::none;
    goneSaid_ = false;
    TailPlace place;
    LogTail tail = readLogTail(*file_, maxBytes, place);
    if (where != nullptr) *where = place;
    if (tail.error) {
        file_.reset();
        return tail;
    }
    encoding_ = place.encoding;
    offset_ = place.wholeEnd;
    end_ = place.end;
    const qsizetype printSize = qsizetype(qMin<quint64>(kPrintBytes, offset_));
    print_ = file_->readExactly(offset_ - quint64(printSize), printSize).value_or(QByteArray());
    return tail;
}

bool LogReader::changed() const {
    return fs::stamp(path_) != seen_;
}

void LogReader::restartAt(std::unique_ptr<fs::ReadOnlyFile> file) {
    file_ = std::move(file);
    source_ = Source::path;
    offset_ = 0;
    end_ = 0;
    print_.clear();
    more_ = false;
}

LogReader::Chunk LogReader::next(qsizetype limit) {
    Chunk out;
    out.event = std::exchange(pending_, Event::none);
    const bool open = file_ && file_->isOpen();
    // While the path is empty the old file may still grow: look at it too.
    if (source_ == Source::path && out.event == Event::none && !more_ && (seen_.present || !open) &&
        !changed())
        return out;
    if (source_ == Source::path) lookAtPath(out);
    readLines(out, limit);
    if (source_ != Source::path && !out.more) {
        // Read to its end: on to the file at the path, from its start.
        restartAt(std::make_unique<fs::ReadOnlyFile>(path_));
        pending_ = std::exchange(afterDrain_, Event::none);
        out.more = true;
    }
    more_ = out.more;
    return out;
}

void LogReader::lookAtPath(Chunk& out) {
    seen_ = fs::stamp(path_);
    if (!file_ || !file_->isOpen()) {
        auto file = std::make_unique<fs::ReadOnlyFile>(path_);
        if (!file->isOpen()) return;
        restartAt(std::move(file));
        out.event = Event::replaced;
        return;
    }
    if (!seen_.present) {
        if (mode_ == Mode::window || !goneSaid_) out.event = Event::gone;
        goneSaid_ = true;
        return;
    }
    goneSaid_ = false;
    if (sameFile(seen_, file_->stamp())) {
        checkForCut(out);
    } else if (mode_ == Mode::stream) {
        source_ = Source::oldFile;
        afterDrain_ = Event::replaced;
    } else {
        restartAt(std::make_unique<fs::ReadOnlyFile>(path_));
        out.event = Event::replaced;
    }
}

bool LogReader::continuesPrint(const fs::ReadOnlyFile& file) const {
    return print_.isEmpty() ||
           file.readExactly(offset_ - quint64(print_.size()), print_.size()) == print_;
}

void LogReader::checkForCut(Chunk& out) {
    if (file_->stamp().size >= offset_ && continuesPrint(*file_)) return;
    // Copied away and truncated: what was written between the last read and
    // the copy is in the copy, if it continues exactly what was read.
    if (mode_ == Mode::stream) {
        auto copy = std::make_unique<fs::ReadOnlyFile>(path_ + QStringLiteral(".1"));
        if (copy->isOpen() && copy->stamp().size >= offset_ && continuesPrint(*copy)) {
            file_ = std::move(copy);
            source_ = Source::rotatedCopy;
            afterDrain_ = Event::truncated;
            return;
        }
    }
    out.event = Event::truncatedWithLoss;
    restartAt(std::move(file_));
}

void LogReader::readLines(Chunk& out, qsizetype limit) {
    if (!file_ || !file_->isOpen()) return;
    const quint64 size = file_->stamp().size;
    end_ = size;
    if (offset_ == 0) {
        const auto head = file_->readExactly(0, qsizetype(qMin<quint64>(2, size)));
        if (!head || LogEncoding::undecided(*head)) return;
        encoding_ = LogEncoding::detect(*head);
    }
    if (size <= offset_) return;
    const quint64 available = size - offset_;
    QByteArray bytes(qsizetype(qMin<quint64>(available, quint64(limit))), Qt::Uninitialized);
    bytes.truncate(qMax<qsizetype>(file_->readAt(offset_, bytes.data(), bytes.size()), 0));
    const bool atEnd = quint64(bytes.size()) >= available;

    qsizetype take = LogEncoding::wholeLinesEnd(bytes, encoding_);
    bool endLine = false;
    if (atEnd && take < bytes.size() && source_ != Source::path) {
        // Nothing writes to it any more: its last line is as whole as it gets.
        take = bytes.size();
        endLine = true;
    } else if (take == 0 && !atEnd) {
        // A line longer than the limit goes on in pieces.
        take = LogEncoding::characterBoundary(bytes, encoding_);
        if (take == 0) take = bytes.size();
        endLine = true;
    }
    bytes.truncate(take);
    out.text = LogEncoding::toUtf8(bytes, encoding_);
    if (endLine) out.text += '\n';
    offset_ += quint64(take);
    print_ = bytes.size() >= kPrintBytes ? bytes.right(kPrintBytes)
                                         : (print_ + bytes).right(kPrintBytes);
    out.more = !atEnd;
}

}  // namespace varnel
