// Files that may be anything: what is wrong with one, told without opening what could block, and
// its content, never more of it than asked for.
#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace bundle_check {

// Why `path` is no file that can be read, as the end of a sentence ("does not exist"); an empty
// text if nothing speaks against it. A pipe or a device is never opened.
QString TellFileFault(QString const& path);

// The first bytes of a regular file, at most `limit`; nothing when it cannot be read.
std::optional<QByteArray> ReadHead(QString const& path, qint64 limit);

}  // namespace bundle_check
