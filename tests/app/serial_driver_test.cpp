// Where the serial driver is, and how the system's list of extensions is read. The listings are
// written by hand, in the format of the tool's own.
#include "app/serial_driver.h"

#include <gtest/gtest.h>

#include "config/bundle_paths.h"
#include "tests/app/driver_stand_ins.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

TEST(SerialDriverPaths, AreInTheApplicationsFolderAndTheBundle)
{
    auto const paths = GetDriverPaths(DriverEnvironment().applications_dir,
                                      QDir(u"/Volumes/X/U.app/Contents/MacOS/../Resources"_s));

    EXPECT_EQ(paths.installed_app, u"/Applications/CP210xVCPDriver.app"_s);
    EXPECT_EQ(paths.installed_executable,
              u"/Applications/CP210xVCPDriver.app/Contents/MacOS/CP210xVCPDriver"_s);
    EXPECT_EQ(paths.bundled_app,
              u"/Volumes/X/U.app/Contents/MacOS/../Resources/CP210xVCPDriver.app"_s);
    EXPECT_EQ(paths.bundled_executable,
              u"/Volumes/X/U.app/Contents/MacOS/../Resources/CP210xVCPDriver.app/Contents/MacOS/"
              "CP210xVCPDriver"_s);
}

TEST(SerialDriverEnvironment, HasTheSystemsToolsAndTheTimeoutsByDefault)
{
    DriverEnvironment const environment;

    EXPECT_EQ(environment.osascript, u"osascript"_s);
    EXPECT_EQ(environment.cp, u"cp"_s);
    EXPECT_EQ(environment.systemextensionsctl, u"systemextensionsctl"_s);
    EXPECT_EQ(environment.timeouts.uninstall, 60s);
    EXPECT_EQ(environment.timeouts.removal, 60s);
    EXPECT_EQ(environment.timeouts.copy, 30s);
    EXPECT_EQ(environment.timeouts.install_start, 30s);
    EXPECT_EQ(environment.timeouts.install, 60s);
    EXPECT_EQ(environment.timeouts.extension_listing, 30s);
    EXPECT_EQ(environment.quit_delay, 1s);
}

TEST(IsDriverEnabled, FindsTheStateInTheToolsListing)
{
    std::pair<QString, bool> const rows[] = {
        {u"enabled"_s, true},
        {u"waiting_for_user"_s, false},
        {u"disabled"_s, false},
        {u"terminated_until_reboot"_s, false},
        {u"two_versions_one_enabled"_s, true},
        {u"two_versions_none_enabled"_s, false},
        {u"only_anothers_enabled"_s, false},
        {u"none"_s, false},
    };
    for (auto const& [name, is_enabled] : rows) {
        auto const listing = ReadExtensionListing(name);
        EXPECT_FALSE(listing.isEmpty()) << name.toStdString();
        EXPECT_EQ(IsDriverEnabled(listing), is_enabled) << name.toStdString();
    }
}

TEST(IsDriverEnabled, NeedsIdentifierAndStateInOneLine)
{
    for (auto const* listing : {"com.silabs.cp210x [activated enabled]",
                                "com.silabs.cp210x.ext (1/2)\tName\t[activated enabled]\n"}) {
        EXPECT_TRUE(IsDriverEnabled(listing)) << listing;
    }
    for (auto const* listing :
         {"com.silabs.cp210x\n[activated enabled]", "[activated enabled] com.silabs.cp210x",
          "com.silabs.cp210x activated enabled", "com.silabs.CP210x [activated enabled]",
          "com.silabs.cp210 [activated enabled]"}) {
        EXPECT_FALSE(IsDriverEnabled(listing)) << listing;
    }
}

TEST(IsDriverEnabled, AcceptsBytesThatAreNotText)
{
    EXPECT_FALSE(IsDriverEnabled({}));
    EXPECT_FALSE(IsDriverEnabled(QByteArray(100'000, '\xFF')));
    EXPECT_TRUE(IsDriverEnabled(QByteArray("\xC3\x28\0\n", 4) +
                                "com.silabs.cp210x N\xE9r [activated enabled]"));
}
