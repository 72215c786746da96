// Where the program looks for the bundle's files.
#include "config/bundle_paths.h"

#include <gtest/gtest.h>

#include "tests/config/ini_file.h"

using namespace Qt::StringLiterals;

TEST(BundlePaths, FollowFromTheProgramsDirectoryWithoutBeingTidied)
{
    auto const paths = GetBundlePaths(u"/Apps/Up.app/Contents/MacOS"_s);

    EXPECT_EQ(paths.resources, u"/Apps/Up.app/Contents/MacOS/../Resources"_s);
    EXPECT_EQ(paths.dfu_util, u"/Apps/Up.app/Contents/MacOS/../MacOS/dfu-util"_s);
    EXPECT_EQ(GetConfigPath(QDir(u"/a/MacOS/../Resources"_s)),
              u"/a/MacOS/../Resources/config.ini"_s);
}

TEST(FirmwarePath, IsRelativeToTheResourceDirectoryUnlessItIsAbsolute)
{
    struct {
        char const* ini;
        char16_t const* path;
    } const cases[] = {
        {"firmware_filename=images/fw.bin\n", u"/r/images/fw.bin"},
        {"firmware_filename=/images/fw.bin\n", u"/images/fw.bin"},
        {"firmware_filename=\n", u"/r"},
        {"", u"/r"},
    };
    for (auto const& [text, path] : cases) {
        IniFile const ini(text);
        EXPECT_EQ(GetFirmwarePath(QDir(u"/r"_s), ini.Settings()), QString::fromUtf16(path)) << text;
    }
}
