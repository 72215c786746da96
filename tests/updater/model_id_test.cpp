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

TEST(ModelIdCheck, AcceptsAModelThatIsListed)
{
    EXPECT_TRUE(checkModelIdInOtp(AreaWithModelAt(0, 12), {12}));
}

TEST(ModelIdCheck, AcceptsAModelWhereverItStandsInTheList)
{
    EXPECT_TRUE(checkModelIdInOtp(AreaWithModelAt(0, 12), {12, 13, 14}));
    EXPECT_TRUE(checkModelIdInOtp(AreaWithModelAt(0, 13), {12, 13, 14}));
    EXPECT_TRUE(checkModelIdInOtp(AreaWithModelAt(0, 14), {12, 13, 14}));
}

TEST(ModelIdCheck, RefusesAModelThatIsNotListed)
{
    EXPECT_FALSE(checkModelIdInOtp(AreaWithModelAt(0, 11), {12, 13, 14}));
}

TEST(ModelIdCheck, ComparesTheWholeByte)
{
    EXPECT_TRUE(checkModelIdInOtp(AreaWithModelAt(0, 0), {0}));
    EXPECT_TRUE(checkModelIdInOtp(AreaWithModelAt(0, 0xFF), {0xFF}));
    EXPECT_FALSE(checkModelIdInOtp(AreaWithModelAt(0, 0x8C), {0x0C}));
}

TEST(ModelIdCheck, RefusesEveryModelWhenTheListIsEmpty)
{
    EXPECT_FALSE(checkModelIdInOtp(AreaWithModelAt(0, 12), {}));
}

TEST(ModelIdCheck, RefusesEmptyOtpBytes)
{
    EXPECT_FALSE(checkModelIdInOtp({}, {12}));
}

TEST(ModelIdCheck, RefusesAnUnprogrammedArea)
{
    EXPECT_FALSE(checkModelIdInOtp(UnprogrammedArea(), {12, 0xFF}));
}

TEST(ModelIdCheck, RefusesAnAreaOfZeros)
{
    EXPECT_FALSE(checkModelIdInOtp(std::vector<std::byte>(kOtpAreaSize), {0}));
}

TEST(ModelIdCheck, FindsTheRecordInEverySlot)
{
    for (size_t slot = 0; slot < 32; ++slot) {
        EXPECT_TRUE(checkModelIdInOtp(AreaWithModelAt(slot * 16, 12), {12})) << "slot " << slot;
    }
}

TEST(ModelIdCheck, DoesNotSeeARecordThatBeginsAtByte512)
{
    EXPECT_FALSE(checkModelIdInOtp(AreaWithModelAt(512, 12, 1024), {12}));
}

TEST(ModelIdCheck, DoesNotSeeARecordBetweenTwoSlots)
{
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

TEST(ModelIdCheck, LooksPastRecordsWithOtherTags)
{
    auto area = AreaWithModelAt(2 * 16, 12);
    Put(area, 0, {0x11, 0x47, 0x23, 0x02, 99});
    Put(area, 16, {0x01, 0x23, 0x47, 0x11, 98});  // the same tag, highest byte first

    EXPECT_TRUE(checkModelIdInOtp(area, {12}));
    EXPECT_FALSE(checkModelIdInOtp(area, {98, 99}));
}

TEST(ModelIdCheck, EveryByteOfTheTagHasToMatch)
{
    for (size_t byte = 0; byte < 4; ++byte) {
        auto area = AreaWithModelAt(0, 12);
        area[byte] ^= std::byte{0x01};
        EXPECT_FALSE(checkModelIdInOtp(area, {12})) << "byte " << byte;
    }
}

TEST(ModelIdCheck, OfShortDataSeesTheRecordsThatLieWhollyInside)
{
    EXPECT_TRUE(checkModelIdInOtp(AreaWithModelAt(0, 12, 16), {12}));
    EXPECT_TRUE(checkModelIdInOtp(AreaWithModelAt(16, 12, 47), {12}));
}

TEST(ModelIdCheck, TakesARecordThatIsCutOffForAbsent)
{
    auto const whole = AreaWithModelAt(16, 12, 32);
    for (size_t size = 1; size < 32; ++size) {
        std::vector<std::byte> const cut(whole.begin(),
                                         whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_FALSE(checkModelIdInOtp(cut, {12})) << size << " bytes";
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
