// Which OTP areas let a firmware onto a unit.
#include "updater/model_id.h"

#include <gtest/gtest.h>

#include "tests/updater/otp_area.h"

using namespace Qt::StringLiterals;

namespace {

// Tag 0x01234711, lowest byte first, then the model ID.
std::vector<std::byte> AreaWithModelAt(size_t offset, uint8_t model, size_t size = kOtpAreaSize)
{
    auto area = UnprogrammedArea(size);
    Put(area, offset, {0x11, 0x47, 0x23, 0x01, model});
    return area;
}

}  // namespace

TEST(ModelIdCheck, AcceptsAModelThatIsInTheListAndNoOther)
{
    struct {
        uint8_t model;
        QList<uint8_t> device_ids;
        bool accepted;
    } const rows[] = {
        {12, {12}, true},          {12, {12, 13, 14}, true}, {13, {12, 13, 14}, true},
        {14, {12, 13, 14}, true},  {0, {0}, true},           {0xFF, {0xFF}, true},
        {11, {12, 13, 14}, false}, {0x8C, {0x0C}, false},    {12, {}, false},
    };
    for (auto const& [model, device_ids, accepted] : rows) {
        EXPECT_EQ(checkModelIdInOtp(AreaWithModelAt(0, model), device_ids), accepted)
            << int{model} << " of " << device_ids.size();
    }
    EXPECT_FALSE(checkModelIdInOtp({}, {12})) << "no data";
    EXPECT_FALSE(checkModelIdInOtp(UnprogrammedArea(), {12, 0xFF})) << "no record";
    EXPECT_FALSE(checkModelIdInOtp(std::vector<std::byte>(kOtpAreaSize), {0})) << "no record";
}

TEST(ModelIdCheck, FindsTheRecordInEverySlotOfTheAreaOnly)
{
    for (size_t slot = 0; slot < 32; ++slot) {
        EXPECT_TRUE(checkModelIdInOtp(AreaWithModelAt(slot * 16, 12), {12})) << "slot " << slot;
    }
    EXPECT_FALSE(checkModelIdInOtp(AreaWithModelAt(512, 12, 1024), {12}));
    for (size_t const offset : {1U, 4U, 8U, 15U, 495U}) {
        EXPECT_FALSE(checkModelIdInOtp(AreaWithModelAt(offset, 12), {12})) << "byte " << offset;
    }
}

TEST(ModelIdCheck, OnlyTheLowerNumberedOfTwoRecordsCounts)
{
    auto area = AreaWithModelAt(3 * 16, 12);
    Put(area, 7 * 16, {0x11, 0x47, 0x23, 0x01, 13});

    EXPECT_TRUE(checkModelIdInOtp(area, {12}));
    EXPECT_FALSE(checkModelIdInOtp(area, {13}));
}

TEST(ModelIdCheck, IgnoresRecordsWithOtherTags)
{
    auto area = AreaWithModelAt(2 * 16, 12);
    Put(area, 0, {0x11, 0x47, 0x23, 0x02, 99});
    Put(area, 16, {0x01, 0x23, 0x47, 0x11, 98});  // the same tag, highest byte first

    EXPECT_TRUE(checkModelIdInOtp(area, {12}));
    EXPECT_FALSE(checkModelIdInOtp(area, {98, 99}));
    for (size_t byte = 0; byte < 4; ++byte) {
        auto other = AreaWithModelAt(0, 12);
        other[byte] ^= std::byte{0x01};
        EXPECT_FALSE(checkModelIdInOtp(other, {12})) << "byte " << byte;
    }
}

TEST(ModelIdCheck, OfShortDataSeesTheRecordsThatLieWhollyInside)
{
    EXPECT_TRUE(checkModelIdInOtp(AreaWithModelAt(0, 12, 16), {12}));
    EXPECT_TRUE(checkModelIdInOtp(AreaWithModelAt(16, 12, 47), {12}));
    auto cut = AreaWithModelAt(16, 12, 32);
    while (cut.size() > 1) {
        cut.pop_back();
        EXPECT_FALSE(checkModelIdInOtp(cut, {12})) << cut.size() << " bytes";
    }
}

TEST(ModelIdCheck, IsSkippedForServiceFirmwareOnly)
{
    EXPECT_TRUE(SkipsModelCheck(u"service"_s));

    for (auto const& type : {u"Service"_s, u"SERVICE"_s, u"service "_s, u" service"_s,
                             u"services"_s, u"servic"_s, u"customer"_s, QString()}) {
        EXPECT_FALSE(SkipsModelCheck(type)) << type.toStdString();
    }
}
