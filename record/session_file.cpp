#include "record/session_file.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "record/event.h"
#include "record/pcapng_writer.h"
#include "record/session_buffer.h"

#ifdef Q_OS_UNIX
#include <sys/file.h>
#endif

namespace record {
namespace {

// A lock that ends with the process, however that ends.
bool TryLock(QFile const& file)
{
#ifdef Q_OS_UNIX
    return flock(file.handle(), LOCK_EX | LOCK_NB) == 0;
#else
    return file.isOpen();
#endif
}

// A number of a block that this program has written, so in this machine's byte order.
uint32_t GetNumber(QByteArrayView block, qsizetype offset)
{
    uint32_t number = 0;
    std::memcpy(&number, block.data() + offset, sizeof number);
    return number;
}

constexpr qsizetype kLengthOffset = 4;
constexpr qsizetype kTimeOffset = 12;  // of a packet, the higher half first
constexpr qsizetype kCapturedOffset = 20;

// The end of the last block of `file` that ends at or before `limit`; blocks begin at `begin`.
qsizetype FindBlockEnd(QByteArrayView file, qsizetype begin, qsizetype limit)
{
    while (begin + kBlockHeaderSize <= file.size()) {
        auto const length = static_cast<qsizetype>(GetNumber(file, begin + kLengthOffset));
        auto const end = begin + length;
        // Never 0, unless somebody else has changed the file.
        if (length == 0 || end > limit) {
            break;
        }
        begin = end;
    }
    return begin;
}

// What is in the blocks that are left out.
struct Middle {
    QByteArray interfaces;  // their blocks, which later packets may need
    uint64_t packets = 0;
    uint64_t bytes = 0;
    uint64_t time = 0;  // of the last packet
};

Middle CollectMiddle(QByteArrayView file, qsizetype begin, qsizetype end)
{
    Middle middle;
    while (begin < end) {
        auto const length = static_cast<qsizetype>(GetNumber(file, begin + kLengthOffset));
        auto const block = file.sliced(begin, length);
        if (GetNumber(block, 0) == kInterfaceBlock) {
            middle.interfaces.append(block);
        } else {
            ++middle.packets;
            middle.bytes += GetNumber(block, kCapturedOffset);
            middle.time = (uint64_t{GetNumber(block, kTimeOffset)} << 32U) |
                          GetNumber(block, kTimeOffset + 4);
        }
        begin += length;
    }
    return middle;
}

}  // namespace

SessionFile::SessionFile(QString path, qint64 limit) : path_(std::move(path)), limit_(limit) {}

bool SessionFile::Create()
{
    return Open(path_);
}

bool SessionFile::Open(QString const& path)
{
    file_ = std::make_unique<QFile>(path);
    if (!file_->open(QIODevice::ReadWrite | QIODevice::NewOnly | QIODevice::Unbuffered,
                     QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
        return Fail(*file_);
    }
    TryLock(*file_);
    return true;
}

bool SessionFile::Append(QByteArrayView blocks)
{
    if (file_->size() + blocks.size() > limit_ && !LeaveOutMiddle()) {
        return false;
    }
    return Write(blocks);
}

bool SessionFile::Write(QByteArrayView bytes)
{
    auto const size = file_->size();
    if (file_->write(bytes.data(), bytes.size()) == bytes.size()) {
        return true;
    }
    Fail(*file_);
    // A block of which only a part fitted on a full disk would make the rest unreadable.
    file_->resize(size);
    return false;
}

bool SessionFile::LeaveOutMiddle()
{
    file_->seek(0);
    auto const content = file_->readAll();
    if (head_size_ == 0) {
        head_size_ = FindBlockEnd(content, 0, limit_ * 3 / 8);
    }
    auto const begin = head_size_ + gap_size_;
    auto const end = FindBlockEnd(content, begin, content.size() - limit_ / 4);
    auto const middle = CollectMiddle(content, begin, end);
    left_out_packets_ += middle.packets;
    left_out_bytes_ += middle.bytes;

    auto replacement = content.first(head_size_) + middle.interfaces;
    head_size_ = replacement.size();
    AppendPacket(replacement, {0, middle.time, Direction::kUnknown}, {},
                 FormatGap(kGapOfSize, left_out_packets_, left_out_bytes_));
    gap_size_ = replacement.size() - head_size_;
    replacement.append(QByteArrayView(content).sliced(end));

    auto const old = std::exchange(file_, nullptr);
    auto const path = GetReplacementPath(path_);
    QFile::remove(path);
    if (!Open(path) || !Write(replacement)) {
        return false;
    }
    std::error_code error;
    std::filesystem::rename(path.toStdU16String(), path_.toStdU16String(), error);
    error_ = QString::fromStdString(error ? error.message() : std::string());
    return !error;
}

bool SessionFile::Finish(QString const& path)
{
    file_->close();
    QFile::remove(GetReplacementPath(path_));
    QFile written(path_);
    if (!written.rename(path)) {
        error_ = QStringLiteral("it cannot be renamed to %1: %2").arg(path, written.errorString());
        return false;
    }
    path_ = path;
    return true;
}

bool SessionFile::Fail(QFileDevice const& file)
{
    error_ = file.errorString();
    return false;
}

bool IsBeingWritten(QString const& path)
{
    QFile file(path);
    return !file.open(QIODevice::ReadOnly) || !TryLock(file);
}

QString GetReplacementPath(QString const& path)
{
    return path + QStringLiteral(".new");
}

}  // namespace record
