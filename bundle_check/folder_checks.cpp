// Files that must not reach a customer: keys, version control, backups, images that are not used.
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QRegularExpression>
#include <vector>

#include "bundle_check/checks.h"
#include "bundle_check/file_kind.h"
#include "bundle_check/files.h"
#include "bundle_check/image_contents.h"
#include "bundle_check/key_file.h"
#include "config/bundle_paths.h"

using namespace Qt::StringLiterals;

namespace bundle_check {

namespace {

struct Stray {
    char16_t const* pattern;  // of the whole name, without regard to case
    char16_t const* text;     // the end of "'NAME' ..."
    bool is_key = false;      // a text of its own follows
};

constexpr Stray kStrays[] = {
    {uR"(.*\.(pem|key|p8|p12|pfx|jks|keystore|mobileprovision)|id_(rsa|dsa|ecdsa|ed25519))",
     u"is a key or a certificate, judging by its name", true},
    {uR"(\.(git|svn|hg|bzr)|\.git(ignore|attributes|keep|modules))", u"belongs to version control"},
    {uR"(.*(~|\.(bak|old|orig|rej|sav|save|tmp|swp|swo))|#.*#|\.#.*|.* - copy(\..*)?|copy of .*)",
     u"is a backup or a temporary file, judging by its name"},
    {uR"(\.DS_Store|Thumbs\.db|desktop\.ini|__MACOSX|\._.*)",
     u"was left by a file manager or an archive program"},
    {uR"(\.env(\..*)?)",
     u"contains, judging by its name, environment variables, which often include passwords"},
    {uR"(\.(idea|vscode))", u"has the settings of a development environment"},
    {uR"(.*\.(map|lst|o|obj|a|su|d))", u"is left over from a build"},
    {uR"(config(?!\.ini$).*\.ini.*)",
     u"is a copy of config.ini, judging by its name, and the program reads only config.ini"},
};

constexpr char16_t kImagePattern[] =
    uR"(.*\.(bin|hex|ihx|ihex|elf|axf|out|srec|s19|s28|s37|mot|)"
    uR"(uf2|dfu|img|signed))";

QRegularExpression Compile(char16_t const* pattern)
{
    return QRegularExpression(QRegularExpression::anchoredPattern(QString::fromUtf16(pattern)),
                              QRegularExpression::CaseInsensitiveOption);
}

// Why a file of this name does not belong into a bundle, or null.
Stray const* FindStray(QString const& name)
{
    static auto const patterns = [] {
        std::vector<QRegularExpression> compiled;
        for (auto const& stray : kStrays) {
            compiled.push_back(Compile(stray.pattern));
        }
        return compiled;
    }();
    for (size_t i = 0; i < patterns.size(); ++i) {
        if (patterns[i].match(name).hasMatch()) {
            return &kStrays[i];
        }
    }
    return nullptr;
}

bool HasNameOfImage(QString const& name)
{
    static auto const pattern = Compile(kImagePattern);
    return pattern.match(name).hasMatch();
}

bool HasContentsOfImage(QString const& path)
{
    auto const head = ReadHead(path, kKindHead).value_or(QByteArray());
    auto const kind = FindForeignKind(head, ReadTail(path, kKindTail).value_or(QByteArray()));
    return kind ? kind->is_firmware : head.startsWith(kMcubootMagic) || BeginsWithVectorTable(head);
}

class FolderCheck {
public:
    // `image`: what the configuration names; need not be a file.
    FolderCheck(QDir const& root, QDir const& resources, QString const& image, Findings& findings)
        : root_(root),
          resources_(QDir::cleanPath(resources.absolutePath()) + u'/'),
          image_(QFileInfo(image).isFile() ? QFileInfo(image).canonicalFilePath() : QString()),
          findings_(findings)
    {}

    void Run()
    {
        constexpr int kMostEntries = 20'000;
        QDirIterator entries(root_.absolutePath(),
                             QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                             QDirIterator::Subdirectories);
        for (int count = 0; count < kMostEntries && entries.hasNext(); ++count) {
            entries.next();
            if (!IsInsideReported(entries.filePath())) {
                CheckEntry(entries.fileInfo());
            }
        }
    }

private:
    // What is in a folder that was reported need not be.
    bool IsInsideReported(QString const& path) const
    {
        return !reported_.isEmpty() && path.startsWith(reported_ + u'/');
    }

    void Report(QFileInfo const& entry, QString const& text)
    {
        Add(entry, Severity::Warning, u"%1; remove it from the bundle."_s.arg(text));
    }

    void ReportKey(QFileInfo const& entry, QString const& text)
    {
        Add(entry, findings_.InPackage(),
            u"%1, and everyone who has the bundle can read it; remove it from the bundle, and "
            "replace the key if such a bundle was shipped."_s.arg(text));
    }

    void Add(QFileInfo const& entry, Severity severity, QString const& text)
    {
        reported_ = entry.filePath();
        findings_.Add(severity, {},
                      u"%1 %2"_s.arg(Quote(root_.relativeFilePath(entry.filePath())), text));
    }

    void CheckEntry(QFileInfo const& entry)
    {
        if (auto const* stray = FindStray(entry.fileName())) {
            auto const text = QString::fromUtf16(stray->text);
            stray->is_key ? ReportKey(entry, text) : Report(entry, text);
        } else if (auto const key = FindKey(entry); !key.isEmpty()) {
            ReportKey(entry, u"contains "_s + key);
        } else if (entry.isFile() && IsUnusedImage(entry)) {
            Report(entry, u"looks like a firmware image, but %1 does not name it"_s.arg(
                              QString(config_keys::kFirmwareFilename.name)));
        }
    }

    static QString FindKey(QFileInfo const& entry)
    {
        auto const may_be_key = entry.isFile() && entry.size() < kMostKeyBytes;
        auto const content = may_be_key ? ReadHead(entry.filePath(), kMostKeyBytes) : std::nullopt;
        return content ? FindPrivateKey(*content) : QString();
    }

    // The driver is an application with files of its own.
    bool IsUnusedImage(QFileInfo const& entry) const
    {
        auto const path = QDir::cleanPath(entry.absoluteFilePath());
        return path.startsWith(resources_) && !path.contains(u".app/"_s) && !image_.isEmpty() &&
               entry.canonicalFilePath() != image_ &&
               (HasNameOfImage(entry.fileName()) || HasContentsOfImage(entry.filePath()));
    }

    QDir root_;
    QString resources_;
    QString image_;
    Findings& findings_;
    QString reported_;
};

}  // namespace

void CheckFolder(QDir const& root, QDir const& resources, QString const& image, Findings& findings)
{
    FolderCheck(root, resources, image, findings).Run();
}

}  // namespace bundle_check
