// Recognises files that are not raw images, by their first and last bytes. Pure.
#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace bundle_check {

struct FileKind {
    QString name;      // with its article: "an ELF file"
    QString cure;      // what to do with it, ending in the command that makes a raw image
    bool is_firmware;  // in a form that tools for microcontrollers write
};

// How many bytes of a file's beginning and end are looked at.
inline constexpr qsizetype kKindHead = 4096;
inline constexpr qsizetype kKindTail = 16;

// Nothing for a file that may be a raw image. `head` and `tail`: the file's first kKindHead and
// last kKindTail bytes; both the whole file when it is shorter.
std::optional<FileKind> FindForeignKind(QByteArray const& head, QByteArray const& tail);

}  // namespace bundle_check
