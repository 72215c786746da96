// The table of keys, and the vendor's document against it.
#include "config/config_keys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QFile>
#include <QMap>
#include <QStringList>
#include <map>
#include <set>

#include "config/startup_config.h"

using namespace Qt::StringLiterals;
using config_keys::Form;
using config_keys::Need;

namespace {

// A row of the document's table: | `key` | form | needed by | missing or malformed | example |
using Row = QStringList;

QMap<QString, Row> ReadDocument()
{
    QFile document(QStringLiteral(FW_VENDORS_DOCUMENT));
    EXPECT_TRUE(document.open(QIODevice::ReadOnly)) << FW_VENDORS_DOCUMENT;
    QMap<QString, Row> rows;
    bool in_table = false;
    for (auto const& line : QString::fromUtf8(document.readAll()).split(u'\n')) {
        in_table = line.startsWith(u"| Key |"_s) || (in_table && line.startsWith(u'|'));
        if (in_table && line.startsWith(u"| `"_s)) {
            auto cells = line.mid(1).split(u'|');
            std::ranges::transform(cells, cells.begin(), [](auto& cell) { return cell.trimmed(); });
            rows[cells[0].mid(1).chopped(1)] = cells;
        }
    }
    return rows;
}

// How the document's column "Form" begins.
QString GetForm(Form form)
{
    static std::map<Form, QString> const forms{{Form::FileName, u"file name"_s},
                                               {Form::Interface, u"`usb` or `mcuboot_serial`"_s},
                                               {Form::Address, u"address"_s},
                                               {Form::Decimal, u"decimal"_s},
                                               {Form::Products, u"list of `NAME:VENDOR:PRODUCT`"_s},
                                               {Form::DeviceIds, u"list of decimals"_s},
                                               {Form::Text, u"text"_s},
                                               {Form::TargetType, u"text"_s}};
    return forms.at(form);
}

QString GetNeededBy(config_keys::Key const& key)
{
    static std::map<unsigned, QString> const transports{{config_keys::kEvery, u"all"_s},
                                                        {config_keys::kStm32, u"UART, usb"_s},
                                                        {config_keys::kUart, u"UART"_s}};
    return key.need == Need::Optional ? QString() : transports.at(key.transports);
}

}  // namespace

TEST(ConfigKeys, AreFoundByTheirExactNames)
{
    std::set<QString> names;
    for (auto const* key : config_keys::kAll) {
        names.insert(key->name);
        EXPECT_EQ(config_keys::Find(QString(key->name)), key);
    }
    EXPECT_EQ(names.size(), config_keys::kAll.size()) << "each key once";
    EXPECT_EQ(config_keys::Find(u"Interface"), nullptr);
    EXPECT_EQ(config_keys::Find(u""), nullptr);
}

TEST(ConfigKeys, AreReadOverTheTransportsThatTheirRowNames)
{
    EXPECT_TRUE(config_keys::kStartAddress.IsReadOver(TargetUart));
    EXPECT_FALSE(config_keys::kStartAddress.IsReadOver(TargetUsb));
    EXPECT_TRUE(config_keys::kOtpSize.IsReadOver(TargetUsb));
    EXPECT_FALSE(config_keys::kOtpSize.IsReadOver(TargetMcubootSerial));
    EXPECT_TRUE(config_keys::kMcubootBaud.IsReadOver(TargetMcubootSerial));
    EXPECT_FALSE(config_keys::kMcubootBaud.IsReadOver(TargetUart));
}

TEST(VendorsDocument, ListsTheKeysWithTheirFormsTransportsAndDefaultsAndNoOther)
{
    auto const rows = ReadDocument();
    EXPECT_EQ(static_cast<size_t>(rows.size()), config_keys::kAll.size());
    for (auto const* key : config_keys::kAll) {
        auto const row = rows.value(key->name, Row(5));
        SCOPED_TRACE(key->name.toString().toStdString() + ": " + row.join(u'|').toStdString());
        EXPECT_TRUE(rows.contains(key->name));
        EXPECT_TRUE(row[1].startsWith(GetForm(key->form)));
        EXPECT_EQ(row[2], GetNeededBy(*key));
    }
    EXPECT_TRUE(rows.value(config_keys::kMcubootBaud.name, Row(5))[3].contains(
        QString::number(kDefaultMcubootBaud)));
    EXPECT_TRUE(rows.value(config_keys::kWindowTitle.name, Row(5))[3].contains(
        QString::fromUtf8(kDefaultWindowTitle)));
}
