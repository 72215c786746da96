// The first lines of a run in the log.
#include "app/session_report.h"

#include <gmock/gmock.h>

#include <QFile>
#include <QTemporaryDir>

namespace {

using testing::Contains;
using testing::ElementsAre;
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

    void WriteImage(QByteArray const& content)
    {
        QFile image(image_);
        ASSERT_TRUE(image.open(QIODevice::WriteOnly));
        ASSERT_EQ(image.write(content), content.size());
    }

    QTemporaryDir directory_;
    QString image_ = directory_.filePath(QStringLiteral("image.bin"));
};

TEST_F(SessionReport, HasVersionsConfigurationAndImage)
{
    EXPECT_THAT(Describe(), ElementsAre(StartsWith("---- start of version "), StartsWith("Qt 6."),
                                        "configuration: config.ini", "    interface = usb",
                                        StartsWith("image: ")));
}

TEST_F(SessionReport, HasTheSizeOfTheImage)
{
    WriteImage("abc");
    EXPECT_THAT(Describe(), Contains("image: " + image_.toStdString() + ", 3 bytes"));
}

TEST_F(SessionReport, SaysWhenThereIsNoImage)
{
    EXPECT_THAT(Describe(), Contains("image: " + image_.toStdString() + ", not there"));
}

}  // namespace
