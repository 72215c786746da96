// The rules for units in boot mode, from the ids that the program itself reads.
#include "bundle_check/udev_rules.h"

#include <gmock/gmock.h>

#include "tests/bundle_check/bundle_folder.h"

using namespace Qt::StringLiterals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace bundle_check {
namespace {

constexpr char kNoProducts[] =
    R"(ACTION=="remove", GOTO="firmware_updater_end"
SUBSYSTEM=="usb", ENV{DEVTYPE}=="usb_device", ATTR{idVendor}=="10c4", ATTR{idProduct}=="ea60", ENV{ID_MM_DEVICE_IGNORE}="1"
SUBSYSTEM=="tty", ATTRS{idVendor}=="10c4", ATTRS{idProduct}=="ea60", ENV{ID_MM_DEVICE_IGNORE}="1", TAG+="uaccess"
SUBSYSTEM=="usb", ENV{DEVTYPE}=="usb_device", ATTR{idVendor}=="0483", ATTR{idProduct}=="df11", ENV{ID_MM_DEVICE_IGNORE}="1", TAG+="uaccess"
LABEL="firmware_updater_end"
)";

// The rules without comments.
QString GetRules(QByteArray const& config)
{
    BundleFolder bundle;
    bundle.SetConfig(config);
    Findings findings;
    auto rules = MakeUdevRules(bundle.Path(u"Resources"_s), findings);
    EXPECT_TRUE(rules) << config.constData();
    auto lines = rules.value_or(QString()).split(u'\n');
    lines.removeIf([](QString const& line) { return line.startsWith(u'#'); });
    return lines.join(u'\n');
}

// The "VENDOR:PRODUCT" of each rule for this subsystem, in order.
std::vector<std::string> GetIds(QString const& subsystem, QString const& rules)
{
    std::vector<std::string> ids;
    for (auto const& line : rules.split(u'\n')) {
        if (line.startsWith(u"SUBSYSTEM==\"%1\""_s.arg(subsystem))) {
            auto const quoted = line.split(u'"');
            auto const first = quoted.indexOf(u", ATTR{idVendor}=="_s);
            auto const vendor = first >= 0 ? first + 1 : qsizetype{3};
            ids.push_back((quoted[vendor] + u':' + quoted[vendor + 2]).toStdString());
        }
    }
    return ids;
}

TEST(UdevRules, NameTheSerialAdapterAndTheDfuBootloaderWhateverTheProduct)
{
    EXPECT_EQ(GetRules("firmware_filename=a.bin\n").toStdString(), kNoProducts);
    EXPECT_EQ(GetRules("product_list=One:10C4:EA60\n").toStdString(), kNoProducts);
}

TEST(UdevRules, NameSerialProductsAsPortsAndUsbProductsAsDevices)
{
    auto const serial =
        GetRules("interface=mcuboot_serial\nproduct_list=One:1209:1, Two:2FE3:ABCD\n");
    EXPECT_THAT(GetIds(u"tty"_s, serial), ElementsAre("10c4:ea60", "1209:0001", "2fe3:abcd"));
    EXPECT_THAT(GetIds(u"usb"_s, serial),
                ElementsAre("10c4:ea60", "1209:0001", "2fe3:abcd", "0483:df11"));

    auto const usb = GetRules("product_list=\"One:1209:0002\" ; a remark\ninterface = usb\n");
    EXPECT_THAT(GetIds(u"tty"_s, usb), ElementsAre("10c4:ea60"));
    EXPECT_THAT(GetIds(u"usb"_s, usb), ElementsAre("10c4:ea60", "0483:df11", "1209:0002"));
}

TEST(UdevRules, AcceptEverySpellingThatTheProgramAccepts)
{
    for (auto const* ids : {"1209:abcd", "1209 : abcd", "0X1209:0xABCD", "00001209:0000abcd"}) {
        auto const rules = GetRules(QByteArray("product_list=One:") + ids + "\n");
        EXPECT_THAT(GetIds(u"tty"_s, rules), ElementsAre("10c4:ea60", "1209:abcd")) << ids;
    }
}

TEST(UdevRules, AreNotMadeFromWhatIsNoConfiguration)
{
    BundleFolder bundle;
    for (auto const& [config, reason] :
         {std::pair{QByteArray("a\0b", 3), "is not a config.ini; give the file of a product."},
          std::pair{QByteArray("a=@Variant(\\0\\0\\0\\x9\\xff\\xff\\xff\\xff)\n"), "'@NAME('"}}) {
        bundle.SetConfig(config);
        Findings findings;
        EXPECT_FALSE(MakeUdevRules(bundle.Path(u"Resources/config.ini"_s), findings));
        ASSERT_EQ(findings.Sorted().size(), 1) << reason;
        EXPECT_TRUE(findings.Sorted()[0].text.contains(QString::fromLatin1(reason)))
            << findings.Sorted()[0].text.toStdString();
    }
    Findings findings;
    EXPECT_FALSE(MakeUdevRules(u"/nowhere/config.ini"_s, findings));
    EXPECT_EQ(findings.Count(Severity::Error), 1);
}

TEST(UdevRules, AreMadeOfAConfigurationOrOfEveryFolderThatTheCheckerTakes)
{
    BundleFolder bundle;
    bundle.Set("product_list", "One:1209:0002");
    QTemporaryDir const source;
    auto const copy = source.filePath(u"config.ini"_s);
    ASSERT_TRUE(QFile::copy(bundle.Path(u"Resources/config.ini"_s), copy));
    for (auto const& path : {bundle.Root(), bundle.Path(), bundle.Path(u"Resources"_s),
                             bundle.Path(u"Resources/config.ini"_s), source.path(), copy}) {
        Findings findings;
        auto const rules = MakeUdevRules(path, findings);
        EXPECT_TRUE(rules && rules->contains(u"\"1209\""_s)) << path.toStdString();
    }
}

}  // namespace
}  // namespace bundle_check
