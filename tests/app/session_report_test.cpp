// The first lines of a run in the log.
#include "app/session_report.h"

#include <gmock/gmock.h>

#include <QFile>
#include <QTemporaryDir>

#include "tests/support/files.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

class SessionReport : public testing::Test {
protected:
    std::vector<std::string> Describe() const
    {
        QStringList const configuration{QStringLiteral("configuration: config.ini"),
                                        QStringLiteral("    interface = usb")};
        std::vector<std::string> lines;
        for (auto const& line : DescribeSession(configuration, image_)) {
            lines.push_back(line.toStdString());
        }
        return lines;
    }

    QTemporaryDir directory_;
    QString image_ = directory_.filePath(QStringLiteral("image.bin"));
};

TEST_F(SessionReport, HasVersionsConfigurationAndImage)
{
    EXPECT_THAT(Describe(), ElementsAre(StartsWith("---- start of version "), StartsWith("Qt 6."),
                                        "configuration: config.ini", "    interface = usb",
                                        "image: " + image_.toStdString() + ", not there"));
}

TEST_F(SessionReport, HasSizeAndDigestOfAnImageThatIsNotTooLargeToRead)
{
    WriteFile(image_, "abc");
    EXPECT_THAT(Describe().back(),
                EndsWith(", 3 bytes, SHA-256 "
                         "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
    ASSERT_TRUE(QFile::resize(image_, qint64{1} << 30));
    EXPECT_THAT(Describe().back(), EndsWith(", 1073741824 bytes"));
}

}  // namespace
