// Looks at files of any kind, without opening one that could block: what is wrong with a file, its
// first bytes, and whether a link leads out of the bundle.
#pragma once

#include <QByteArray>
#include <QDir>
#include <QString>
#include <QStringList>
#include <optional>

#include "bundle_check/report.h"

namespace bundle_check {

// Why `path` is not a file that can be read, as the end of a sentence ("does not exist"); an empty
// text if it is one. A pipe or a device is never opened.
QString DescribeFileFault(QString const& path);

// The same for a program, which must also be executable.
QString DescribeProgramFault(QString const& path);

// The first bytes of every ELF file, such as a Linux program.
inline constexpr char kElfHead[] = {0x7F, 'E', 'L', 'F', 0};

// The first bytes of a regular file, at most `limit`; nothing when it cannot be read.
std::optional<QByteArray> ReadHead(QString const& path, qint64 limit);

// The last ones.
std::optional<QByteArray> ReadTail(QString const& path, qint64 limit);

// Reports `path` if it, or a folder on the way to it, is a symbolic link that leads out of the
// bundle: its target exists on the vendor's computer only. An error in a package. A file that does
// not exist leads nowhere, and is reported elsewhere.
void CheckLink(Place const& place, QDir const& resources, QString const& path, Findings& findings);

// The names of the files that match, sorted, so that the same bundle always gives the same report.
QStringList ListFiles(QDir const& directory, QString const& pattern);

// The folder that holds, or would hold, the program of a bundle; everything else is found from
// there. `path`: the folder that holds Contents, an application bundle, or its Contents or
// Resources folder. Nothing for any other folder.
std::optional<QString> FindApplicationDir(QString const& path);

// More bytes than a font or a picture has. The window reads such files whole.
inline constexpr qint64 kMostResourceBytes = 32 * 1024 * 1024;
bool IsTooLarge(QString const& path);

// For which system a bundle is, by its Info.plist and by the programs in its folder. A folder
// without programs is for neither.
bool IsForMacos(QString const& application_dir);
bool IsForLinux(QString const& application_dir);

}  // namespace bundle_check
