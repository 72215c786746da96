// What is reported about the dfu-util in a bundle for USB. The stand-ins are shell scripts.
#include <gtest/gtest.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>

#include "bundle_check/checks.h"
#include "tests/bundle_check/bundle_folder.h"

using namespace Qt::StringLiterals;

namespace {

class UsbBundle : public BundleFolder {
public:
    explicit UsbBundle(QByteArray const& script)
    {
        UseUsb();
        Write(u"MacOS/dfu-util"_s, "#!/bin/sh\n" + script, true);
    }
};

}  // namespace

TEST(DfuUtil, MustExistBeExecutableAndRun)
{
    BundleFolder bundle;
    bundle.UseUsb();
    bundle.Write(u"MacOS/dfu-util"_s, "#!/no/such/interpreter fast\n", true);
    EXPECT_TRUE(FindsOnly(
        bundle,
        "error: dfu-util cannot be run; replace it with a dfu-util that runs on this system."));
    bundle.Write(u"MacOS/dfu-util"_s, "#!/bin/sh\n# fast\n");
    EXPECT_TRUE(FindsOnly(bundle, "error: The tool dfu-util beside the program is not executable"));
    bundle.Delete(u"MacOS/dfu-util"_s);
    EXPECT_TRUE(FindsOnly(bundle,
                          "error: The tool dfu-util beside the program does not exist, so no unit "
                          "is ever found; put an executable dfu-util there."));
    ASSERT_TRUE(QDir(bundle.Path()).rmdir(u"MacOS"_s));
    EXPECT_TRUE(
        FindsOnly(bundle,
                  "warning: There is no program beside the Resources folder yet; over USB a "
                  "bundle needs dfu-util beside the program"));
    EXPECT_FALSE(QFile::exists(BundleFolder().Path(u"MacOS/dfu-util"_s)))
        << "the clean bundle for UART has none";
}

TEST(DfuUtil, IsAskedForVersionAndUsageAndNothingElse)
{
    UsbBundle bundle("echo \"$*\" >>\"$0.log\"\necho dfu-util 0.12\n# fast\n");
    EXPECT_TRUE(FindsNothing(bundle));
    QFile log(bundle.Path(u"MacOS/dfu-util.log"_s));
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    EXPECT_EQ(log.readAll(), "-V\n-h\n");
}

TEST(DfuUtil, SupportsFastByItsUsageOrItsReleaseAlone)
{
    auto const* const unsupported =
        "error: dfu-util 0.11 does not support the modifier 'fast': it "
        "refuses every update, and the window still shows DONE.";
    auto const* const unknown =
        "warning: Could not confirm that this dfu-util supports the "
        "modifier 'fast'. Without it every update fails, and the window still shows DONE. Test it "
        "on a unit.";
    std::pair<char const*, char const*> const scripts[] = {
        {"echo dfu-util 0.11", unsupported},
        {"echo dfu-util 0.12", unknown},
        {"echo dfu-util 0.11-dev", unknown},
        {"echo dfu-util 1.0", unknown},
        // Its usage lists the word, and the file itself does not contain it.
        {"w=ast; echo dfu-util 0.11; [ \"$1\" = -h ] && echo \"  f$w  quicker\" >&2", ""},
        // Its usage contains the word elsewhere.
        {"w=ast; echo dfu-util 0.11; echo \"  not so f$w\"", unsupported},
        {"w=ast; echo dfu-util 0.11; echo \"  f${w}er\"", unsupported},
        {"w=ast; echo dfu-util 0.11; echo \"  f$w-path\"", unsupported},
        // The file contains it as a part of other words.
        {"echo dfu-util 0.11 # breakfast", unsupported},
        {"echo dfu-util 0.11 # invalid fastbin entry (free)", unsupported},
        {"echo dfu-util 0.11 # _fast", unsupported},
        {"echo dfu-util 0.11 # fast2", unsupported},
        {"kill -KILL $$ # fast",
         "error: dfu-util crashes or is killed when asked for its version;"},
        {"echo hello # fast",
         "warning: The file dfu-util beside the program does not seem to be dfu-util: its version "
         "output lacks that name. Replace it."},
    };
    for (auto const& [script, finding] : scripts) {
        UsbBundle const bundle(script + QByteArray("\n"));
        EXPECT_TRUE(*finding == '\0' ? FindsNothing(bundle) : FindsOnly(bundle, finding)) << script;
    }
}

// The installed tool, 0.11 in Debian 12 and 13, with further text in its file that it never prints.
TEST(DfuUtil, DoesNotSupportFastByATextInItThatItsUsageDoesNotList)
{
    QFile installed(u"/usr/bin/dfu-util"_s);
    if (!installed.open(QIODevice::ReadOnly)) {
        GTEST_SKIP() << "dfu-util is not installed";
    }
    auto const tool = installed.readAll();
    BundleFolder bundle;
    bundle.UseUsb();
    for (auto const& text : {QByteArray(), QByteArray("\0invalid fastbin entry (free)\0", 31),
                             QByteArray("\0fast\0", 6)}) {
        bundle.Write(u"MacOS/dfu-util"_s, tool + text, true);
        EXPECT_TRUE(FindsOnly(bundle, "error: dfu-util 0.11 does not support the modifier 'fast'"))
            << text.size();
    }
}

TEST(DfuUtil, ThatDoesNotExitOrFloodsItsOutputIsNotWaitedFor)
{
    for (auto const* script :
         {"exec tail -f /dev/null\n", "exec yes dfu-util\n",
          "trap '' TERM HUP INT\nwhile :; do read -r line <&1; done\n", "kill -STOP $$\n"}) {
        SCOPED_TRACE(script);
        UsbBundle const bundle(script);
        bundle_check::Findings findings;
        QElapsedTimer timer;
        timer.start();
        bundle_check::CheckDfuUtil(bundle.Path(u"MacOS/dfu-util"_s), findings,
                                   std::chrono::milliseconds(300));
        EXPECT_LT(timer.elapsed(), 5000);
        ASSERT_EQ(findings.Sorted().size(), 1);
        EXPECT_EQ(findings.Sorted().first().text,
                  u"dfu-util does not exit when asked for its version; replace it with a dfu-util "
                  "that runs on this system."_s);
    }
}

TEST(DfuUtil, ForMacosIsNotRunOnLinux)
{
    BundleFolder bundle;
    bundle.UseUsb();
    bundle.Write(u"MacOS/dfu-util"_s, QByteArray("\xCF\xFA\xED\xFE fast"), true);
    EXPECT_TRUE(Finds(bundle,
                      "note: dfu-util is a program for another system and was not run; check the "
                      "bundle on that system as well."));
    for (auto const* text : {"slow", "invalid fastbin entry (free)"}) {
        bundle.Write(u"MacOS/dfu-util"_s, QByteArray("\xCF\xFA\xED\xFE ") + text, true);
        EXPECT_TRUE(Finds(bundle, "warning: Could not confirm that this dfu-util")) << text;
    }
}
