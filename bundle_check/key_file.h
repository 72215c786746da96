// Recognises private keys by the contents of a file, in the notations that signing tools write:
// PEM, DER, PKCS#12, and those of OpenSSH and PuTTY. Pure.
#pragma once

#include <QByteArray>
#include <QString>

namespace bundle_check {

// A file of this size or more is no key, and need not be looked at.
inline constexpr qint64 kMostKeyBytes = 64 * 1024;

// What the file contains, with its article: "a private key (PKCS#8)"; an empty text if it has no
// private key. `content`: the whole file.
QString FindPrivateKey(QByteArray const& content);

}  // namespace bundle_check
