// The first lines of a run in the log.
#include "app/session_report.h"

#include <gmock/gmock.h>

#include <QTemporaryDir>

#include "tests/support/files.h"

namespace {

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

    QTemporaryDir directory_;
    QString image_ = directory_.filePath(QStringLiteral("image.bin"));
};

TEST_F(SessionReport, HasVersionsConfigurationAndImage)
{
    EXPECT_THAT(Describe(), ElementsAre(StartsWith("---- start of version "), StartsWith("Qt 6."),
                                        "configuration: config.ini", "    interface = usb",
                                        "image: " + image_.toStdString() + ", not there"));
}

TEST_F(SessionReport, HasTheSizeOfTheImage)
{
    WriteFile(image_, "abc");
    EXPECT_EQ(Describe().back(), "image: " + image_.toStdString() + ", 3 bytes");
}

}  // namespace
