#include "bundle_check/key_file.h"

#include <QByteArrayView>
#include <QList>
#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

// The tags of ASN.1 that matter here (X.690).
constexpr uint8_t kInteger = 0x02;
constexpr uint8_t kOctetString = 0x04;
constexpr uint8_t kObjectId = 0x06;
constexpr uint8_t kSequence = 0x30;

// Beginnings of object identifiers, encoded: of the algorithms of PKCS#5 and of PKCS#12 that
// encrypt with a passphrase, and of the kinds of content of PKCS#7.
constexpr char kPkcs5[] = "\x2A\x86\x48\x86\xF7\x0D\x01\x05";
constexpr char kPkcs12Encryption[] = "\x2A\x86\x48\x86\xF7\x0D\x01\x0C\x01";
constexpr char kPkcs7[] = "\x2A\x86\x48\x86\xF7\x0D\x01\x07";

struct Element {
    int tag = -1;  // -1: there is none
    QByteArrayView content;

    bool IsNumber(int value) const
    {
        return tag == kInteger && content.size() == 1 && content[0] == value;
    }
    // An algorithm, which begins with its object identifier.
    bool IsAlgorithm() const { return tag == kSequence && content.startsWith(kObjectId); }
    bool HasId(QByteArrayView beginning) const
    {
        return IsAlgorithm() &&
               content.sliced(std::min(qsizetype{2}, content.size())).startsWith(beginning);
    }
};

// Takes the first element off `bytes`. One without a length (BER) gets all the rest; there is none
// if the bytes end before it does.
Element Take(QByteArrayView& bytes)
{
    constexpr qsizetype kMostLengthBytes = 3;
    if (bytes.size() < 2) {
        return {};
    }
    auto const first = static_cast<uint8_t>(bytes[1]);
    bool const is_long = first > 0x80;
    auto const length_bytes = is_long ? first - 0x80 : 0;
    auto const head = qsizetype{2} + length_bytes;
    if (length_bytes > kMostLengthBytes || bytes.size() < head) {
        return {};
    }
    qsizetype length = first == 0x80 ? bytes.size() - head : first;
    if (is_long) {
        length = 0;
        for (auto const byte : bytes.sliced(2, length_bytes)) {
            length = length << 8 | static_cast<uint8_t>(byte);
        }
    }
    if (bytes.size() - head < length) {
        return {};
    }
    Element const element{static_cast<uint8_t>(bytes[0]), bytes.sliced(head, length)};
    bytes = bytes.sliced(head + length);
    return element;
}

// PKCS#1 is RFC 8017, PKCS#8 RFC 5958, SEC1 RFC 5915, PKCS#12 RFC 7292. A DSA key looks like
// PKCS#1. Certificates, public keys and signatures begin otherwise.
QString FindDerKey(QByteArrayView content)
{
    constexpr qsizetype kShortestModulus = 32;
    auto const file = Take(content);
    if (file.tag != kSequence || !content.isEmpty()) {
        return {};
    }
    auto rest = file.content;
    auto const first = Take(rest);
    auto const second = Take(rest);
    auto const third = Take(rest);
    bool const is_key = first.IsNumber(0) || first.IsNumber(1);
    if (is_key && second.tag == kInteger && second.content.size() >= kShortestModulus) {
        return u"a private key (PKCS#1)"_s;
    }
    if (is_key && second.IsAlgorithm() && third.tag == kOctetString) {
        return u"a private key (PKCS#8)"_s;
    }
    if (first.IsNumber(1) && second.tag == kOctetString) {
        return u"a private key (SEC1)"_s;
    }
    if ((first.HasId(kPkcs5) || first.HasId(kPkcs12Encryption)) && second.tag == kOctetString) {
        return u"an encrypted private key (PKCS#8)"_s;
    }
    if (first.IsNumber(3) && second.HasId(kPkcs7)) {
        return u"a PKCS#12 file, which usually contains a private key"_s;
    }
    return {};
}

// A line of its own, since programs and documents may contain its text.
bool HasPemKey(QByteArray content)
{
    content.replace('\r', '\n');
    auto const lines = content.split('\n');
    return std::ranges::any_of(lines, [](QByteArray const& line) {
        auto const text = (line.startsWith("\xEF\xBB\xBF") ? line.sliced(3) : line).trimmed();
        return text.startsWith("-----BEGIN ") &&
               (text.endsWith("PRIVATE KEY-----") || text.endsWith("PRIVATE KEY BLOCK-----"));
    });
}

}  // namespace

QString FindPrivateKey(QByteArray const& content)
{
    if (content.startsWith(QByteArrayView("openssh-key-v1\0", 15))) {
        return u"an OpenSSH private key"_s;
    }
    if (content.startsWith("PuTTY-User-Key-File-")) {
        return u"a PuTTY private key"_s;
    }
    return HasPemKey(content) ? u"a private key"_s : FindDerKey(content);
}

}  // namespace bundle_check
