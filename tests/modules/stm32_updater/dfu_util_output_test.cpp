// What is read out of dfu-util's output, held against the expression that defines it.
#include "modules/stm32_updater/dfu_util_output.h"

#include <gtest/gtest.h>

#include <QRegularExpression>
#include <QString>
#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace stm32_updater {
namespace {

using std::nullopt;

// As dfu-util 0.11 prints a bar: a carriage return, 25 places, the bytes so far.
std::string Bar(int filled, int percentage, int bytes)
{
    auto const places = static_cast<size_t>(filled);
    std::string bar = "\rDownload\t[" + std::string(places, '=') + std::string(25 - places, ' ');
    auto number = std::to_string(percentage);
    number.insert(0, 3 - number.size(), ' ');
    auto size = std::to_string(bytes);
    size.insert(0, 12 - size.size(), ' ');
    return bar + "] " + number + "%" + size + " bytes";
}

std::optional<int> FindDownloadPercentage(std::string_view output)
{
    DownloadBarReader reader;
    reader.Read(output);
    return reader.TakePercentage();
}

// The definition, letter by letter; the dot also stands for a carriage return.
std::optional<int> ByDefinition(std::string const& output)
{
    static QRegularExpression const bar(QStringLiteral(R"(Download.*\]\s*(\d+)%)"),
                                        QRegularExpression::DotMatchesEverythingOption);
    auto const line = QString::fromUtf8(QByteArray::fromStdString(output)).split(QChar(u'\n'));
    auto const match = bar.match(line.last());
    return match.hasMatch() ? std::optional(match.captured(1).toInt()) : nullopt;
}

TEST(DownloadPercentage, IsThatOfABar)
{
    EXPECT_EQ(FindDownloadPercentage("Download [=====     ]  42%"), 42);
    EXPECT_EQ(FindDownloadPercentage("\rDownload\t[=========================] 100%        40960 "
                                     "bytes"),
              100);
    EXPECT_EQ(FindDownloadPercentage("\rDownload\t[                         ]   0%            0 "
                                     "bytes"),
              0);
}

TEST(DownloadPercentage, IsThatOfTheNewestOfSeveralBars)
{
    EXPECT_EQ(FindDownloadPercentage(Bar(2, 8, 16384) + Bar(10, 40, 81920) + Bar(17, 68, 139264)),
              68);
    EXPECT_EQ(FindDownloadPercentage("Download [==] 90%\rDownload [= ] 10%"), 10);
}

TEST(DownloadPercentage, IsThatOfTheLastLineOnly)
{
    EXPECT_EQ(FindDownloadPercentage(Bar(5, 20, 8192) + "\n" + Bar(10, 40, 16384)), 40);
    EXPECT_EQ(FindDownloadPercentage(Bar(5, 20, 8192) + "\nDownload done."), nullopt);
    EXPECT_EQ(FindDownloadPercentage("Download\n[==] 42%"), nullopt);
}

TEST(DownloadPercentage, IsNothingAfterANewline)
{
    EXPECT_EQ(FindDownloadPercentage(Bar(25, 100, 40960) + "\n"), nullopt);
    EXPECT_EQ(FindDownloadPercentage(Bar(25, 100, 40960) + "\nDownload done.\n"), nullopt);
    EXPECT_EQ(FindDownloadPercentage("\n"), nullopt);
}

TEST(DownloadPercentage, IsNothingInNoOutput)
{
    EXPECT_EQ(FindDownloadPercentage({}), nullopt);
    EXPECT_EQ(FindDownloadPercentage(""), nullopt);
}

TEST(DownloadPercentage, IsNothingWhileTheToolErases)
{
    EXPECT_EQ(FindDownloadPercentage("\rErase   \t[=====                    ]  20%         8192 "
                                     "bytes"),
              nullopt);
}

TEST(DownloadPercentage, IsNothingInABarThatIsNotOne)
{
    for (auto const* text :
         {"Download", "Download [===]", "Download [===] %", "Download [===] 42", "Download 42%",
          "Download [===] x42%", "Download [===] -42%", "Download [===] 4 2%", "42% Download [===]",
          "[===] 42% Download", "download [===] 42%", "Downloa [===] 42%", "Download [===> 42%"}) {
        EXPECT_EQ(FindDownloadPercentage(text), nullopt) << text;
    }
}

TEST(DownloadPercentage, OfABarCutShortIsThatOfTheBarBefore)
{
    auto const bars = Bar(10, 40, 16384) + Bar(11, 44, 18432);

    EXPECT_EQ(FindDownloadPercentage(bars.substr(0, bars.find("44"))), 40);
    EXPECT_EQ(FindDownloadPercentage(bars.substr(0, bars.find("44%") + 2)), 40);
    EXPECT_EQ(FindDownloadPercentage(bars.substr(0, bars.find("44%") + 3)), 44);
}

TEST(DownloadPercentage, MayFollowTheBarAtAnyDistance)
{
    EXPECT_EQ(FindDownloadPercentage("Download]7%"), 7);
    EXPECT_EQ(FindDownloadPercentage("Download [==] \t\r\v\f 7%"), 7);
    EXPECT_EQ(FindDownloadPercentage("Downloading to address = 0x08000000 [==] 7% [] 8"), 7);
}

TEST(DownloadPercentage, MayHaveAnyNumberOfDigits)
{
    EXPECT_EQ(FindDownloadPercentage("Download [] 007%"), 7);
    EXPECT_EQ(FindDownloadPercentage("Download [] 2147483647%"), 2147483647);
    EXPECT_EQ(FindDownloadPercentage("Download [] 2147483648%"), 0);
    EXPECT_EQ(FindDownloadPercentage("Download [] " + std::string(4000, '9') + "%"), 0);
    EXPECT_EQ(FindDownloadPercentage("Download [] " + std::string(4000, '0') + "5%"), 5);
}

TEST(DownloadPercentage, IsFoundAmongBytesThatAreNoText)
{
    EXPECT_EQ(FindDownloadPercentage("\xFF\xFE\xC3 Download\xE2\x82 [\x80==]\t42%\xF0\x9F"), 42);
    EXPECT_EQ(FindDownloadPercentage(std::string_view("\0Download\0[=]\0 [=] 9%\0", 22)), 9);
    EXPECT_EQ(FindDownloadPercentage("Download [=]\xC2\xA0 42%"), nullopt);        // no plain space
    EXPECT_EQ(FindDownloadPercentage("Download [=] \xD9\xA4\xD9\xA2%"), nullopt);  // no plain digit
}

TEST(DownloadPercentage, IsByDefinitionAtEachCut)
{
    auto const output = "Erase done.\nFile downloaded\n" + Bar(0, 0, 0) + Bar(12, 48, 2048) +
                        Bar(25, 100, 4096) + "\nDownload done.\n";
    for (size_t begin = 0; begin <= output.size(); ++begin) {
        for (size_t end = begin; end <= output.size(); end += 3) {
            auto const piece = output.substr(begin, end - begin);
            ASSERT_EQ(FindDownloadPercentage(piece), ByDefinition(piece)) << piece;
        }
    }
}

TEST(DownloadPercentage, IsByDefinitionWithAnyByteChanged)
{
    auto const good = Bar(12, 48, 2048) + Bar(13, 52, 4096);
    for (size_t place = 0; place < good.size(); ++place) {
        for (int value = 0; value < 256; ++value) {
            auto output = good;
            output[place] = static_cast<char>(value);
            ASSERT_EQ(FindDownloadPercentage(output), ByDefinition(output))
                << "byte " << place << " is " << value;
        }
    }
}

TEST(DownloadPercentage, IsTheSameInAnyTwoPieces)
{
    for (auto const* output : {"Erase done.\nDownload [==] 42%\rDownload [=== ]  60%",
                               "DownDownload]]  0%]7", "Download [=] 2147483647%",
                               "x] 1%\nDownload\r]] 3%] %", "Download] 5%\n\nDownload] 6%"}) {
        std::string_view const whole(output);
        for (size_t cut = 0; cut <= whole.size(); ++cut) {
            DownloadBarReader reader;
            reader.Read(whole.substr(0, cut));
            reader.Read(whole.substr(cut));
            EXPECT_EQ(reader.TakePercentage(), ByDefinition(output)) << output << " cut at " << cut;
        }
    }
}

TEST(DownloadPercentage, IsTheSameByteForByte)
{
    auto const output = "Erase done.\nFile downloaded\n" + Bar(0, 0, 0) + Bar(12, 48, 2048);
    for (size_t end = 0; end <= output.size(); ++end) {
        DownloadBarReader reader;
        for (char const byte : output.substr(0, end)) {
            reader.Read({&byte, 1});
        }
        EXPECT_EQ(reader.TakePercentage(), ByDefinition(output.substr(0, end))) << end;
    }
}

TEST(DownloadPercentage, OnceTakenIsGoneAndNothingIsJoinedWithWhatFollows)
{
    auto const bar = Bar(12, 48, 2048);
    for (size_t cut = 0; cut <= bar.size(); ++cut) {
        DownloadBarReader reader;
        reader.Read(bar.substr(0, cut));
        reader.TakePercentage();
        EXPECT_EQ(reader.TakePercentage(), nullopt);
        reader.Read(bar.substr(cut));
        EXPECT_EQ(reader.TakePercentage(), ByDefinition(bar.substr(cut))) << cut;
    }
}

TEST(DownloadPercentage, IsReadWithoutKeepingTheOutput)
{
    static_assert(std::is_trivially_copyable_v<DownloadBarReader>, "it owns no memory");
    DownloadBarReader reader;
    std::string const piece = Bar(12, 48, 2048) + std::string(1'000'000, ']');
    for (int i = 0; i < 20; ++i) {
        reader.Read(piece);
    }
    EXPECT_EQ(reader.TakePercentage(), 48);
}

// A run of dfu-util 0.11 that wrote 64 KiB, whole, and read up to each of its bytes.
TEST(DownloadPercentage, OfARecordedRunRisesFromTheFirstBarOfTheDownload)
{
    std::ifstream file(FW_RECORDED_OUTPUT "/dfu_util_0.11_download.txt", std::ios::binary);
    std::string const output(std::istreambuf_iterator<char>(file), {});
    auto const first_bar = output.find("\rDownload\t[");
    ASSERT_NE(first_bar, std::string::npos);
    auto const bars_end = output.find('\n', first_bar);

    std::vector<int> seen;
    for (size_t end = 0; end <= output.size(); ++end) {
        auto const percentage = FindDownloadPercentage(std::string_view(output).substr(0, end));
        ASSERT_EQ(percentage, ByDefinition(output.substr(0, end))) << end;
        if (percentage) {
            EXPECT_TRUE(end > first_bar && end <= bars_end) << end;
            if (seen.empty() || seen.back() != *percentage) {
                seen.push_back(*percentage);
            }
        }
    }

    EXPECT_TRUE(std::ranges::is_sorted(seen));
    EXPECT_GT(seen.size(), 20U);
    EXPECT_EQ(seen.front(), 0);
    EXPECT_EQ(seen.back(), 100);
}

// Megabytes of what keeps a backtracking search busy for hours.
TEST(DownloadPercentage, IsSoonMissedInHopelessOutput)
{
    for (auto const* piece : {"Download", "Download [", "]", "Download]", "Download] 1", "] "}) {
        std::string output = "Download";
        while (output.size() < 8'000'000) {
            output += piece;
        }
        EXPECT_EQ(FindDownloadPercentage(output), nullopt) << piece;
    }
    EXPECT_EQ(FindDownloadPercentage("Download]" + std::string(8'000'000, ' ')), nullopt);
    EXPECT_EQ(FindDownloadPercentage("Download]" + std::string(8'000'000, '1')), nullopt);
}

}  // namespace
}  // namespace stm32_updater
