// What is read from dfu-util's output during a download.
#include "modules/stm32_updater/dfu_util_output.h"

#include <gtest/gtest.h>

#include <QFile>
#include <algorithm>
#include <vector>

#include "modules/stm32_updater/limits.h"

namespace stm32_updater {
namespace {

using std::nullopt;

struct Row {
    char const* name;
    QByteArray output;
    std::optional<int> percentage;
};

TEST(DownloadPercentage, IsReadFromTheNewestBarOfTheLastLine)
{
    Row const rows[] = {
        {"a bar", "Download [=====     ]  42%", 42},
        {"a bar of dfu-util 0.11", "\rDownload\t[=========================] 100%   40960 bytes",
         100},
        {"the first bar", "\rDownload\t[                         ]   0%       0 bytes", 0},
        {"several bars", "Download [==] 90%\rDownload [===] 95%\rDownload [= ] 10%", 10},
        {"a bar cut in its title", "Download [==] 40%\rDownl", 40},
        {"a bar cut before its number", "Download [==] 40%\rDownload [===] ", 40},
        {"a bar cut in its number", "Download [==] 40%\rDownload [===] 4", 40},
        {"bars on several lines", "Download [=] 10%\nDownload [==] 20%\nDownload [===] 30%", 30},
        {"a newline at the end", "Download [===] 30%\n", nullopt},
        {"another line at the end", "Download [===] 30%\nDownload done.", nullopt},
        {"a bar across two lines", "Download\n[==] 42%", nullopt},
        {"no output", "", nullopt},
        {"an erase", "\rErase   \t[=====          ]  20%         8192 bytes", nullopt},
        {"no number", "Download [===] %", nullopt},
        {"no percent sign", "Download [===] 42", nullopt},
        {"no bracket", "Download 42%", nullopt},
        {"a letter before the number", "Download [===] x42%", nullopt},
        {"a number in two parts", "Download [===] 4 2%", nullopt},
        {"another title", "download [===] 42%", nullopt},
        {"a number before the bar", "42% Download [===]", nullopt},
        {"no space", "Download]7%", 7},
        {"every kind of space", "Download [==] \t\r\v\f 7%", 7},
        {"a bracket behind the number", "Downloading to address = 0x08000000 [==] 7% [] 8", 7},
        {"leading zeros", "Download [] 007%", 7},
        {"the largest int", "Download [] 2147483647%", 2147483647},
        {"a number beyond int", "Download [] 2147483648%", 0},
        {"a number of 4000 digits", "Download [] " + QByteArray(4000, '9') + "%", 0},
        {"bytes that are not text", "\xFF\xFE\xC3 Download\xE2\x82 [\x80==]\t42%\xF0\x9F", 42},
        {"zero bytes", QByteArray("\0Download\0[=]\0 [=] 9%\0", 22), 9},
        {"digits of another script", "Download [=] \xD9\xA4\xD9\xA2%", nullopt},
    };
    for (auto const& [name, output, percentage] : rows) {
        EXPECT_EQ(FindDownloadPercentage(output), percentage) << name;
    }
}

// A run of dfu-util 0.11 that wrote 64 KiB, read up to each of its bytes.
TEST(DownloadPercentage, RisesDuringARecordedDownload)
{
    QFile file(QStringLiteral(FW_RECORDED_OUTPUT "/dfu_util_0.11_download.txt"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    auto const output = file.readAll();
    auto const first_bar = output.indexOf("\rDownload\t[");
    ASSERT_GE(first_bar, 0);
    auto const bars_end = output.indexOf('\n', first_bar);

    std::vector<int> seen;
    for (qsizetype end = 0; end <= output.size(); ++end) {
        if (auto const percentage = FindDownloadPercentage(output.first(end))) {
            EXPECT_TRUE(end > first_bar && end <= bars_end) << end;
            seen.push_back(*percentage);
        }
    }

    EXPECT_TRUE(std::ranges::is_sorted(seen));
    EXPECT_GT(std::ranges::distance(seen.begin(), std::unique(seen.begin(), seen.end())), 20);
    EXPECT_EQ(seen.front(), 0);
    EXPECT_EQ(*std::ranges::max_element(seen), 100);
}

// What would keep a search that starts again at every "Download" busy for a long time.
TEST(DownloadPercentage, IsNotFoundInAFullTailWithoutOne)
{
    for (auto const* piece : {"Download", "Download [", "]", "Download]", "Download] 1", "] "}) {
        QByteArray output = "Download";
        while (output.size() < static_cast<qsizetype>(kDfuOutputTail)) {
            output += piece;
        }
        EXPECT_EQ(FindDownloadPercentage(output), nullopt) << piece;
    }
    EXPECT_EQ(FindDownloadPercentage("Download]" + QByteArray(kDfuOutputTail, ' ')), nullopt);
    EXPECT_EQ(FindDownloadPercentage("Download]" + QByteArray(kDfuOutputTail, '1')), nullopt);
}

TEST(OutputTail, KeepsTheLastBytesOfPiecesOfAnySize)
{
    constexpr auto kTail = static_cast<qsizetype>(kDfuOutputTail);
    QByteArray tail;
    AppendToTail(tail, "Download [==] 4");
    AppendToTail(tail, "");
    AppendToTail(tail, "2%");
    EXPECT_EQ(tail, "Download [==] 42%");

    AppendToTail(tail, QByteArray(kTail - tail.size(), '#'));
    EXPECT_EQ(tail.size(), kTail);
    EXPECT_TRUE(tail.startsWith("Download [==] 42%"));

    AppendToTail(tail, "!");
    EXPECT_EQ(tail.size(), kTail);
    EXPECT_TRUE(tail.startsWith("ownload [==] 42%"));
    EXPECT_TRUE(tail.endsWith("#!"));

    AppendToTail(tail, QByteArray(5'000'000, '.') + "end");
    EXPECT_EQ(tail, QByteArray(kTail - 3, '.') + "end");
}

}  // namespace
}  // namespace stm32_updater
